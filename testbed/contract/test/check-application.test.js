'use strict';

const assert = require('node:assert');
const { spawn } = require('node:child_process');
const { once } = require('node:events');
const fs = require('node:fs');
const net = require('node:net');
const path = require('node:path');
const readline = require('node:readline');
const { test } = require('node:test');

const { startServer } = require('../../trace/test/record');
const {
    ANSWERS, answerOptions, runTool, startDesktop, temporaryFolder,
} = require('../../trace/test/support');
const { QUESTIONS } = require('../questions');

const PROGRAM = 'check-application';
const WITHOUT_DIALOG = QUESTIONS.filter(({ dialog }) => !dialog);
const check = (t, port, ...options) => runTool(t, PROGRAM, ['--port', String(port), ...options]);
/** The lines about the questions: [verdict, "METHOD path"] each. */
const verdicts = (output) => output.split('\n').map((line) => /^(ok|DEVIATES) +(\w+ \S+)/.exec(line))
    .filter(Boolean).map(([, verdict, what]) => [verdict, what]);
const deviating = (output) => verdicts(output).filter(([verdict]) => verdict !== 'ok').map(([, what]) => what);

test('the stand-in for the application satisfies the contract', async (t) => {
    const { port } = await startDesktop(t);
    const { status, output, errors } = await check(t, port);
    assert.strictEqual(errors, '');
    assert.deepStrictEqual(deviating(output), []);
    assert.strictEqual(verdicts(output).length, WITHOUT_DIALOG.length);
    assert.match(output, /13 questions: 13 ok, 0 deviate; 0 warnings\.\n$/);
    assert.strictEqual(status, 0);
});

test('--dialogs says what to do in each dialog', async (t) => {
    const { chooseStyle, chooseCitation, editCitation, updateCitation } = ANSWERS;
    const cancel = { dialog: 'editCitation', cancel: true };
    const { port } = await startDesktop(t,
        answerOptions([chooseStyle, chooseCitation, editCitation, cancel, updateCitation]));
    const { status, output } = await check(t, port, '--dialogs');
    assert.deepStrictEqual(deviating(output), [], output);
    assert.strictEqual(verdicts(output).length, QUESTIONS.length);
    assert.strictEqual(output.match(/^The application opens a dialog\. \w/gm).length, 5);
    assert.strictEqual(status, 0);
});

test('cancelled dialogs are reported', async (t) => {
    const { port } = await startDesktop(t);
    const { status, output } = await check(t, port, '--dialogs');
    assert.strictEqual(status, 1);
    assert.deepStrictEqual(deviating(output), ['POST /citationStyle/choose/interactive',
        'POST /citation/choose/interactive', 'POST /citation/edit/interactive']);
    assert.match(output, /\/citationStyleUrl must be the chosen style; found \{\}/);
});

