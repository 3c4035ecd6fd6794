'use strict';

// Asks the CSL processor directly, without code of the application's stand-in: standard input holds
// {"style": CSL text, "locales": folder, "clusters": [...]}, standard output the processor's HTML
// of every citation and of every bibliography entry. One note for each citation in its order.

const fs = require('node:fs');
const path = require('node:path');

const desktop = path.join(__dirname, '..', 'desktop');
const CSL = require(require.resolve('citeproc', { paths: [desktop] }));
CSL.debug = () => {};

const { style, locales, clusters } = JSON.parse(fs.readFileSync(0, 'utf8'));

const works = {};
const citations = clusters.map(({ citationItems }, index) => ({
    citationID: `c${index}`,
    citationItems: citationItems.map(({ itemData, uris, ...cite }) => {
        works[uris[0]] = { ...itemData, id: uris[0] };
        return { ...cite, id: uris[0] };
    }),
    properties: { noteIndex: index + 1 },
}));

const readLocale = (language) => {
    const file = path.join(locales, `locales-${language}.xml`);
    return fs.existsSync(file) && fs.readFileSync(file, 'utf8');
};
const system = { retrieveLocale: readLocale, retrieveItem: (id) => works[id] };
const engine = new CSL.Engine(system, style, 'en-US');
const texts = engine.rebuildProcessorState(citations, 'html').map(([, , text]) => text);
const [, bibliography] = engine.makeBibliography();
process.stdout.write(JSON.stringify({ citations: texts, bibliography }));
