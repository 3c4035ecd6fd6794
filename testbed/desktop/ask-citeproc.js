'use strict';

// Formats a document's citations and bibliography with the CSL processor alone, without the modules
// of the stand-in. The tests compare the stand-in's results with the output of this program.
//
//   node ask-citeproc.js STYLE-NAME < DOCUMENT
//
// DOCUMENT is JSON: {"citationClusters": [cluster, ...]}. Items with the same id are the same work,
// and each cluster has a note number in properties.noteIndex. Prints {"citations": [text, ...], "bibliography": [text, ...]}
// as the processor's HTML.

const fs = require('node:fs');
const path = require('node:path');
const CSL = require('citeproc');

CSL.debug = () => {}; // it would print to standard output

const folder = process.env.TESSARON_CSL_DIR || '/usr/share/citation-style-language';
const fileOf = (...parts) => path.join(folder, ...parts);

function retrieveLocale(language) {
    const file = fileOf('locales', `locales-${language}.xml`);
    return fs.existsSync(file) && fs.readFileSync(file, 'utf8');
}

function ask(styleName, citationClusters) {
    const works = {};
    const citations = citationClusters.map(({ citationItems, properties: { noteIndex } }, index) => ({
        citationID: `c${index}`,
        citationItems: citationItems.map(({ itemData, uris, ...cite }) => {
            works[cite.id] = { ...itemData, id: cite.id };
            return cite;
        }),
        properties: { noteIndex },
    }));
    const style = fs.readFileSync(fileOf('styles', `${styleName}.csl`), 'utf8');
    const system = { retrieveLocale, retrieveItem: (id) => works[id] };
    const engine = new CSL.Engine(system, style, 'en-US');
    const texts = engine.rebuildProcessorState(citations, 'html').map(([, , text]) => text);
    const [, bibliography] = engine.makeBibliography() || [{}, []];
    return { citations: texts, bibliography };
}

const { citationClusters } = JSON.parse(fs.readFileSync(0, 'utf8'));
process.stdout.write(`${JSON.stringify(ask(process.argv[2], citationClusters))}\n`);
