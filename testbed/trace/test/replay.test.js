'use strict';

const assert = require('node:assert');
const { once } = require('node:events');
const fs = require('node:fs');
const net = require('node:net');
const path = require('node:path');
const { test } = require('node:test');

const { runBridge } = require('../bridge');
const { commandOf } = require('../commands');
const { openContract, operationOf } = require('../../contract/contract');
const { recordAllCommands, traceFile, traceOf } = require('./record');
const { BRIDGE, runAllCommands, runTool, startListening, temporaryFolder } = require('./support');

const UUID = { method: 'GET', path: '/userUuid', reply: { body: '{"uuid":"u-1"}' } };
const json = (value) => JSON.stringify(value);
const MERGE = { path: '/citations/merge', body: json({ citationClusters: [{ fieldCode: 'a' }] }),
    reply: { body: '{"citationCluster":{}}' } };

test('the commands of a trace run again, with the recorded results', async (t) => {
    const file = traceFile(t, await recordAllCommands(t));
    const { child, port } = await startListening(t, 'replay', [file]);
    let output = '';
    child.stdout.on('data', (text) => { output += text; });
    const ended = once(child, 'close');
    const outcomes = new Map(await runAllCommands(port));
    assert.deepStrictEqual(await ended, [0, null]);
    assert.match(output, /Requests as recorded: 16 of 16\.\n$/);
    assert.strictEqual(outcomes.get('formatCitationsAndBibliography').results[0], 'true');
    assert.deepStrictEqual(outcomes.get('getUserAccount').results, ['reader@example.org']);
});

test('--run derives the commands from the trace', async (t) => {
    const { status, output } = await runTool(t, 'replay',
        [traceFile(t, await recordAllCommands(t)), '--run', '--bridge', BRIDGE]);
    assert.strictEqual(status, 0, output);
    assert.match(output, /^getUserAccount: reader@example\.org$/m);
    assert.match(output, /^formatCitationsAndBibliography: true \| /m);
    assert.match(output, /^Requests as recorded: 16 of 16\.$/m);
});

test('every request of the contract except /allowSetFocus has a command', () => {
    const contract = openContract();
    for (const url of Object.keys(contract.document.paths)) {
        const { operation } = operationOf(contract, url);
        const body = operation.requestBody?.content['application/json'].example;
        const command = commandOf(url, body ? json(body) : '');
        assert.strictEqual(command === null, url === '/allowSetFocus', url);
    }
});

const UNUSUAL_ARGUMENTS = [
    ['unusual characters', ['\ufeff\u0000\n"\\é字😀', '', ' ']],
    ['an unpaired surrogate', ['a\ud83d']],
    ['no text', ['']],
];
for (const [name, codes] of UNUSUAL_ARGUMENTS) {
    test(`--run passes on ${name} in an argument`, async (t) => {
        const body = json({ citationClusters: codes.map((fieldCode) => ({ fieldCode })) });
        const { status, output } = await runTool(t, 'replay',
            [traceFile(t, traceOf({ ...MERGE, body })), '--run']);
        assert.strictEqual(status, 0, output);
    });
}

const RESULTS = [
    ['a status of 503', UUID, { status: 503, body: '{"error":"closed"}', error: 'x' },
        "getUserUuid: Unable to retrieve uuid - error: 503. Server error 'closed'"],
    ['a status of 204', UUID, { status: 204 }, /error: 204\./],
    ['a redirect', UUID, { status: 302, body: '{}' }, /error: 302\./],
    ['no reply', UUID, { status: 0, error: 'Connection refused' }, /error: 0\./],
    ['no recorded reply', UUID, undefined, /error: 0\./],
    ['no reply to a POST', MERGE, { status: 0, error: 'Connection closed' }, 'mergeFields: '],
    ['a body that was cut off', UUID, { body: '{"uu', error: 'Connection closed' }, 'getUserUuid: '],
    ['a body that is not JSON', UUID, { status: 500, body: '<p>' }, /Server error '<p>'/],
];
for (const [name, request, reply, line] of RESULTS) {
    test(`a replay gives the bridge ${name}`, async (t) => {
        const file = traceFile(t, traceOf({ ...request, reply }, { ...UUID, exchange: 2 }));
        const { status, output } = await runTool(t, 'replay', [file, '--run']);
        assert.strictEqual(status, 0, output);
        assert.ok(output.split('\n').some((other) =>
            (typeof line === 'string' ? other === line : line.test(other))), output);
    });
}

