'use strict';

const assert = require('node:assert');
const { once } = require('node:events');
const fs = require('node:fs');
const path = require('node:path');
const { PassThrough } = require('node:stream');
const { test } = require('node:test');

const { answerProblem } = require('../dialogs');
const { terminalDialogs } = require('../terminal');
const {
    clusterOf, fieldCode, library, startApi, styleUrl, temporaryFolder,
} = require('./support/api');

const CHOOSE = '/citation/choose/interactive';
const EDIT = '/citation/edit/interactive';
const STYLE = '/citationStyle/choose/interactive';
const UPDATE = '/citation/update/interactive';

const CANCELLED = { citationCluster: { citationItems: [] } };
const stale = { manualFormatting: 'Z', previouslyFormattedCitation: 'Y', own: 1 };
const kuhn = clusterOf([['kuhn-1962']], { tessaron: stale, unknown: 1 });
const editRequest = { fieldCode: fieldCode(kuhn) };
const updateRequest = { fieldCode: fieldCode(clusterOf([['kuhn-1962']])), formattedText: 'Kuhn!' };
const styleRequest = { currentStyleUrl: styleUrl('apa') };
const titles = ({ body }) => body.citationCluster.citationItems.map((item) => item.itemData.title);

test('returns a new cluster of the chosen works', async (t) => {
    const items = [{ uuid: 'truss-2003', label: 'page', locator: '12', prefix: 'see ' },
        { uuid: library.find('kuhn-1962').uuid }];
    const answer = { dialog: 'chooseCitation', items };
    const api = await startApi(t, { answers: [answer, answer] });
    const first = (await api.post(CHOOSE, {})).body.citationCluster;
    const second = (await api.post(CHOOSE, {})).body.citationCluster;
    assert.notStrictEqual(first.citationID, second.citationID);
    assert.deepStrictEqual(first.citationItems, clusterOf([
        ['truss-2003', { label: 'page', locator: '12', prefix: 'see ' }], ['kuhn-1962'],
    ]).citationItems);
    assert.deepStrictEqual(first.properties, { noteIndex: 0 });
});

test('replaces the works and removes the recorded texts', async (t) => {
    const answer = { dialog: 'editCitation', items: [{ uuid: 'truss-2003' }] };
    const api = await startApi(t, { answers: [answer] });
    const { status, body } = await api.post(EDIT, editRequest);
    assert.strictEqual(status, 200);
    assert.deepStrictEqual(body.citationCluster,
        clusterOf([['truss-2003']], { tessaron: { own: 1 }, unknown: 1 }));
});

test('selects the chosen style and lists it first', async (t) => {
    const chosen = styleUrl('nature-genetics');
    const api = await startApi(t, { answers: [{ dialog: 'chooseStyle', style: chosen }] });
    assert.deepStrictEqual((await api.post(STYLE, styleRequest)).body,
        { citationStyleUrl: chosen });
    assert.strictEqual((await api.get('/citationStyle/selected')).body.citationStyleId, chosen);
    const { citationStyles } = (await api.get('/citationStyles/default')).body;
    assert.strictEqual(citationStyles[0].url, chosen);
    assert.strictEqual(new Set(citationStyles.map(({ url }) => url)).size, citationStyles.length);
});

for (const [keep, expected] of [[true, 'Kuhn!'], [false, undefined]]) {
    test(`${keep ? 'keeps' : 'discards'} an edit by hand if the answer is ${keep}`, async (t) => {
        const api = await startApi(t, { answers: [{ dialog: 'updateCitation', keep }] });
        const { body } = await api.post(UPDATE, updateRequest);
        assert.strictEqual((body.citationCluster.tessaron || {}).manualFormatting, expected);
    });
}

const CANCELS = [
    ['choosing', 'chooseCitation', CHOOSE, {}, CANCELLED],
    ['editing', 'editCitation', EDIT, editRequest, CANCELLED],
    ['choosing a style', 'chooseStyle', STYLE, styleRequest, {}],
    ['updating', 'updateCitation', UPDATE, updateRequest,
        { citationCluster: clusterOf([['kuhn-1962']]) }],
];
for (const [name, dialog, url, request, expected] of CANCELS) {
    test(`cancels ${name}`, async (t) => {
        const api = await startApi(t, { answers: [{ dialog, cancel: true }] });
        const { status, body } = await api.post(url, request);
        assert.strictEqual(status, 200);
        assert.deepStrictEqual(body, expected);
    });
}

