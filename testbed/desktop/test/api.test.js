'use strict';

const assert = require('node:assert');
const { test } = require('node:test');

const { ROUTES } = require('../routes');
const {
    BATCH, batchRequest, clusterOf, fieldCode, library, startApi, styleUrl,
} = require('./support/api');

const MERGE = '/citations/merge';
const UPDATE = '/citation/update/interactive';
const UNDO = '/citation/undoManualFormat';
const FROM_UUID = '/testMethods/citationCluster/getFromUuid';
const kuhn = clusterOf([['kuhn-1962']]);
const truss = clusterOf([['truss-2003']]);

test('has fifteen paths', () => {
    assert.strictEqual(Object.keys(ROUTES).length, 15);
});

test('returns its process id', async (t) => {
    const api = await startApi(t);
    const { status, body, headers } = await api.get('/tessaronDesktopInfo');
    assert.strictEqual(status, 200);
    assert.strictEqual(headers['content-type'], 'application/json');
    assert.deepStrictEqual(body,
        { processId: process.pid, caller: null, focusAllowedTo: null });
});

test('remembers the last word processor', async (t) => {
    const api = await startApi(t);
    for (const version of ['15', '16.1']) {
        const request = { wordProcessor: 'Word', version };
        assert.deepStrictEqual((await api.post('/wordProcessor/set', request)).body, {});
    }
    const { body } = await api.get('/tessaronDesktopInfo');
    assert.deepStrictEqual(body.caller, { wordProcessor: 'Word', version: '16.1' });
});

for (const processId of [0, 4711]) {
    test(`accepts the process id ${processId} as the one that may take the focus`, async (t) => {
        const api = await startApi(t);
        assert.strictEqual((await api.post('/allowSetFocus', { processId })).status, 200);
        const { body } = await api.get('/tessaronDesktopInfo');
        assert.strictEqual(body.focusAllowedTo, processId);
    });
}

test('returns the account, uuid and style that it was started with', async (t) => {
    const settings = { account: 'α@example.org', uuid: 'u-1', selectedStyle: styleUrl('nature') };
    const api = await startApi(t, { settings });
    assert.deepStrictEqual((await api.get('/userAccount')).body, { account: 'α@example.org' });
    assert.deepStrictEqual((await api.get('/userUuid')).body, { uuid: 'u-1' });
    assert.deepStrictEqual((await api.get('/citationStyle/selected')).body,
        { citationStyleId: styleUrl('nature') });
});

test('returns recent styles with their titles', async (t) => {
    const settings = { recentStyles: [styleUrl('ieee'), styleUrl('nature-genetics')] };
    const api = await startApi(t, { settings });
    assert.deepStrictEqual((await api.get('/citationStyles/default')).body, {
        citationStyles: [
            { url: styleUrl('ieee'), title: 'IEEE' },
            { url: styleUrl('nature-genetics'), title: 'Nature Genetics' },
        ],
    });
});

