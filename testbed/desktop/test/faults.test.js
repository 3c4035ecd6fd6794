'use strict';

const assert = require('node:assert');
const fs = require('node:fs');
const net = require('node:net');
const path = require('node:path');
const { test } = require('node:test');

const { BATCH, batchRequest, clusterOf, startApi, temporaryFolder } = require('./support/api');

const works = [clusterOf([['kuhn-1962']]), clusterOf([['truss-2003']])];

/** Starts an API with a log and with faults, which `setFaults` changes. */
async function startWithFaults(t, faults) {
    const folder = temporaryFolder(t);
    const faultFile = path.join(folder, 'faults.json');
    const logFile = path.join(folder, 'log');
    const setFaults = (value) => fs.writeFileSync(faultFile, JSON.stringify(value));
    setFaults(faults);
    const api = await startApi(t, { faultFile, logFile });
    const logged = () => fs.readFileSync(logFile, 'utf8').trim().split('\n').map(JSON.parse);
    return { ...api, setFaults, faultFile, logged };
}

test('applies faults to their path only and reads the fault file again', async (t) => {
    const api = await startWithFaults(t, { '/userUuid': { status: 503 } });
    assert.strictEqual((await api.get('/userAccount')).status, 200);
    assert.strictEqual((await api.get('/userUuid')).status, 503);
    api.setFaults({});
    assert.strictEqual((await api.get('/userUuid')).status, 200);
});

for (const status of [201, 204, 302, 404, 500]) {
    test(`returns the status ${status}`, async (t) => {
        const api = await startWithFaults(t, { '/userUuid': { status } });
        const answer = await api.get('/userUuid');
        assert.strictEqual(answer.status, status);
        if (status !== 204) {
            assert.match(answer.body.error, /^The fault file asks for the status/);
        }
    });
}

for (const body of ['', 'not JSON', '[]', '{"citationClusters":5}']) {
    test(`returns the body ${JSON.stringify(body)}`, async (t) => {
        const api = await startWithFaults(t, { [BATCH]: { body } });
        const answer = await api.format('apa', works);
        assert.strictEqual(answer.status, 200);
        assert.strictEqual(answer.text, body);
    });
}

test('delays the reply', async (t) => {
    const api = await startWithFaults(t, { '/userUuid': { delayMs: 300 } });
    const start = Date.now();
    assert.strictEqual((await api.get('/userUuid')).status, 200);
    assert.ok(Date.now() - start >= 290);
});

for (const drop of ['beforeStatus', 'afterHeaders', 'inBody']) {
    test(`closes the connection: ${drop}`, async (t) => {
        const api = await startWithFaults(t, { [BATCH]: { drop } });
        await assert.rejects(api.format('apa', works), { code: 'ECONNRESET' });
        const [request, ...others] = api.logged();
        assert.deepStrictEqual(others, []);
        assert.strictEqual(request.path, BATCH);
        assert.deepStrictEqual(JSON.parse(request.body), batchRequest('apa', works));
    });
}

/** All bytes that the server sends for one GET before it closes the connection. */
function rawGet(port, url) {
    return new Promise((resolve, reject) => {
        const pieces = [];
        const socket = net.connect(port, '127.0.0.1', () => {
            socket.write(`GET ${url} HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n`);
        });
        socket.on('data', (piece) => pieces.push(piece));
        socket.on('error', reject);
        socket.on('close', () => resolve(Buffer.concat(pieces).toString('latin1')));
    });
}

test('sends nothing, the headers, or half of the body before it closes', async (t) => {
    const api = await startWithFaults(t, {});
    const whole = await rawGet(api.port, '/userUuid');
    const [, body] = whole.split('\r\n\r\n');
    const sent = {};
    for (const drop of ['beforeStatus', 'afterHeaders', 'inBody']) {
        api.setFaults({ '/userUuid': { drop } });
        sent[drop] = await rawGet(api.port, '/userUuid');
    }
    assert.strictEqual(sent.beforeStatus, '');
    assert.match(sent.afterHeaders, /^HTTP\/1\.1 200 OK\r\n[^]*Content-Length: \d+[^]*\r\n\r\n$/);
    const [, half] = sent.inBody.split('\r\n\r\n');
    assert.strictEqual(half, body.slice(0, Math.floor(body.length / 2)));
});

for (const [extraCitations, count] of [[-1, 1], [-5, 0], [1, 3]]) {
    test(`returns ${extraCitations} extra citations`, async (t) => {
        const api = await startWithFaults(t, { [BATCH]: { extraCitations } });
        const { status, body } = await api.format('apa', works);
        assert.strictEqual(status, 200);
        assert.strictEqual(body.citationClusters.length, count);
        assert.notStrictEqual(body.bibliography, '');
    });
}

test('returns an empty bibliography', async (t) => {
    const api = await startWithFaults(t, { [BATCH]: { emptyBibliography: true } });
    const { body } = await api.format('apa', works);
    assert.strictEqual(body.bibliography, '');
    assert.strictEqual(body.citationClusters.length, 2);
});

const WRONG_FAULTS = [
    ['a list', []],
    ['null', null],
    ['a fault that is a text', { '/userUuid': 'drop' }],
    ['an unknown fault', { '/userUuid': { explode: true } }],
    ['an invalid "drop"', { '/userUuid': { drop: 'somewhere' } }],
    ['a delay in words', { '/userUuid': { delayMs: 'long' } }],
    ['a negative delay', { '/userUuid': { delayMs: -1 } }],
    ['an impossible status', { '/userUuid': { status: 99 } }],
    ['a body that is an object', { '/userUuid': { body: {} } }],
];
for (const [name, faults] of WRONG_FAULTS) {
    test(`reports a fault file with ${name} as a 500 with a sentence`, async (t) => {
        const api = await startWithFaults(t, faults);
        const { status, body } = await api.get('/userUuid');
        assert.strictEqual(status, 500);
        assert.match(body.error, /The fault file .*\/userUuid/);
    });
}

for (const [name, damage] of [['is malformed', (file) => fs.writeFileSync(file, '{')],
    ['is gone', (file) => fs.rmSync(file)]]) {
    test(`reports a fault file that ${name} as a 500 with a sentence`, async (t) => {
        const api = await startWithFaults(t, {});
        damage(api.faultFile);
        const { status, body } = await api.get('/userUuid');
        assert.strictEqual(status, 500);
        assert.match(body.error, /^Tessaron Desktop failed: /);
    });
}

test('logs method, path, headers and body of every request, also of rejected ones', async (t) => {
    const api = await startWithFaults(t, {});
    await api.get('/userUuid?x=1');
    await api.send({ method: 'POST', url: '/nowhere', text: '{"a":"ü"' });
    const [first, second] = api.logged();
    assert.deepStrictEqual([first.method, first.path, first.body], ['GET', '/userUuid', '']);
    assert.deepStrictEqual([second.method, second.path, second.body],
        ['POST', '/nowhere', '{"a":"ü"']);
    assert.strictEqual(second.headers['content-type'], 'application/json');
});
