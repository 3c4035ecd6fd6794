'use strict';

// Asks the CSL processor directly, without the application's own modules, what a document's
// citations and bibliography look like: the tests compare the application's answers with this.
//
//   node ask-citeproc.js STYLE-NAME < DOCUMENT
//
// DOCUMENT is JSON: {"citationClusters": [cluster, ...]}, every item with an id of its own work and
// every note number in order. The answer is {"citations": [text, ...], "bibliography": [text, ...]}
// in the application's markup.

const fs = require('node:fs');
const path = require('node:path');
const CSL = require('citeproc');

const folder = process.env.TESSARON_CSL_DIR || '/usr/share/citation-style-language';
const installed = (...parts) => fs.readFileSync(path.join(folder, ...parts), 'utf8');

function ask(styleName, citationClusters) {
    const items = {};
    citationClusters.flatMap((cluster) => cluster.citationItems).forEach((item) => {
        items[item.id] = { ...item.itemData, id: item.id };
    });
    const engine = new CSL.Engine({
        retrieveItem: (id) => items[id],
        retrieveLocale: (language) => installed('locales', `locales-${language}.xml`),
    }, installed('styles', `${styleName}.csl`), 'en-US');
    const citations = [];
    const before = [];
    citationClusters.forEach((cluster, index) => {
        const { noteIndex } = cluster.properties;
        const citationItems = cluster.citationItems.map(({ itemData, uris, ...cite }) => cite);
        const citation = { citationID: `c${index}`, citationItems, properties: { noteIndex } };
        const [, changed] = engine.processCitationCluster(citation, before, []);
        changed.forEach(([place, html]) => { citations[place] = html; });
        before.push([citation.citationID, noteIndex]);
    });
    const [, entries] = engine.makeBibliography() || [{}, []];
    return { citations: citations.map(toMarkup), bibliography: entries.map(toMarkup) };
}

function toMarkup(html) {
    return html
        .replace(/\s*<div class="csl-right-inline">/g, '\t')
        .replace(/[ \n]*<\/?div[^>]*>[ \n]*/g, ' ')
        .replace(/ *\t */g, '\t')
        .trim()
        .replace(/&#38;/g, '&amp;')
        .replace(/&#60;/g, '&lt;')
        .replace(/&#62;/g, '&gt;');
}

const document = JSON.parse(fs.readFileSync(0, 'utf8'));
const answer = ask(process.argv[2], document.citationClusters);
process.stdout.write(`${JSON.stringify(answer)}\n`);
