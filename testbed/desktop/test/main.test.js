'use strict';

const assert = require('node:assert');
const { spawn, spawnSync } = require('node:child_process');
const { once } = require('node:events');
const fs = require('node:fs');
const net = require('node:net');
const os = require('node:os');
const path = require('node:path');
const { test } = require('node:test');

const { send, styleUrl, temporaryFolder } = require('./support/api');

const MAIN = path.join(__dirname, '..', 'main.js');

/** Starts the program and waits until it listens. */
async function start(t, options = []) {
    const child = spawn(process.execPath, [MAIN, '--port', '0', ...options]);
    t.after(() => child.kill('SIGKILL'));
    child.stdout.setEncoding('utf8');
    const [line] = await once(child.stdout, 'data');
    const [, port] = /^listening on 127\.0\.0\.1:(\d+)\n$/.exec(line);
    return { child, port: Number(port), get: (url) => send(Number(port), { method: 'GET', url }) };
}

test('prints where it listens and returns its process id', async (t) => {
    const { child, get } = await start(t);
    const { body } = await get('/tessaronDesktopInfo');
    assert.strictEqual(body.processId, child.pid);
});

for (const signal of ['SIGTERM', 'SIGINT']) {
    test(`ends with status 0 on ${signal}, also with an idle connection`, async (t) => {
        const { child, port } = await start(t);
        const socket = net.connect(port, '127.0.0.1');
        await once(socket, 'connect');
        socket.on('error', () => {});
        child.kill(signal);
        assert.deepStrictEqual(await once(child, 'exit'), [0, null]);
    });
}

test('accepts no connection from outside the machine', async (t) => {
    const outside = Object.values(os.networkInterfaces()).flat()
        .find(({ internal, family }) => !internal && family === 'IPv4');
    if (!outside) {
        t.skip('this machine has no address besides the loopback one');
        return;
    }
    const { port } = await start(t);
    const socket = net.connect(port, outside.address);
    const [error] = await once(socket, 'error');
    assert.strictEqual(error.code, 'ECONNREFUSED');
});

test('passes its options to the API', async (t) => {
    const log = path.join(temporaryFolder(t), 'log');
    const { port, get } = await start(t, ['--account', 'a@b', '--uuid', 'u', '--log', log,
        '--style', styleUrl('nature'), '--recent', styleUrl('ieee'), '--recent', styleUrl('apa'),
        '--answer', JSON.stringify({ dialog: 'chooseStyle', style: styleUrl('apa') })]);
    assert.deepStrictEqual((await get('/userAccount')).body, { account: 'a@b' });
    assert.deepStrictEqual((await get('/userUuid')).body, { uuid: 'u' });
    assert.strictEqual((await get('/citationStyle/selected')).body.citationStyleId,
        styleUrl('nature'));
    const { citationStyles } = (await get('/citationStyles/default')).body;
    assert.deepStrictEqual(citationStyles.map(({ url }) => url),
        [styleUrl('ieee'), styleUrl('apa')]);
    const chosen = await send(port, {
        method: 'POST', url: '/citationStyle/choose/interactive', text: '{"currentStyleUrl":""}',
    });
    assert.deepStrictEqual(chosen.body, { citationStyleUrl: styleUrl('apa') });
    assert.strictEqual(fs.readFileSync(log, 'utf8').trim().split('\n').length, 5);
});

test('shows dialogs on the terminal', async (t) => {
    const { child, port } = await start(t, ['--interactive']);
    const answer = send(port, {
        method: 'POST', url: '/citationStyle/choose/interactive', text: '{"currentStyleUrl":""}',
    });
    let question = '';
    while (!question.endsWith('(empty: cancel): ')) {
        const [text] = await once(child.stdout, 'data');
        question += text;
    }
    assert.match(question, /2\tIEEE/);
    child.stdin.write('2\n');
    assert.deepStrictEqual((await answer).body, { citationStyleUrl: styleUrl('ieee') });
});

test('reads styles and locales from another folder', async (t) => {
    const folder = temporaryFolder(t);
    const result = spawnSync(process.execPath, [MAIN, '--port', '0', '--csl-dir', folder]);
    assert.match(String(result.stderr), new RegExp(`is not installed in ${folder}`));
    const env = { ...process.env, TESSARON_CSL_DIR: folder };
    const other = spawnSync(process.execPath, [MAIN, '--port', '0'], { env });
    assert.match(String(other.stderr), new RegExp(`is not installed in ${folder}`));
});

test('reports a port that is in use', async (t) => {
    const { port } = await start(t);
    const result = spawnSync(process.execPath, [MAIN, '--port', String(port)]);
    assert.strictEqual(result.status, 2);
    assert.match(String(result.stderr), /cannot listen: .*EADDRINUSE/);
});

test('prints its usage', () => {
    const result = spawnSync(process.execPath, [MAIN, '--help']);
    assert.strictEqual(result.status, 0);
    assert.match(String(result.stdout), /^usage: /);
});

const badLibrary = (text) => (folder) => {
    const file = path.join(folder, 'library.json');
    fs.writeFileSync(file, text);
    return ['--library', file];
};
const entry = '{"uuid":"a","itemData":{"type":"book"}}';
const WRONG_OPTIONS = [
    ['an unknown option', () => ['--colour'], /colour/],
    ['a word without an option', () => ['hello'], /hello/],
    ['an option without a value', () => ['--account'], /account/],
    ['a port that is a word', () => ['--port', 'http'], /"http" is not a port number\./],
    ['a port that is negative', () => ['--port=-1'], /"-1" is not a port number\./],
    ['a port that is too large', () => ['--port', '65536'], /"65536" is not a port number\./],
    ['an answer that is not JSON', () => ['--answer', 'yes'], /JSON/],
    ['an answer to an unknown dialog', () => ['--answer', '{"dialog":"x"}'], /"dialog" must be one of/],
    ['a style that is not installed', () => ['--style', 'x'], /"x" is not installed/],
    ['a recent style that is not installed', () => ['--recent', ''], /"" is not installed/],
    ['a library that does not exist', (folder) => ['--library', `${folder}/x`], /no such file/],
    ['a library that is malformed', badLibrary('['), /JSON/],
    ['a library that is not a list', badLibrary('{}'), /It is not a list\./],
    ['a library with an entry without a uuid', badLibrary('[{}]'), /Entry 1: It has no "uuid"\./],
    ['a library with an entry without its data', badLibrary('[{"uuid":"a"}]'), /no "itemData"/],
    ['a library with a uuid twice', badLibrary(`[${entry},${entry}]`), /Entry 2: Another entry/],
];
for (const [name, options, reason] of WRONG_OPTIONS) {
    test(`does not start with ${name}`, (t) => {
        const all = [MAIN, '--port', '0', ...options(temporaryFolder(t))];
        const result = spawnSync(process.execPath, all, { timeout: 10000 });
        assert.strictEqual(result.status, 2);
        assert.match(String(result.stderr), reason);
        assert.strictEqual(String(result.stdout), '');
    });
}