for (const [name, , url, request, expected] of CANCELS.slice(0, 3)) {
    test(`cancels ${name} without an answer`, async (t) => {
        const api = await startApi(t);
        assert.deepStrictEqual((await api.post(url, request)).body, expected);
    });
}

test('keeps an edit by hand if there is no answer', async (t) => {
    const api = await startApi(t);
    const { body } = await api.post(UPDATE, updateRequest);
    assert.strictEqual(body.citationCluster.tessaron.manualFormatting, 'Kuhn!');
});

test('treats an empty choice as cancelled', async (t) => {
    const answers = ['chooseCitation', 'editCitation'].map((dialog) => ({ dialog, items: [] }));
    const api = await startApi(t, { answers });
    assert.deepStrictEqual((await api.post(CHOOSE, {})).body, CANCELLED);
    assert.deepStrictEqual((await api.post(EDIT, editRequest)).body, CANCELLED);
});

test('opens no dialog for an unedited text', async (t) => {
    const api = await startApi(t, { answers: [{ dialog: 'chooseCitation', cancel: true }] });
    const cluster = clusterOf([['kuhn-1962']], { tessaron: { previouslyFormattedCitation: 'K' } });
    const request = { fieldCode: fieldCode(cluster), formattedText: 'K' };
    assert.strictEqual((await api.post(UPDATE, request)).status, 200);
});

test('uses the answers of the file after the given ones, also if added later', async (t) => {
    const answersFile = path.join(temporaryFolder(t), 'answers');
    const line = (uuid) => JSON.stringify({ dialog: 'chooseCitation', items: [{ uuid }] });
    fs.writeFileSync(answersFile, `${line('truss-2003')}\n\n`);
    const answers = [JSON.parse(line('kuhn-1962'))];
    const api = await startApi(t, { answers, answersFile });
    const choose = async () => titles(await api.post(CHOOSE, {}));
    assert.deepStrictEqual(await choose(), [library.find('kuhn-1962').itemData.title]);
    assert.deepStrictEqual(await choose(), [library.find('truss-2003').itemData.title]);
    assert.deepStrictEqual(await choose(), []);
    fs.appendFileSync(answersFile, line('soseki-1914'));
    assert.deepStrictEqual(await choose(), [library.find('soseki-1914').itemData.title]);
});

const WRONG_ANSWERS = [
    ['another dialog', '{"dialog":"chooseStyle","style":"x"}', /is for "chooseStyle"/],
    ['no JSON', 'truss', /malformed/],
    ['an unknown dialog', '{"dialog":"toString"}', /"dialog" must be one of/],
    ['no items', '{"dialog":"chooseCitation"}', /"items" must be a list of objects/],
    ['items that are texts', '{"dialog":"chooseCitation","items":["x"]}', /list of objects/],
    ['an unknown work', '{"dialog":"chooseCitation","items":[{"uuid":"x"}]}', /not in the library/],
    ['a wrong locator', '{"dialog":"chooseCitation","items":[{"uuid":"truss-2003","locator":[]}]}',
        /"locator"/],
];
for (const [name, line, reason] of WRONG_ANSWERS) {
    test(`reports a scripted answer with ${name} as a 500 with a sentence`, async (t) => {
        const answersFile = path.join(temporaryFolder(t), 'answers');
        fs.writeFileSync(answersFile, line);
        const api = await startApi(t, { answersFile });
        const { status, body } = await api.post(CHOOSE, {});
        assert.strictEqual(status, 500);
        assert.match(body.error, reason);
    });
}

test('reports a missing file of answers as a 500 with a sentence', async (t) => {
    const api = await startApi(t, { answersFile: path.join(temporaryFolder(t), 'none') });
    const { status, body } = await api.post(CHOOSE, {});
    assert.strictEqual(status, 500);
    assert.match(body.error, /no such file/);
});

