'use strict';

// The dialogs asked on a terminal. An empty line, or the end of the input, cancels.

const readline = require('node:readline');

const { CHOOSE, EDIT, STYLE, UPDATE } = require('./dialogs');
const { describeEntry } = require('./library');

/** Dialogs for a person at the terminal; one at a time, the others wait. */
function terminalDialogs(app, input, output) {
    const lines = readline.createInterface({ input })[Symbol.asyncIterator]();
    const say = (text) => output.write(`${text}\n`);
    const ask = async (question) => {
        output.write(`${question} `);
        const { value, done } = await lines.next();
        return done ? '' : value.trim();
    };
    const questions = {
        [CHOOSE]: () => askWorks(app, say, ask),
        [EDIT]: ({ cluster }) => {
            say('The citation holds:');
            cluster.citationItems.forEach((item) => say(`  ${describeEntry(item)}`));
            return askWorks(app, say, ask);
        },
        [STYLE]: () => askStyle(app, say, ask),
        [UPDATE]: ({ text }) => askKeep(text, ask),
    };
    let turn = Promise.resolve();
    return {
        open(dialog, context) {
            const answer = turn.then(() => questions[dialog](context));
            turn = answer.catch(() => {});
            return answer;
        },
    };
}

async function askWorks({ library }, say, ask) {
    library.entries.forEach((entry, index) => say(`${index + 1}\t${describeEntry(entry)}`));
    const answer = await ask('Numbers of the works to cite, separated by blanks (empty: cancel):');
    const chosen = answer.split(/\s+/).filter((word) => word !== '')
        .map((word) => library.entries[Number(word) - 1]);
    if (chosen.length === 0 || chosen.includes(undefined)) {
        return null;
    }
    const items = [];
    for (const entry of chosen) {
        const locator = await ask(`Where in "${describeEntry(entry)}", such as "12" or `
            + '"chapter 3" (empty: nowhere in particular):');
        items.push({ uuid: entry.uuid, ...readLocator(locator) });
    }
    return items;
}

function readLocator(text) {
    const [, label = 'page', locator = ''] = /^([a-z]+ )?(.*)$/.exec(text);
    return locator === '' ? {} : { label: label.trim(), locator };
}

async function askStyle(app, say, ask) {
    const recent = app.recentStyles;
    recent.forEach((id, index) => say(`${index + 1}\t${app.styles.find(id).title}`));
    const answer = await ask('Number of a style, or the URL of another (empty: cancel):');
    const id = recent[Number(answer) - 1] || answer;
    if (id !== '' && !app.styles.find(id)) {
        say(`The citation style "${id}" is not installed.`);
        return null;
    }
    return id === '' ? null : id;
}

async function askKeep(text, ask) {
    const answer = await ask(
        `The citation now reads "${text}". Keep this text? (y, n; empty: cancel)`);
    return { y: true, n: false }[answer.toLowerCase()] ?? null;
}

module.exports = { terminalDialogs };
