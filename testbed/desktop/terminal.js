'use strict';

// The dialogs on a terminal. An empty line, or the end of the input, cancels. After an invalid line the
// question is repeated.

const readline = require('node:readline');

const { CHOOSE, EDIT, STYLE, UPDATE } = require('./dialogs');
const { describeEntry } = require('./library');
const { parseAnyText, plainText } = require('./markup');

const HEADINGS = {
    [CHOOSE]: 'Choose a citation',
    [EDIT]: 'Edit a citation',
    [STYLE]: 'Choose a citation style',
    [UPDATE]: 'A citation was edited by hand',
};
const DIALOGS = { [CHOOSE]: askWorks, [EDIT]: askEdit, [STYLE]: askStyle, [UPDATE]: askKeep };

const LABELS = ['page', 'chapter', 'section', 'paragraph', 'part', 'verse', 'volume', 'issue',
    'figure', 'table', 'line', 'note', 'book', 'column', 'folio', 'opus'];
const LOCATOR = new RegExp(`^(?:(${LABELS.join('|')}) +)?(\\S*\\d\\S*(?: *[,&-] *\\S*\\d\\S*)*`
    + '|[ivxlcdm]+(?:-[ivxlcdm]+)?)$', 'i');
const TITLE_MARKUP = /<\/?(?:i|b|sub|sup|span)(?: [^<>]*)?>/g;

/** Dialogs that the user answers on the terminal. Only one is open at a time; the others wait. */
function terminalDialogs(app, input, output) {
    const nextLine = lineReader(input);
    const terminal = {
        say: (text) => output.write(`${text}\n`),
        ask: (question) => {
            output.write(`${question} `);
            return nextLine();
        },
    };
    let turn = Promise.resolve();
    return {
        open(dialog, context) {
            const answer = turn.then(() => {
                nextLine.discard();
                terminal.say(`\n== ${HEADINGS[dialog]}`);
                return DIALOGS[dialog](app, terminal, context);
            });
            turn = answer.catch(() => {});
            return answer;
        },
    };
}

/**
 * Returns a function that resolves to the next line, or to '' at the end of the input. Its `discard`
 * drops the lines typed so far, so that they do not answer a dialog that opens later.
 */
function lineReader(input) {
    let lines = [];
    let waiting = null;
    let ended = false;
    const serve = () => {
        if (waiting && (lines.length > 0 || ended)) {
            const resolve = waiting;
            waiting = null;
            resolve((lines.shift() ?? '').trim());
        }
    };
    readline.createInterface({ input })
        .on('line', (line) => { lines.push(line); serve(); })
        .on('close', () => { ended = true; serve(); });
    const next = () => new Promise((resolve) => { waiting = resolve; serve(); });
    next.discard = () => { lines = []; };
    return next;
}

/** Asks until `read` returns a value, and returns the value, or null if the answer is empty. */
async function askUntil({ say, ask }, question, read, complaint) {
    for (;;) {
        const answer = await ask(question);
        const value = answer === '' ? null : read(answer);
        if (value !== undefined) {
            return value;
        }
        say(complaint(answer));
    }
}

async function askEdit(app, terminal, { cluster }) {
    terminal.say('The citation holds:');
    cluster.citationItems.forEach((item) => terminal.say(`  ${described(item)}`));
    return askWorks(app, terminal);
}

async function askWorks({ library }, terminal) {
    library.entries.forEach((entry, index) => terminal.say(`${index + 1}\t${described(entry)}`));
    const chosen = await askUntil(terminal,
        'Numbers of the works to cite, separated by spaces (empty: cancel):',
        (answer) => {
            const entries = answer.split(/\s+/).map((word) => library.entries[Number(word) - 1]);
            return entries.includes(undefined) ? undefined : entries;
        },
        () => `Please type numbers from 1 to ${library.entries.length}.`);
    const items = [];
    for (const entry of chosen ?? []) {
        items.push({ uuid: entry.uuid, ...await askLocator(terminal, entry) });
    }
    return chosen && items;
}

function askLocator(terminal, entry) {
    return askUntil(terminal,
        `Place in "${described(entry)}", such as "12" or "chapter 3" (empty: the whole work):`,
        (answer) => {
            const [, label = 'page', locator] = LOCATOR.exec(answer) || [];
            return locator && { label: label.toLowerCase(), locator };
        },
        (answer) => `"${answer}" is not a place. Type a number, or one of these words and a number: `
            + `${LABELS.join(', ')}.`);
}

function askStyle(app, terminal) {
    const recent = app.recentStyles;
    recent.forEach((id, index) => terminal.say(`${index + 1}\t${app.styles.find(id).title}`));
    return askUntil(terminal, 'Number of a style, or the URL of another (empty: cancel):',
        (answer) => {
            const id = recent[Number(answer) - 1] || answer;
            return app.styles.find(id) ? id : undefined;
        },
        (answer) => `"${answer}" is neither a number from 1 to ${recent.length} nor the URL of an `
            + 'installed style.');
}

function askKeep(app, terminal, { text }) {
    return askUntil(terminal,
        `The citation now reads "${plainText(parseAnyText(text))}". Keep this text? `
            + '(y: keep, n: use the style\'s text, empty: cancel)',
        (answer) => ({ y: true, yes: true, n: false, no: false })[answer.toLowerCase()],
        () => 'Please type y or n.');
}

function described(entry) {
    return describeEntry(entry).replace(TITLE_MARKUP, '');
}

module.exports = { terminalDialogs };