const FORMAT = '/formattedCitationsAndBibliography/interactive';
const FAULTS = [
    ['/userUuid', { body: '{"userUuid":"u"}' },
        [/the body must have required property 'uuid'; found \{"userUuid":"u"\}/, /The bridge \(getUserUuid\) returns ""/]],
    ['/userAccount', { body: '{"account":5}' },
        [/\/account must be string; found 5/, /The bridge \(getUserAccount\) returns "5"/]],
    ['/userAccount', { body: '<html></html>' },
        [/the body must be a JSON object; found "<html><\/html>"/, /The bridge \(getUserAccount\) returns ""/]],
    ['/userAccount', { body: '' }, [/the body must be a JSON object; found ""/]],
    ['/citationStyles/default', { body: '{"citationStyles":[{"url":"u"}]}' },
        [/\/citationStyles\/0 must have required property 'title'/, /returns "1", "u", ""/]],
    ['/citationStyle/selected', { status: 302 },
        [/the reply must succeed with status 200; found status 302/, /returns "Can't get selected citation style id - error: 302/]],
    ['/citationStyle/selected', { status: 204 }, [/found status 204/]],
    ['/userUuid', { status: 503 }, [/found status 503/, /Unable to retrieve uuid - error: 503\. Server error/]],
    ['/userUuid', { drop: 'beforeStatus' }, [/found The connection was closed without a reply \(status 0\)/, /error: 0/]],
    ['/userUuid', { drop: 'afterHeaders' }, [/found The reply is cut off \(status 200\)/, /returns ""/]],
    ['/userUuid', { drop: 'inBody' }, [/found The reply is cut off \(status 200\)/]],
    ['/userUuid', { delayMs: 9000 }, [/found No complete reply within 5 s \(status 0\)/,
        /The bridge \(getUserUuid\) sets no timeout and keeps waiting\./]],
    [FORMAT, { status: 500, body: '{"citationIndex":0}' }, [/warning: .*has no "error"/,
        /\/citationIndex must be 1, the index of the unreadable citation; found \{"citationIndex":0\}/]],
    [FORMAT, { extraCitations: 1 }, [/\/citationClusters must have 1 entries, as the request has; found 2/,
        /The bridge \(formatCitationsAndBibliography\) returns "false", "-1", and says: Citation count mismatch/]],
    ['/testMethods/citationCluster/getFromUuid', { status: 200, body: '{"citationCluster":{}}' },
        [/the reply must be refused with a status other than 200/]],
    ['/allowSetFocus', { body: '5' }, [/No command of the bridge sends this\./]],
];
for (const [url, fault, patterns] of FAULTS) {
    test(`the fault ${JSON.stringify(fault)} of ${url} is reported`, async (t) => {
        const faults = path.join(temporaryFolder(t), 'faults');
        fs.writeFileSync(faults, JSON.stringify({ [url]: fault }));
        const { port } = await startDesktop(t, ['--faults', faults]);
        const { status, output } = await check(t, port, '--limit', fault.delayMs ? '5' : '30');
        assert.ok(deviating(output).length > 0 && deviating(output).every((what) => what.endsWith(url)), output);
        patterns.forEach((pattern) => assert.match(output, pattern));
        assert.strictEqual(status, 1);
    });
}

test('an empty bibliography satisfies the contract', async (t) => {
    const faults = path.join(temporaryFolder(t), 'faults');
    fs.writeFileSync(faults, JSON.stringify({ [FORMAT]: { emptyBibliography: true } }));
    const { port } = await startDesktop(t, ['--faults', faults]);
    const { output } = await check(t, port);
    assert.deepStrictEqual(deviating(output), []);
});

const SERVERS = [
    ['other JSON', 200, '{"hello":"world"}'],
    ['web pages', 200, '<!DOCTYPE html><p>It works!</p>'],
    ['redirects', 301, ''],
    ['refusals', 403, 'Forbidden'],
];
for (const [name, status, body] of SERVERS) {
    test(`a server that replies with ${name} deviates`, async (t) => {
        const port = await startServer(t, () => ({ status, body: Buffer.from(body) }));
        const outcome = await check(t, port);
        assert.strictEqual(outcome.status, 1);
        assert.strictEqual(verdicts(outcome.output).length, WITHOUT_DIALOG.length);
        assert.ok(deviating(outcome.output).includes('GET /userUuid'));
    });
}

/** Starts a TCP server that runs until the end of the test. */
async function startRaw(t, onConnection) {
    const sockets = [];
    const server = net.createServer((socket) => {
        sockets.push(socket.on('error', () => {}));
        onConnection(socket);
    }).listen(0, '127.0.0.1');
    t.after(() => { sockets.forEach((socket) => socket.destroy()); server.close(); });
    await once(server, 'listening');
    return server.address().port;
}

test('if nothing answers, the status is 2 and a sentence says so', async (t) => {
    const silent = await startRaw(t, () => {});
    const server = net.createServer().listen(0, '127.0.0.1');
    await once(server, 'listening');
    const free = server.address().port;
    server.close();
    for (const [port, reason] of [[silent, 'No complete reply within 1 s'], [free, 'Connection refused']]) {
        const { status, errors } = await check(t, port, '--limit', '1');
        assert.strictEqual(status, 2);
        assert.strictEqual(errors, `check-application: Nothing answers at 127.0.0.1:${port} (${reason}). `
            + 'Start the application, or name its port with --port.\n');
    }
});

test('a server that closes connections or does not speak HTTP deviates', async (t) => {
    for (const onConnection of [(socket) => socket.destroy(), (socket) => socket.end('SSH-2.0-x\r\n')]) {
        const { status, output } = await check(t, await startRaw(t, onConnection));
        assert.strictEqual(status, 1);
        assert.strictEqual(deviating(output).length, WITHOUT_DIALOG.length);
    }
});

test('the port comes from the settings of the application', async (t) => {
    const { port } = await startDesktop(t);
    const home = temporaryFolder(t);
    fs.mkdirSync(path.join(home, 'tessaron.com'));
    fs.writeFileSync(path.join(home, 'tessaron.com', 'Tessaron Desktop.conf'),
        `[General]\nhttpServerPort=9\n[%General]\nx=1\nhttpServerPort=${port}\n[Other]\nhttpServerPort=8\n`);
    const { status, output } = await runTool(t, PROGRAM, [], { XDG_CONFIG_HOME: home });
    assert.match(output, new RegExp(`^Checking the application at 127\\.0\\.0\\.1:${port}\n`));
    assert.strictEqual(status, 0);
    const other = await runTool(t, PROGRAM, ['--limit', '1'], { XDG_CONFIG_HOME: temporaryFolder(t) });
    assert.match(other.output + other.errors, /127\.0\.0\.1:50002/);
});

test('the report is JUnit XML', async (t) => {
    const folder = temporaryFolder(t);
    const file = path.join(folder, 'report.xml');
    const faults = path.join(folder, 'faults');
    fs.writeFileSync(faults, JSON.stringify({ '/userUuid': { body: '{"x":"<&\\u0001>\\""}' } }));
    const { port } = await startDesktop(t, ['--faults', faults]);
    assert.strictEqual((await check(t, port, '--write-report', file)).status, 1);
    const xml = fs.readFileSync(file, 'utf8');
    assert.match(xml, /^<\?xml version="1\.0" encoding="UTF-8"\?>\n<testsuite name="local API" tests="13" failures="1">/);
    assert.strictEqual(xml.match(/<testcase /g).length, WITHOUT_DIALOG.length);
    assert.match(xml, /name="GET \/userUuid: the user's identifier"><failure [^>]*>the body must have/);
    const text = xml.replace(/<\/?[a-z?][^<>]*>/g, '');
    assert.doesNotMatch(text, /[<>"]/);
    assert.strictEqual((await check(t, port, '--write-report', path.join(folder, 'none', 'x'))).status, 2);
});

test('a missing bridge is mentioned and changes no verdict', async (t) => {
    const port = await startServer(t, () => ({ status: 200, body: Buffer.from('{}') }));
    const { status, output } = await check(t, port, '--bridge', '/no/such/bridge');
    assert.strictEqual(status, 1);
    assert.match(output, /The bridge \/no\/such\/bridge cannot be run\. Build it, or name it with --bridge\./);
});

test('wrong options are refused with a sentence', async (t) => {
    const bad = path.join(temporaryFolder(t), 'bad.yaml');
    fs.writeFileSync(bad, 'openapi: [');
    for (const [options, sentence] of [
        [['--port', 'http'], /--port must be a number from 1 to 65535, not "http"\./],
        [['--port', '0'], /--port must be a number/],
        [['--limit', '0'], /--limit must be a number/],
        [['--contract', bad], /The contract .* cannot be read/],
        [['--contract', '/no/such/file'], /The contract .* cannot be read/],
        [['--colour'], /colour/],
        [['word'], /word/],
    ]) {
        const { status, errors } = await runTool(t, PROGRAM, options);
        assert.strictEqual(status, 2, options.join(' '));
        assert.match(errors, sentence);
    }
    const { status, output } = await runTool(t, PROGRAM, ['--help']);
    assert.strictEqual(status, 0);
    assert.match(output, /^usage: check-application /);
});

test('SIGTERM during a question ends the program with status 2', async (t) => {
    const port = await startRaw(t, () => {});
    const child = spawn(process.execPath, [path.join(__dirname, '..', '..', PROGRAM), '--port', String(port)]);
    await once(readline.createInterface({ input: child.stdout }), 'line');
    child.kill('SIGTERM');
    assert.deepStrictEqual(await once(child, 'close'), [2, null]);
});
