'use strict';

const fs = require('node:fs');
const http = require('node:http');
const { setTimeout: sleep } = require('node:timers/promises');

const { ApiError } = require('./errors');
const { applyFault, faultOf } = require('./faults');
const { writeJson } = require('./json');
const { checkBody, findRoute } = require('./routes');

const BODY_LIMIT_BYTES = 256 * 1024 * 1024;

/**
 * Creates the HTTP server of an application's local API. It does not listen yet. A line of JSON for
 * each request is appended to `logFile`. `faultFile` holds the faults. `observe` is called with each
 * request { method, path, contentType, body } and its reply { status, body }. The bodies are text.
 */
function createServer(app, options = {}) {
    const { logFile, faultFile, bodyLimitBytes = BODY_LIMIT_BYTES, observe = () => {} } = options;
    return http.createServer(async (request, response) => {
        const path = request.url.split('?')[0];
        const received = await receive(request, bodyLimitBytes);
        if (received.gone) {
            return;
        }
        log(logFile, request, path, received.text);
        const send = (fault, correct) => {
            const { status, body } = applyFault(fault, correct);
            const text = fault.body ?? writeJson(body);
            const contentType = request.headers['content-type'];
            observe({ method: request.method, path, contentType, body: received.text },
                { status, body: text });
            write(response, fault, { status, headers: correct.headers, bytes: Buffer.from(text) });
        };
        try {
            const fault = faultOf(faultFile, path);
            await sleep(fault.delayMs || 0);
            send(fault, await answer(app, request, path, received));
        } catch (error) {
            send({}, failure(error));
        }
    });
}

async function answer(app, request, path, received) {
    try {
        const route = findRoute(request.method, path);
        if (received.error) {
            throw received.error;
        }
        const body = route.method === 'POST' ? readBody(request, received.text) : {};
        checkBody(route, body);
        return { status: 200, body: await route.operation(app, body) };
    } catch (error) {
        return failure(error);
    }
}

function failure(error) {
    if (error instanceof ApiError) {
        const body = { error: error.message, ...error.extra };
        return { status: error.status, body, headers: error.headers };
    }
    const reason = error instanceof Error ? error.message : String(error);
    return { status: 500, body: { error: `Tessaron Desktop failed: ${reason}` } };
}

/**
 * Reads a request's body. Resolves to { text }, to { text, error } if the body is rejected, or to
 * { gone } if the client has closed the connection.
 */
async function receive(request, limit) {
    const pieces = [];
    let size = 0;
    try {
        for await (const piece of request) {
            size += piece.length;
            if (size <= limit) {
                pieces.push(piece);
            }
        }
    } catch {
        return { gone: true };
    }
    if (size > limit) {
        const message = `The body of the request is larger than ${limit} bytes.`;
        return { text: '', error: new ApiError(413, message) };
    }
    try {
        const decoder = new TextDecoder('utf-8', { fatal: true, ignoreBOM: true });
        return { text: decoder.decode(Buffer.concat(pieces)) };
    } catch {
        return { text: '', error: new ApiError(400, 'The body of the request is not UTF-8.') };
    }
}

function readBody(request, text) {
    const type = (request.headers['content-type'] || '').split(';')[0].trim().toLowerCase();
    if (type !== 'application/json') {
        throw new ApiError(415, 'The content type of the request is not application/json.');
    }
    try {
        return JSON.parse(text);
    } catch (error) {
        throw new ApiError(400, `The body of the request is malformed JSON: ${error.message}`);
    }
}

function log(file, request, path, body) {
    if (file) {
        const { method, headers } = request;
        fs.appendFileSync(file, `${JSON.stringify({ method, path, headers, body })}\n`);
    }
}

const hasBody = (status) => status !== 204 && status !== 304;

function write(response, fault, { status, headers, bytes }) {
    const drop = (...sent) => response.write(Buffer.concat(sent), () => response.destroy());
    if (fault.drop === 'beforeStatus') {
        response.destroy();
        return;
    }
    const about = { 'Content-Type': 'application/json', 'Content-Length': bytes.length };
    response.writeHead(status, { ...(hasBody(status) ? about : {}), ...headers });
    if (fault.drop === 'afterHeaders') {
        response.flushHeaders();
        drop();
    } else if (fault.drop === 'inBody') {
        drop(bytes.subarray(0, Math.floor(bytes.length / 2)));
    } else {
        response.end(hasBody(status) ? bytes : undefined);
    }
}

module.exports = { createServer };