test('rejects settings with a style that is not installed', async (t) => {
    const settings = { recentStyles: [styleUrl('no-such-style')] };
    await assert.rejects(startApi(t, { settings }), /no-such-style" is not installed/);
});

test('finds a work by its uuid', async (t) => {
    const api = await startApi(t);
    const { uuid, itemData } = library.find('soseki-1914');
    const { status, body } = await api.post(FROM_UUID, { documentUuid: uuid });
    assert.strictEqual(status, 200);
    const [item, ...others] = body.citationCluster.citationItems;
    assert.deepStrictEqual(others, []);
    assert.deepStrictEqual(item.itemData, itemData);
    assert.deepStrictEqual(item.uris, [`urn:uuid:${uuid}`]);
});

for (const documentUuid of ['', 'kuhn-1962', '00000000-0000-0000-0000-000000000000']) {
    test(`finds no work with the uuid "${documentUuid}"`, async (t) => {
        const api = await startApi(t);
        const { status, body } = await api.post(FROM_UUID, { documentUuid });
        assert.strictEqual(status, 404);
        assert.match(body.error, /^The library has no entry/);
    });
}

test('merges citations in order', async (t) => {
    const api = await startApi(t);
    const citationClusters = [truss, kuhn].map((cluster) => ({ fieldCode: fieldCode(cluster) }));
    const { status, body } = await api.post(MERGE, { citationClusters });
    assert.strictEqual(status, 200);
    assert.deepStrictEqual(body.citationCluster.citationItems,
        [...truss.citationItems, ...kuhn.citationItems]);
});

const shown = { previouslyFormattedCitation: '(Kuhn, 1962)' };

test('records, keeps and undoes an edit by hand', async (t) => {
    const api = await startApi(t);
    const code = fieldCode({ ...kuhn, tessaron: shown });
    const recorded = await api.post(UPDATE, { fieldCode: code, formattedText: 'as Kuhn & co say' });
    const { tessaron } = recorded.body.citationCluster;
    assert.deepStrictEqual(tessaron, { ...shown, manualFormatting: 'as Kuhn &amp; co say' });

    const formatted = await api.format('apa', [recorded.body.citationCluster]);
    const [{ citationCluster, formattedText }] = formatted.body.citationClusters;
    assert.strictEqual(formattedText, 'as Kuhn &amp; co say');
    assert.strictEqual(citationCluster.tessaron.plainTextFormattedCitation, 'as Kuhn & co say');

    const undone = await api.post(UNDO, { fieldCode: fieldCode(citationCluster) });
    assert.ok(!('manualFormatting' in undone.body.citationCluster.tessaron));
    const again = await api.format('apa', [undone.body.citationCluster]);
    assert.strictEqual(again.body.citationClusters[0].formattedText, '(Kuhn, 1962)');
});

test('leaves the cluster of an unedited text unchanged', async (t) => {
    const api = await startApi(t);
    const cluster = { ...kuhn, tessaron: shown };
    const request = { fieldCode: fieldCode(cluster), formattedText: '(Kuhn, 1962)' };
    assert.deepStrictEqual((await api.post(UPDATE, request)).body, { citationCluster: cluster });
});

test('returns the same cluster if there is no edit to undo', async (t) => {
    const api = await startApi(t);
    const { status, body } = await api.post(UNDO, { fieldCode: fieldCode(kuhn) });
    assert.strictEqual(status, 200);
    assert.deepStrictEqual(body.citationCluster, kuhn);
});

const code = fieldCode(kuhn);
const entry = { fieldCode: code, formattedText: '' };
const batch = batchRequest('apa', []);
const WRONG_BODIES = [
    ['/allowSetFocus', {}, 'The request has no "processId".'],
    ['/allowSetFocus', { processId: '1' }, '"processId" that is not a whole number.'],
    ['/allowSetFocus', { processId: 1.5 }, '"processId" that is not a whole number.'],
    ['/allowSetFocus', { processId: null }, '"processId" that is not a whole number.'],
    ['/wordProcessor/set', { version: '1' }, 'no "wordProcessor"'],
    ['/wordProcessor/set', { wordProcessor: 'Word' }, 'no "version"'],
    ['/wordProcessor/set', { wordProcessor: 'Word', version: 16 }, '"version" that is not a text'],
    ['/citationStyle/choose/interactive', {}, 'no "currentStyleUrl"'],
    ['/citationStyle/choose/interactive', { currentStyleUrl: null }, 'not a text'],
    ['/citation/edit/interactive', {}, 'no "fieldCode"'],
    ['/citation/edit/interactive', { fieldCode: {} }, '"fieldCode" that is not a text'],
    [FROM_UUID, {}, 'no "documentUuid"'],
    [FROM_UUID, { documentUuid: 5 }, '"documentUuid" that is not a text'],
    [MERGE, {}, 'no "citationClusters"'],
    [MERGE, { citationClusters: {} }, '"citationClusters" that is not a list'],
    [MERGE, { citationClusters: [] }, 'There are no citations to merge.'],
    [MERGE, { citationClusters: [code] }, 'Citation 1 is not a JSON object.'],
    [MERGE, { citationClusters: [{}] }, 'Citation 1 has no "fieldCode".'],
    [MERGE, { citationClusters: [entry, { fieldCode: 1 }] }, 'Citation 2 has a "fieldCode"'],
    [UPDATE, { fieldCode: code }, 'no "formattedText"'],
    [UPDATE, { formattedText: '' }, 'no "fieldCode"'],
    [UPDATE, { fieldCode: code, formattedText: 1 }, '"formattedText" that is not a text'],
    [UNDO, {}, 'no "fieldCode"'],
    [UNDO, { fieldCode: null }, '"fieldCode" that is not a text'],
    [BATCH, {}, 'no "citationStyleUrl"'],
    [BATCH, { ...batch, citationStyleUrl: undefined }, 'no "citationStyleUrl"'],
    [BATCH, { ...batch, citationStyleUrl: [] }, '"citationStyleUrl" that is not a text'],
    [BATCH, { ...batch, tempDirectory: undefined }, 'no "tempDirectory"'],
    [BATCH, { ...batch, tempDirectory: 1 }, '"tempDirectory" that is not a text'],
    [BATCH, { ...batch, citationClusters: undefined }, 'no "citationClusters"'],
    [BATCH, { ...batch, citationClusters: 'x' }, '"citationClusters" that is not a list'],
    [BATCH, { ...batch, citationClusters: [null] }, 'Citation 1 is not a JSON object.'],
    [BATCH, { ...batch, citationClusters: [[]] }, 'Citation 1 is not a JSON object.'],
    [BATCH, { ...batch, citationClusters: [entry, { fieldCode: code }] },
        'Citation 2 has no "formattedText".'],
    [BATCH, { ...batch, citationClusters: [{ formattedText: '' }] },
        'Citation 1 has no "fieldCode".'],
];
for (const [url, request, sentence] of WRONG_BODIES) {
    test(`${url} rejects ${JSON.stringify(request).slice(0, 60)}`, async (t) => {
        const api = await startApi(t);
        const { status, body } = await api.post(url, request);
        assert.strictEqual(status, 400);
        assert.ok(body.error.includes(sentence), body.error);
        const named = /^Citation (\d+)/.exec(body.error);
        assert.strictEqual(body.citationIndex, named ? Number(named[1]) - 1 : undefined);
    });
}

const UNREADABLE = [
    ['/citation/edit/interactive', { fieldCode: 'PAGE' }, undefined],
    [UPDATE, { fieldCode: 'ADDIN CSL_CITATION null', formattedText: '' }, undefined],
    [UNDO, { fieldCode: '' }, undefined],
    [MERGE, { citationClusters: [entry, { fieldCode: '' }] }, 1],
    [BATCH, { ...batch, citationClusters: [{ ...entry, fieldCode: '{}' }, entry] }, 0],
];
for (const [url, request, citationIndex] of UNREADABLE) {
    test(`${url} rejects an unreadable field code`, async (t) => {
        const api = await startApi(t);
        const { status, body } = await api.post(url, request);
        assert.strictEqual(status, 422);
        assert.match(body.error, /The field code of a citation cannot be read: .*\.$/);
        assert.strictEqual(body.citationIndex, citationIndex);
    });
}

const POSTS = Object.keys(ROUTES).filter((path) => ROUTES[path].method === 'POST');
const GETS = Object.keys(ROUTES).filter((path) => ROUTES[path].method === 'GET');
const json = { 'Content-Type': 'application/json' };

const MALFORMED = [
    ['empty body', ''],
    ['word', 'hello'],
    ['JSON cut off', '{"fieldCode":"x"'],
    ['invalid UTF-8', Buffer.from([0x7b, 0xff, 0x7d])],
    ['byte order mark', '\ufeff{}'],
    ['a list', '[]'],
    ['null', 'null'],
    ['a number', '5'],
    ['a JSON string', '"{}"'],
];
for (const path of POSTS) {
    test(`${path} rejects a body that is not a JSON object`, async (t) => {
        const api = await startApi(t);
        for (const [name, text] of MALFORMED) {
            const { status, body } = await api.send({ method: 'POST', url: path, text });
            assert.strictEqual(status, 400, name);
            assert.match(body.error, /^The body of the request is (malformed|not )/, name);
        }
    });
    test(`${path} rejects other content types`, async (t) => {
        const api = await startApi(t);
        for (const headers of [{}, { 'Content-Type': 'text/plain' },
            { 'Content-Type': 'application/x-www-form-urlencoded' },
            { 'Content-Type': 'application/jsonp' }]) {
            const request = { method: 'POST', url: path, text: '{}', headers };
            const { status, body } = await api.send(request);
            assert.strictEqual(status, 415);
            assert.match(body.error, /content type/);
        }
    });
}

for (const [allowed, path] of [...GETS.map((path) => ['GET', path]),
    ...POSTS.map((path) => ['POST', path])]) {
    test(`${path} accepts ${allowed} only`, async (t) => {
        const api = await startApi(t);
        for (const method of ['GET', 'POST', 'PUT', 'DELETE', 'PATCH', 'OPTIONS']) {
            if (method !== allowed) {
                const request = { method, url: path, headers: json };
                const { status, body, headers } = await api.send(request);
                assert.strictEqual(status, 405);
                assert.strictEqual(headers.allow, allowed);
                assert.match(body.error, new RegExp(`not ${method}`));
            }
        }
    });
}

for (const url of ['/', '/tessarondesktopinfo', '/tessaronDesktopInfo/', '//tessaronDesktopInfo',
    '/citation', '/constructor', '/__proto__', '/%2e%2e/']) {
    test(`rejects the path ${url}`, async (t) => {
        const api = await startApi(t);
        const { status, body } = await api.get(url);
        assert.strictEqual(status, 404);
        assert.strictEqual(body.error, `The path ${url} is not known here.`);
    });
}

test('accepts a content type with a character set', async (t) => {
    const api = await startApi(t);
    const headers = { 'Content-Type': 'Application/JSON; charset=utf-8' };
    const text = '{"processId":1}';
    const { status } = await api.send({ method: 'POST', url: '/allowSetFocus', text, headers });
    assert.strictEqual(status, 200);
});

test('rejects a body above the limit and accepts one at the limit', async (t) => {
    const text = '{"processId":1}';
    const api = await startApi(t, { bodyLimitBytes: text.length });
    const send = (body) => api.send({ method: 'POST', url: '/allowSetFocus', text: body });
    assert.strictEqual((await send(text)).status, 200);
    const { status, body } = await send(`${text} `);
    assert.strictEqual(status, 413);
    assert.strictEqual(body.error, 'The body of the request is larger than 15 bytes.');
});

test('reports an internal error as a 500 with a sentence', async (t) => {
    const api = await startApi(t);
    api.app.library = undefined;
    const { status, body } = await api.post(FROM_UUID, { documentUuid: 'x' });
    assert.strictEqual(status, 500);
    assert.match(body.error, /^Tessaron Desktop failed: /);
});
