'use strict';

// Makes traces for the tests: records them from the bridge, or writes them as the bridge does.

const { spawn } = require('node:child_process');
const { once } = require('node:events');
const fs = require('node:fs');
const http = require('node:http');
const path = require('node:path');

const {
    ANSWERS, BODIES, BRIDGE, answerOptions, runAllCommands, startDesktop, temporaryFolder,
} = require('./support');

const PREFIX = 'tessaron.http.body: ';

/** Writes `text` to a file in a temporary folder and returns the path. */
function traceFile(t, text) {
    const file = path.join(temporaryFolder(t), 'trace');
    fs.writeFileSync(file, text);
    return file;
}

/** Records the trace of all seventeen commands against the stand-in for the application. */
async function recordAllCommands(t) {
    const { port } = await startDesktop(t, answerOptions(Object.values(ANSWERS)));
    const outcomes = await runAllCommands(port, BODIES);
    return outcomes.map(([, { errors }]) => errors).join('');
}

/** Starts a server that replies to each request with `replyTo(request, body)`: { status, body }. */
async function startServer(t, replyTo) {
    const server = http.createServer(async (request, response) => {
        const pieces = [];
        for await (const piece of request) {
            pieces.push(piece);
        }
        const { status, body } = replyTo(request, Buffer.concat(pieces));
        response.writeHead(status, { 'Content-Length': body.length, Connection: 'close' });
        response.end(body);
    });
    await new Promise((resolve) => { server.listen(0, '127.0.0.1', resolve); });
    t.after(() => server.close());
    return server.address().port;
}

/** Starts the bridge with its trace appended to `file`; resolves when it has ended. */
async function traceInto(t, file, command, port) {
    const home = temporaryFolder(t);
    fs.mkdirSync(path.join(home, 'tessaron.com'));
    fs.writeFileSync(path.join(home, 'tessaron.com', 'Tessaron Desktop.conf'),
        `[%General]\nhttpServerPort=${port}\n`);
    const descriptor = fs.openSync(file, 'a');
    const child = spawn(BRIDGE, [command, home], {
        env: { ...process.env, ...BODIES, XDG_CONFIG_HOME: home },
        stdio: ['ignore', 'ignore', descriptor],
    });
    await once(child, 'close');
    fs.closeSync(descriptor);
}

/** Returns the lines of one exchange as the bridge writes them. Without `reply`, only the request. */
function exchangeLines({ method = 'POST', path: url, body = '', reply, process = 1, exchange = 1 }) {
    const at = '2026-01-02T03:04:05.678Z';
    const about = { exchange, process };
    const event = (first, text) => {
        const bytes = Buffer.from(text);
        const isText = typeof text === 'string';
        return PREFIX + JSON.stringify({ at, bytes: bytes.length, ...first, ...about,
            ...(isText ? { text: bytes.toString() } : { textBase64: bytes.toString('base64') }) });
    };
    const lines = [`tessaron.http: ${method} ${url} ${Buffer.byteLength(body)} bytes`,
        event({ method, path: url }, body)];
    if (reply) {
        const { status = 200, error, body: replyBody = '' } = reply;
        lines.push(`tessaron.http: ${status} ${Buffer.byteLength(replyBody)} bytes 1 ms`
            + `${error ? `, ${error}` : ''}`, event({ status, elapsedMs: 1, error }, replyBody));
    }
    return lines;
}

const traceOf = (...exchanges) => exchanges.flatMap(exchangeLines).map((line) => `${line}\n`).join('');

module.exports = {
    PREFIX, traceFile, recordAllCommands, startServer, traceInto, exchangeLines, traceOf,
};