test('reports a scripted style that is not installed as a 500 with a sentence', async (t) => {
    const api = await startApi(t, { answers: [{ dialog: 'chooseStyle', style: 'apa' }] });
    const { status, body } = await api.post(STYLE, styleRequest);
    assert.strictEqual(status, 500);
    assert.match(body.error, /"apa", which is not installed/);
});

for (const [dialog, wrong] of [['editCitation', { items: {} }], ['chooseStyle', { style: null }],
    ['updateCitation', { keep: 'yes' }], ['updateCitation', {}], ['chooseStyle', { cancel: 1 }]]) {
    test(`the answer ${JSON.stringify(wrong)} does not fit ${dialog}`, () => {
        assert.match(answerProblem({ dialog, ...wrong }), / must be /);
    });
}

/** Starts an API with dialogs on a terminal. `printed()` is all that the terminal has shown so far. */
async function openTerminal(t) {
    const api = await startApi(t);
    const input = new PassThrough();
    const output = new PassThrough();
    let shown = '';
    output.setEncoding('utf8').on('data', (text) => { shown += text; });
    api.app.dialogs = terminalDialogs(api.app, input, output);
    return {
        ...api,
        input,
        printed: () => shown,
        async until(text) {
            while (!shown.includes(text)) {
                await once(output, 'data');
            }
        },
    };
}

/** Types `lines` into the terminal once a dialog is open, and then ends its input. */
async function startTerminal(t, lines) {
    const terminal = await openTerminal(t);
    terminal.until('\n== ').then(
        () => terminal.input.end(lines.map((line) => `${line}\n`).join('')));
    return terminal;
}

const numberOf = (id) => library.entries.findIndex(({ itemData }) => itemData.id === id) + 1;

test('the user chooses works and places in them', async (t) => {
    const works = `${numberOf('kuhn-1962')} ${numberOf('truss-2003')} ${numberOf('darwin-1859')}`;
    const api = await startTerminal(t, [works, '12', 'chapter 3', '']);
    const { body } = await api.post(CHOOSE, {});
    assert.deepStrictEqual(body.citationCluster.citationItems, clusterOf([
        ['kuhn-1962', { label: 'page', locator: '12' }],
        ['truss-2003', { label: 'chapter', locator: '3' }],
        ['darwin-1859'],
    ]).citationItems);
    assert.match(api.printed(), /Kuhn 1962, The Structure of Scientific Revolutions/);
});

test('the user sees the works of a citation before editing it', async (t) => {
    const api = await startTerminal(t, [String(numberOf('truss-2003')), '']);
    assert.deepStrictEqual(titles(await api.post(EDIT, editRequest)),
        [library.find('truss-2003').itemData.title]);
    assert.match(api.printed(), /The citation holds:\n {2}Kuhn 1962/);
});

test('the user chooses a style by number or URL', async (t) => {
    const other = styleUrl('nature-genetics');
    for (const [typed, chosen] of [['2', styleUrl('ieee')], [other, other]]) {
        const api = await startTerminal(t, [typed]);
        assert.strictEqual((await api.post(STYLE, styleRequest)).body.citationStyleUrl, chosen);
    }
});

for (const [typed, manual] of [['y', 'Kuhn!'], ['Y', 'Kuhn!'], ['yes', 'Kuhn!'], ['n', undefined],
    ['', undefined]]) {
    test(`accepts "${typed}" as the answer to whether an edit is kept`, async (t) => {
        const api = await startTerminal(t, [typed]);
        const { citationCluster } = (await api.post(UPDATE, updateRequest)).body;
        assert.strictEqual((citationCluster.tessaron || {}).manualFormatting, manual);
    });
}

const TYPED_CANCELS = [
    ['an empty line', CHOOSE, {}, [''], CANCELLED],
    ['the end of the input', CHOOSE, {}, [], CANCELLED],
    ['an empty line in the editor', EDIT, editRequest, [''], CANCELLED],
    ['an empty line for the style', STYLE, styleRequest, [''], {}],
];
for (const [name, url, request, lines, expected] of TYPED_CANCELS) {
    test(`cancels at ${name} on the terminal`, async (t) => {
        const api = await startTerminal(t, lines);
        const { status, body } = await api.post(url, request);
        assert.strictEqual(status, 200);
        assert.deepStrictEqual(body, expected);
    });
}

