'use strict';

const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const { readTrace } = require('../trace');
const {
    PREFIX, exchangeLines, recordAllCommands, startServer, traceFile, traceInto, traceOf,
} = require('./record');
const { BODIES, BRIDGE, runTool, temporaryFolder } = require('./support');
const { runBridge } = require('../bridge');

const UUID = { method: 'GET', path: '/userUuid', reply: { body: '{"uuid":"u-1"}' } };

test('a trace of the bridge has every request and reply', async (t) => {
    const exchanges = readTrace(traceFile(t, await recordAllCommands(t)));
    assert.strictEqual(exchanges.length, 16);
    for (const { path: url, body, reply } of exchanges) {
        assert.strictEqual(reply.status, 200, url);
        assert.doesNotThrow(() => JSON.parse(reply.body), url);
        assert.doesNotThrow(() => JSON.parse(body.toString() || '{}'), url);
    }
});

const everyByte = Buffer.from(Array.from({ length: 70000 }, (_, index) => (index * 7) % 256));
const REPLIES = [
    ['newlines', Buffer.from('{\n"uuid":\r\n"u"}\n')],
    ['a line of a trace', Buffer.from(`\n${PREFIX}{"process":1}\n`)],
    ['every byte', everyByte],
    ['many scripts', Buffer.from(`{"uuid":"${'αж字あ한😀é'.repeat(3000)}"}`)],
    ['nothing', Buffer.alloc(0)],
];
for (const [name, body] of REPLIES) {
    test(`a reply with ${name} is read from the trace unchanged`, async (t) => {
        const port = await startServer(t, () => ({ status: 200, body }));
        const { errors } = await runBridge(BRIDGE,
            { command: 'getUserUuid', args: [], port, environment: BODIES });
        const [exchange, ...others] = readTrace(traceFile(t, errors));
        assert.deepStrictEqual(others, []);
        assert.ok(exchange.reply.body.equals(body));
    });
}

test('several processes write one trace at the same time', async (t) => {
    const file = path.join(temporaryFolder(t), 'trace');
    const bodies = new Map(['/userUuid', '/userAccount', '/citationStyle/selected'].map((url, index) =>
        [url, Buffer.from(`{"${url}":"${'é\n"\\'.repeat(100000 + index).replace(/["\\\n]/g, '\\n')}"}`)]));
    const port = await startServer(t, ({ url }) => ({ status: 200, body: bodies.get(url) }));
    const commands = ['getUserUuid', 'getUserAccount', 'getDesktopCitationStyleId'];
    await Promise.all([...commands, ...commands].map((command) => traceInto(t, file, command, port)));
    const exchanges = readTrace(file);
    assert.strictEqual(exchanges.length, 6);
    assert.strictEqual(new Set(exchanges.map(({ process }) => process)).size, 6);
    for (const { path: url, reply } of exchanges) {
        assert.ok(reply.body.equals(bodies.get(url)));
    }
});

test('the last request may have no reply', (t) => {
    const [exchange] = readTrace(traceFile(t, traceOf({ ...UUID, reply: undefined })));
    assert.strictEqual(exchange.reply, undefined);
});

const [request, requestBody, reply, replyBody] = exchangeLines(UUID);
const other = (line) => line.replace('"process":1', '"process":2');
const part = (offset, text) => `${PREFIX}${JSON.stringify({ exchange: 1, offset, process: 1, text })}`;
const longBody = replyBody.replace('"bytes":14', '"bytes":20');

test('lines of two processes may alternate', (t) => {
    const lines = [requestBody, other(requestBody), longBody, other(replyBody), part(14, '123456')];
    const exchanges = readTrace(traceFile(t, lines.join('\n')));
    assert.deepStrictEqual(exchanges.map(({ process, reply: { body } }) => [process, `${body}`]),
        [[1, '{"uuid":"u-1"}123456'], [2, '{"uuid":"u-1"}']]);
});

test('other lines and carriage returns are ignored', (t) => {
    const lines = ['No formatted bibliography returned', request, requestBody, 'x', reply, replyBody, ''];
    assert.strictEqual(readTrace(traceFile(t, lines.join('\r\n'))).length, 1);
});

