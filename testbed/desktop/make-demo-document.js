'use strict';

// Writes demo-document.json: a short text with citations of library entries and outdated formatted
// texts. Run it again after changing the library.

const fs = require('node:fs');
const path = require('node:path');

const { SCHEMA } = require('./clusters');
const { citationItem, openLibrary } = require('./library');

const page = (locator) => ({ label: 'page', locator });

// Each entry: the sentence, the citation's text in the document, the works with their details.
const CITATIONS = [
    ['DNA is a double helix', '[1]', [['watson-crick-1953']]],
    ['Information can be measured in bits', '(old)', [['shannon-1948', page('379')]]],
    ['Machines can be asked questions, and any computation can be done by one machine', '[2, 3]',
        [['turing-1937'], ['turing-1950', page('433-434')]]],
    ['Light comes in quanta', '[?]', [['einstein-1905-licht', page('132')]]],
    ['In the same year, time became relative', '[?]',
        [['einstein-1905-koerper', { ...page('891'), prefix: 'see ' }]]],
    ['A program is written to be read', '(Knuth)', [['knuth-1984-literate']]],
    ['Typesetting it well is a program too', '(Knuth)',
        [['knuth-1984-texbook', { label: 'chapter', locator: '11' }]]],
    ['Sixty atoms of carbon make a ball', '[7]', [['kroto-1985']]],
    ['A worm of a thousand cells will do for genetics', '[8]', [['brenner-1974', page('71')]]],
    ['Commas change what a panda does', '(old)', [['truss-2003']]],
    ['Zorba danced on the shore', '(old)', [['kazantzakis-1946']]],
    ['A child thinks before it speaks to itself', '(old)', [['vygotsky-1934', page('280')]]],
    ['Nobody in the iron house wants to be woken', '[12]', [['luxun-1923']]],
    ['The heart of things is hard to tell', '[13]', [['soseki-1914']]],
    ['Three generations live in one Cairo street', '[14]', [['mahfouz-1956']]],
    ['As was said at the beginning', '[1]',
        [['watson-crick-1953', { ...page('738'), suffix: ', and often since' }]]],
    ['Attention was all that was needed', '(old)', [['vaswani-2017', page('5999')]]],
    ['A harmful statement has been called harmful, and so has calling it so', '[16]',
        [['dijkstra-1968'], ['rubin-1987']]],
];

function demoDocument(library) {
    return CITATIONS.map(([sentence, formattedText, works], index) => ({
        sentence,
        formattedText,
        citationCluster: {
            citationID: `demo-${index + 1}`,
            citationItems: works.map(([id, details]) => citationItem(library.find(id), details)),
            properties: { noteIndex: 0 },
            schema: SCHEMA,
        },
    }));
}

if (require.main === module) {
    const file = path.join(__dirname, 'demo-document.json');
    const document = { citations: demoDocument(openLibrary()) };
    fs.writeFileSync(file, `${JSON.stringify(document, undefined, 2)}\n`);
}

module.exports = { demoDocument };