const INVALID_LINES = [
    ['a number too large', CHOOSE, {}, '1 999', 'Please type numbers from 1 to'],
    ['a number too small', CHOOSE, {}, '0', 'Please type numbers from 1 to'],
    ['a word for a number', CHOOSE, {}, 'Kuhn', 'Please type numbers from 1 to'],
    ['an unknown style', STYLE, styleRequest, 'no-such-style', '"no-such-style" is neither'],
    ['a word for y or n', UPDATE, updateRequest, 'maybe', 'Please type y or n.'],
];
for (const [name, url, request, wrong, complaint] of INVALID_LINES) {
    test(`repeats the question after ${name}`, async (t) => {
        const api = await startTerminal(t, [wrong]);
        assert.strictEqual((await api.post(url, request)).status, 200);
        assert.strictEqual(api.printed().split(complaint).length, 2, api.printed());
        const questions = api.printed().match(/empty: cancel\)/g);
        assert.strictEqual(questions.length, 2, api.printed());
    });
}

for (const [typed, expected] of [['12', ['page', '12']], ['chapter 3', ['chapter', '3']],
    ['Chapter 3', ['chapter', '3']], ['xiv-xvi', ['page', 'xiv-xvi']], ['12, 14', ['page', '12, 14']],
    ['12-14', ['page', '12-14']], ['somewhere', null], ['chap 3', null], ['chapter', null]]) {
    test(`the place "${typed}" is ${expected ? 'understood' : 'refused'}`, async (t) => {
        const api = await startTerminal(t, ['1', typed, '']);
        const [item] = (await api.post(CHOOSE, {})).body.citationCluster.citationItems;
        assert.deepStrictEqual([item.label, item.locator], expected || [undefined, undefined]);
        assert.strictEqual(api.printed().includes('is not a place'), !expected);
    });
}

test('lines typed before a dialog opens do not answer it', async (t) => {
    const api = await openTerminal(t);
    api.input.write('1\n\n');
    await api.get('/userUuid');
    const chosen = api.post(CHOOSE, {});
    await api.until('Numbers of the works');
    api.input.write('\n');
    assert.deepStrictEqual((await chosen).body, CANCELLED);
});

test('each dialog on the terminal has its heading', async (t) => {
    for (const [url, request, heading] of [[CHOOSE, {}, 'Choose a citation'],
        [EDIT, editRequest, 'Edit a citation'], [STYLE, styleRequest, 'Choose a citation style'],
        [UPDATE, updateRequest, 'A citation was edited by hand']]) {
        const api = await startTerminal(t, ['']);
        await api.post(url, request);
        assert.ok(api.printed().startsWith(`\n== ${heading}\n`), api.printed());
    }
});

test('titles and texts on the terminal show no markup', async (t) => {
    const api = await startTerminal(t, ['']);
    await api.post(CHOOSE, {});
    assert.match(api.printed(), /Kroto/);
    assert.doesNotMatch(api.printed(), /<[a-z/]/);
    const other = await startTerminal(t, ['']);
    await other.post(UPDATE, { ...updateRequest, formattedText: '<i>Kuhn</i> &amp; Co.' });
    assert.match(other.printed(), /now reads "Kuhn & Co\."/);
});

test('a text that is not kept leaves no record of any text', async (t) => {
    const api = await startApi(t, { answers: [{ dialog: 'updateCitation', keep: false }] });
    const { body } = await api.post(UPDATE, { fieldCode: fieldCode(kuhn), formattedText: 'Kuhn!' });
    assert.deepStrictEqual(body.citationCluster.tessaron, { own: 1 });
});

test('dialogs on the terminal wait for each other', async (t) => {
    const api = await openTerminal(t);
    const chosen = api.post(CHOOSE, {});
    await api.until('Numbers of the works');
    const style = api.post(STYLE, styleRequest);
    await api.get('/userUuid');
    assert.doesNotMatch(api.printed(), /Number of a style/);
    api.input.write('\n');
    assert.deepStrictEqual((await chosen).body, CANCELLED);
    await api.until('Number of a style');
    api.input.write('2\n');
    assert.deepStrictEqual((await style).body, { citationStyleUrl: styleUrl('ieee') });
});