const WRONG = [
    ['an empty trace', '', /is empty\. Run the bridge with QT_LOGGING_RULES=/],
    ['a file of another program', '{"log":[]}\n', /is not a trace of the bridge/],
    ['binary data', Buffer.from([0, 255, 254, 10, 0]), /is not a trace of the bridge/],
    ['a trace without bodies', `${request}\n${reply}\n`, /has no bodies\. Run the bridge with/],
    ['a trace cut off within a line', `${requestBody}\n${replyBody.slice(0, -9)}`, /is cut off in line 2\.$/],
    ['a trace cut off within a body', `${requestBody}\n${longBody}\n`,
        /is cut off: a body of exchange 1 of process 1 has 14 of 20 bytes\.$/],
    ['a process that ended within a body', `${longBody}\n${requestBody}\n`, /has 14 of 20 bytes\.$/],
    ['a line that is missing', `${requestBody}\n${longBody}\n${part(17, '456')}\n`,
        /^Lines are missing before line 3 /],
    ['a line that comes twice', `${requestBody}\n${longBody}\n${part(14, '123456')}\n${part(14, '123456')}\n`,
        /^Lines are missing before line 4 /],
    ['a part without its start', `${part(14, 'x')}\n`, /^Lines are missing before line 1 /],
    ['mixed lines', `${requestBody.slice(0, 60)}${other(requestBody)}\n${requestBody.slice(60)}\n`,
        /^Line 1 of the trace .* is damaged/],
    ['a trace of another version', `${PREFIX}{"uuid":"u-1"}\n`, /^Line 1 .* another version/],
    ['a body that is a word', `${PREFIX}hello\nx\n`, /^Line 1 .* is damaged/],
    ['a reply without its request', `${replyBody}\n`, /has a reply of process 1 without its request/],
];
for (const [name, text, sentence] of WRONG) {
    for (const program of ['replay', 'redact']) {
        test(`${program} refuses ${name} with a sentence`, async (t) => {
            const file = traceFile(t, text);
            const { status, output, errors } = await runTool(t, program, [file]);
            assert.strictEqual(status, 2);
            assert.strictEqual(output, '');
            assert.match(errors, /^[^\n]*\.\n$/);
            assert.match(errors.slice(`${program}: `.length).trimEnd(), sentence);
        });
    }
}

test('a trace that is cut off anywhere is shorter or refused with a sentence', async (t) => {
    const text = traceOf(UUID, { ...UUID, exchange: 2 });
    const all = readTrace(traceFile(t, text));
    const file = traceFile(t, '');
    let refused = 0;
    for (let length = 0; length < text.length; length += 1) {
        fs.writeFileSync(file, text.slice(0, length));
        try {
            const read = readTrace(file);
            const last = read.pop();
            const complete = all[read.length];
            assert.deepStrictEqual(read, all.slice(0, read.length));
            assert.deepStrictEqual(last, last.reply ? complete : { ...complete, reply: undefined });
        } catch (error) {
            assert.match(error.message, /^(The (trace|file) |Lines? )[^\n]*\.$/);
            refused += 1;
        }
    }
    assert.ok(refused > text.length / 2);
});

for (const program of ['replay', 'redact']) {
    test(`${program} refuses files that it cannot read`, async (t) => {
        const folder = temporaryFolder(t);
        const huge = path.join(folder, 'huge');
        fs.truncateSync(fs.openSync(huge, 'w'), 513 * 1024 * 1024);
        for (const [file, sentence] of [[path.join(folder, 'none'), /cannot be read: ENOENT/],
            [folder, /cannot be read: EISDIR/], [huge, /is larger than 512 MB/]]) {
            const { status, errors } = await runTool(t, program, [file]);
            assert.strictEqual(status, 2);
            assert.match(errors, sentence);
        }
    });
    test(`${program} prints its usage`, async (t) => {
        const { status, output } = await runTool(t, program, ['--help']);
        assert.strictEqual(status, 0);
        assert.match(output, new RegExp(`^usage: ${program} `));
        assert.strictEqual((await runTool(t, program, [])).status, 2);
        assert.strictEqual((await runTool(t, program, ['--colour', 'x'])).status, 2);
    });
}