const clusters = (...codes) => ({ citationClusters: codes.map((fieldCode) => ({ fieldCode })) });
const DIFFERENCES = [
    ['another path', [UUID], ['getUserAccount'],
        'Request 1 differs in its method or path: the trace has GET /userUuid, but the bridge sent GET /userAccount.'],
    ['another method', [UUID], ['mergeFields', 'a'],
        'Request 1 differs in its method or path: the trace has GET /userUuid, but the bridge sent POST /citations/merge.'],
    ['another text', [MERGE], ['mergeFields', 'b'],
        'Request 1 differs at /citationClusters/0/fieldCode: the trace has "a", but the bridge sent "b".'],
    ['an additional element', [MERGE], ['mergeFields', 'a', 'b'], 'Request 1 differs at /citationClusters/1: '
        + 'the trace has nothing, but the bridge sent {"fieldCode":"b"}.'],
    ['a missing element', [{ ...MERGE, body: json(clusters('a', 'b')) }], ['mergeFields', 'a'],
        'Request 1 differs at /citationClusters/1: the trace has {"fieldCode":"b"}, but the bridge sent nothing.'],
    ['a difference late in a long text', [{ ...MERGE, body: json(clusters('x'.repeat(5000))) }],
        ['mergeFields', `${'x'.repeat(4990)}y${'x'.repeat(9)}`],
        `Request 1 differs at /citationClusters/0/fieldCode: the trace has ...${'x'.repeat(49)}x"`.slice(0, 90)],
    ['a body that is not JSON', [{ ...MERGE, body: 'hello' }], ['mergeFields', 'a'],
        'Request 1 differs in the body: the trace has "hello"'],
];
for (const [name, exchanges, [command, ...args], sentence] of DIFFERENCES) {
    test(`a replay reports ${name}`, async (t) => {
        const { child, port } = await startListening(t, 'replay', [traceFile(t, traceOf(...exchanges))]);
        let output = '';
        child.stdout.on('data', (text) => { output += text; });
        const ended = once(child, 'close');
        await runBridge(BRIDGE, { command, args, port });
        assert.deepStrictEqual(await ended, [1, null]);
        assert.ok(output.includes(sentence), output);
    });
}

test('the folder of a run may differ', async (t) => {
    const body = json({ citationClusters: [], citationStyleUrl: 's', tempDirectory: '/Users/me/x' });
    const reply = { body: json({ citationStyleUrl: 's', citationClusters: [], bibliography: 'b' }) };
    const file = traceFile(t, traceOf(
        { path: '/formattedCitationsAndBibliography/interactive', body, reply }));
    const { status, output } = await runTool(t, 'replay', [file, '--run']);
    assert.strictEqual(status, 0, output);
    assert.match(output, /^formatCitationsAndBibliography: true \| s \| b$/m);
});

test('--run stops at a request that no command sends', async (t) => {
    const file = traceFile(t, traceOf({ path: '/allowSetFocus', body: '{"processId":1}', reply: {} }));
    const { status, output } = await runTool(t, 'replay', [file, '--run']);
    assert.strictEqual(status, 1);
    assert.match(output, /no command of the bridge sends \/allowSetFocus/);
    assert.match(output, /The commands ended\. Requests received: 0 of 1\.\n$/);
});

test('a replay gives up if no request comes', async (t) => {
    const { status, output } = await runTool(t, 'replay', [traceFile(t, traceOf(UUID)), '--limit', '0']);
    assert.strictEqual(status, 1);
    assert.match(output, /No request came for 0 s\. Requests received: 0 of 1\.\n$/);
});

for (const signal of ['SIGINT', 'SIGTERM']) {
    test(`${signal} ends a replay with a sentence`, async (t) => {
        const { child } = await startListening(t, 'replay', [traceFile(t, traceOf(UUID))]);
        let output = '';
        child.stdout.on('data', (text) => { output += text; });
        child.kill(signal);
        assert.deepStrictEqual(await once(child, 'close'), [1, null]);
        assert.match(output, /Interrupted\. Requests received: 0 of 1\.\n$/);
    });
}

test('wrong options are refused with a sentence', async (t) => {
    const file = traceFile(t, traceOf(UUID));
    const taken = net.createServer().listen(0, '127.0.0.1');
    t.after(() => taken.close());
    await once(taken, 'listening');
    for (const [options, sentence] of [
        [['--port', 'http'], /--port must be a number from 0 to 65535, not "http"\./],
        [['--port', '65536'], /--port must be a number/],
        [['--limit', '-1'], /limit/],
        [['--port', String(taken.address().port)], /cannot be used: .*EADDRINUSE/],
        [['--run', '--bridge', path.join(temporaryFolder(t), 'none')], /cannot be run\. Build it, or name it/],
        [[file], /Name one trace\./],
    ]) {
        const { status, errors } = await runTool(t, 'replay', [file, ...options]);
        assert.strictEqual(status, 2, options.join(' '));
        assert.match(errors, sentence);
    }
    assert.ok(fs.existsSync(file));
});
