'use strict';

// Formatted texts are written in a small HTML subset: <i>, <b>, <sup>, <sub> and
// <span style="font-variant:small-caps;">, with &amp; &lt; &gt; for those three characters.
// In memory, a text is a list of runs { text, italic, bold, smallCaps, sup, sub }. Attributes that are
// not set are omitted.

const SUBSET = [
    ['italic', '<i>', '</i>'],
    ['bold', '<b>', '</b>'],
    ['smallCaps', '<span style="font-variant:small-caps;">', '</span>'],
    ['sup', '<sup>', '</sup>'],
    ['sub', '<sub>', '</sub>'],
];

const OPENING = new Map(SUBSET.map(([name, open]) => [open, { [name]: true }]));

// Tags of the CSL processor outside the subset. The "normal" tags switch an attribute off, for
// example where a style nests italics in italics.
const PROCESSOR_OPENING = new Map([
    ...OPENING,
    ['<em>', { italic: true }],
    ['<span style="font-style:normal;">', { italic: false }],
    ['<span style="font-weight:normal;">', { bold: false }],
    ['<span style="font-variant:normal;">', { smallCaps: false }],
    ['<span style="baseline">', { sup: false, sub: false }],
]);

const ENTITIES = { '&amp;': '&', '&lt;': '<', '&gt;': '>' };
const PROCESSOR_ENTITIES = { '&#38;': '&', '&#60;': '<', '&#62;': '>' };

const TOKENS = /<\/?[a-z][^<>]*>|&#?\w+;|[^<>&]+|[<>&]/g;

/** Returns the runs of a text in the subset, or null if the text is not in the subset. */
function parseMarkup(text) {
    return readRuns(text, OPENING, ENTITIES, true);
}

/** Returns the runs of the CSL processor's HTML. Unknown tags are removed. */
function parseProcessorHtml(html) {
    // A tab separates a label in the margin ("[1]") from its entry. A space separates other blocks.
    const flat = html
        .replace(/<div class="csl-right-inline">/g, '\t')
        .replace(/<\/?div[^>]*>/g, ' ')
        .replace(/\s*\t\s*/g, '\t')
        .replace(/[ \n]+/g, ' ')
        .trim();
    return readRuns(flat, PROCESSOR_OPENING, { ...ENTITIES, ...PROCESSOR_ENTITIES }, false);
}

function readRuns(text, opening, entities, strict) {
    const runs = [];
    const open = [{ tag: '', on: {} }];
    for (const token of text.match(TOKENS) || []) {
        const top = open[open.length - 1];
        const isTag = token.length > 1 && token.startsWith('<');
        if (isTag && token.startsWith('</')) {
            if (open.length > 1 && token === `</${top.tag}>`) {
                open.pop();
            } else if (strict) {
                return null;
            }
        } else if (isTag) {
            const change = opening.get(token);
            if (!change && strict) {
                return null;
            }
            open.push({ tag: /[a-z]+/.exec(token)[0], on: { ...top.on, ...change } });
        } else if (/^[<>&]/.test(token) && !(token in entities)) {
            if (strict) {
                return null;
            }
            addRun(runs, token, top.on);
        } else {
            addRun(runs, entities[token] || token, top.on);
        }
    }
    return strict && open.length > 1 ? null : runs;
}

function addRun(runs, text, on) {
    const names = attributes(on);
    const last = runs[runs.length - 1];
    if (last && attributes(last).join() === names.join()) {
        last.text += text;
    } else {
        runs.push({ text, ...Object.fromEntries(names.map((name) => [name, true])) });
    }
}

function attributes(run) {
    return SUBSET.map(([name]) => name).filter((name) => run[name]);
}

/** Writes runs in the subset. A tag stays open across adjacent runs that share it. */
function writeMarkup(runs) {
    const tags = Object.fromEntries(SUBSET.map(([name, open, close]) => [name, { open, close }]));
    let text = '';
    let open = [];
    for (const run of [...runs, { text: '' }]) {
        const wanted = attributes(run);
        let shared = 0;
        while (shared < open.length && open[shared] === wanted[shared]) {
            shared += 1;
        }
        text += open.slice(shared).reverse().map((name) => tags[name].close).join('');
        text += wanted.slice(shared).map((name) => tags[name].open).join('');
        text += escapeText(run.text);
        open = wanted;
    }
    return text;
}

function plainText(runs) {
    return runs.map((run) => run.text).join('');
}

function escapeText(text) {
    return text.replace(/&/g, '&amp;').replace(/</g, '&lt;').replace(/>/g, '&gt;');
}

/** Returns the runs of a text that a person may have typed, which may be plain text. */
function parseAnyText(text) {
    return parseMarkup(text) || [{ text }];
}

module.exports = {
    parseMarkup,
    parseProcessorHtml,
    parseAnyText,
    writeMarkup,
    plainText,
};
