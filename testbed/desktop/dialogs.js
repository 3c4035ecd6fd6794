'use strict';

// The dialogs of the application. They are answered by the user on the terminal or by a script. A dialog
// returns the answer, or null if it was cancelled.

const fs = require('node:fs');

const { ApiError } = require('./errors');
const { citationItemProblem } = require('./items');
const { citationItem } = require('./library');
const { isObject } = require('./json');

const CHOOSE = 'chooseCitation';
const EDIT = 'editCitation';
const STYLE = 'chooseStyle';
const UPDATE = 'updateCitation';

const isItems = (value) => Array.isArray(value) && value.every(isObject);
const isText = (value) => typeof value === 'string';
const isFlag = (value) => typeof value === 'boolean';

// By dialog: the key of a scripted answer that holds the choice, and the values it may have.
const ANSWERS = {
    [CHOOSE]: { key: 'items', fits: isItems, expected: 'a list of objects' },
    [EDIT]: { key: 'items', fits: isItems, expected: 'a list of objects' },
    [STYLE]: { key: 'style', fits: isText, expected: 'a text' },
    [UPDATE]: { key: 'keep', fits: isFlag, expected: 'true or false' },
};

/** Returns a sentence about an invalid scripted answer, or '' if the answer is valid. */
function answerProblem(answer) {
    if (!isObject(answer) || !Object.hasOwn(ANSWERS, answer.dialog)) {
        return `"dialog" must be one of ${Object.keys(ANSWERS).join(', ')}.`;
    }
    const { key, fits, expected } = ANSWERS[answer.dialog];
    return answer.cancel === true || fits(answer[key]) ? '' : `"${key}" must be ${expected}.`;
}

/**
 * Dialogs answered by a script: `answers`, then the lines of `file`. The file is read again for each
 * dialog, so answers can be added while the application runs. Without an answer a dialog is
 * cancelled, except that a text edited by hand is kept.
 */
function scriptedDialogs(answers, file) {
    const given = [...answers];
    let linesUsed = 0;
    const next = () => {
        if (given.length > 0) {
            return { answer: given[0], take: () => given.shift() };
        }
        const line = file && linesOf(file)[linesUsed];
        return line && { answer: readAnswer(line), take: () => { linesUsed += 1; } };
    };
    return {
        async open(dialog) {
            const found = next();
            if (!found) {
                return dialog === UPDATE ? true : null;
            }
            const { answer, take } = found;
            if (answer.dialog !== dialog) {
                throw new ApiError(500, `The dialog "${dialog}" was opened, but the next scripted `
                    + `answer is for "${answer.dialog}".`);
            }
            take();
            return answer.cancel === true ? null : answer[ANSWERS[dialog].key];
        },
    };
}

function linesOf(file) {
    return fs.readFileSync(file, 'utf8').split('\n').filter((line) => line.trim() !== '');
}

function readAnswer(line) {
    let answer;
    try {
        answer = JSON.parse(line);
    } catch (error) {
        throw new ApiError(500, `A scripted answer is malformed: ${error.message}`);
    }
    const problem = answerProblem(answer);
    if (problem) {
        throw new ApiError(500, `A scripted answer cannot be used: ${problem}`);
    }
    return answer;
}

/** Returns the citation items for a dialog's answer: library entries with their details. */
function chosenItems(library, items) {
    return items.map(({ uuid, ...details }) => {
        const entry = library.find(uuid);
        if (!entry) {
            throw new ApiError(500, `The dialog chose "${uuid}", which is not in the library.`);
        }
        const item = citationItem(entry, details);
        const problem = citationItemProblem(item);
        if (problem) {
            throw new ApiError(500, `The dialog's answer cannot be used. ${problem}`);
        }
        return item;
    });
}

module.exports = { CHOOSE, EDIT, STYLE, UPDATE, answerProblem, scriptedDialogs, chosenItems };
