'use strict';

// What check-application asks a running application, in this order. Nothing here changes a document
// or the library.

const { operationOf } = require('./contract');

const FORMAT = '/formattedCitationsAndBibliography/interactive';
const UNREADABLE = { fieldCode: 'ADDIN CSL_CITATION {', formattedText: '(unreadable)' };

/**
 * The questions: { path, asks, body, fails, expect, dialog }. `asks` describes the question. `body`
 * returns keys that override those of the contract's example. If `fails` is set, the application must
 * refuse. `expect(reply)` returns a deviation { pointer, problem } that the contract cannot express.
 * `dialog` tells the user what to do in the dialog.
 */
const QUESTIONS = [
    { path: '/tessaronDesktopInfo', asks: 'whether it runs' },
    { path: '/wordProcessor/set', asks: 'to record the calling word processor' },
    { path: '/allowSetFocus', asks: 'to let it take the keyboard focus',
        body: () => ({ processId: process.pid }) },
    { path: '/userUuid', asks: 'the user\'s identifier' },
    { path: '/userAccount', asks: 'the user\'s account' },
    { path: '/citationStyles/default', asks: 'the recent styles' },
    { path: '/citationStyle/selected', asks: 'the selected style' },
    { path: '/testMethods/citationCluster/getFromUuid', asks: 'a citation of an unknown id', fails: true,
        body: () => ({ documentUuid: '00000000-0000-0000-0000-000000000000' }) },
    { path: '/citations/merge', asks: 'to merge two citations' },
    { path: '/citation/undoManualFormat', asks: 'to undo an edit by hand' },
    { path: '/citation/undoManualFormat', asks: 'to undo an edit in an unreadable citation', fails: true,
        body: () => ({ fieldCode: UNREADABLE.fieldCode }) },
    { path: FORMAT, asks: 'to format a document of one citation', body: withStyle },
    { path: FORMAT, asks: 'to format a document whose second citation is unreadable', fails: true,
        body: (example, style) => ({ ...withStyle(example, style),
            citationClusters: [...example.citationClusters, UNREADABLE] }),
        expect: ({ citationIndex }) => citationIndex !== 1
            && { pointer: '/citationIndex', problem: 'must be 1, the index of the unreadable citation' } },
    { path: '/citationStyle/choose/interactive', asks: 'to let the user choose a style',
        dialog: 'Choose any style and confirm.',
        expect: ({ citationStyleUrl }) => typeof citationStyleUrl !== 'string'
            && { pointer: '/citationStyleUrl', problem: 'must be the chosen style' } },
    { path: '/citation/choose/interactive', asks: 'to let the user choose a citation',
        dialog: 'Choose one work and confirm.', expect: hasWorks },
    { path: '/citation/edit/interactive', asks: 'to let the user edit a citation',
        dialog: 'Add or replace a work and confirm.', expect: hasWorks },
    { path: '/citation/edit/interactive', asks: 'to let the user edit a citation and cancel',
        dialog: 'Cancel.' },
    { path: '/citation/update/interactive', asks: 'to record a text edited by hand',
        dialog: 'Keep the edited text, if you are asked.' },
];

function withStyle(example, style) {
    return style ? { citationStyleUrl: style } : {};
}

function hasWorks({ citationCluster }) {
    const items = (citationCluster || {}).citationItems;
    return !(Array.isArray(items) && items.length > 0)
        && { pointer: '/citationCluster/citationItems', problem: 'must hold the chosen works' };
}

/** { method, text }: the request of a question. `style` is the style selected in the application. */
function requestOf(contract, { path, body = () => ({}) }, style) {
    const { method, operation } = operationOf(contract, path);
    if (method === 'GET') {
        return { method, text: '' };
    }
    const { example } = operation.requestBody.content['application/json'];
    return { method, text: JSON.stringify({ ...example, ...body(example, style) }) };
}

module.exports = { QUESTIONS, requestOf };
