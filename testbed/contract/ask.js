'use strict';

const http = require('node:http');

const MAX_REPLY_BYTES = 512 * 1024 * 1024; // the same limit as the bridge's

/**
 * Sends a request to 127.0.0.1. Resolves to { status, body, error }. `error` is empty if the reply is
 * complete and otherwise gives the reason. The status 0 means that there was no reply. If `limitMs` is
 * 0, there is no timeout.
 */
function ask(port, { method, path, text, limitMs }) {
    return new Promise((resolve) => {
        const pieces = [];
        let status = 0;
        let size = 0;
        let timer;
        const end = (error) => {
            clearTimeout(timer);
            resolve({ status, error, body: Buffer.concat(pieces).toString('utf8') });
            request.destroy();
        };
        const headers = method === 'POST'
            ? { 'Content-Type': 'application/json', 'Content-Length': Buffer.byteLength(text) } : {};
        const options = { host: '127.0.0.1', port, method, path, headers, agent: false };
        const request = http.request(options, (response) => {
            status = response.statusCode;
            response.on('data', (piece) => {
                size += piece.length;
                pieces.push(piece);
                if (size > MAX_REPLY_BYTES) {
                    end('The reply is larger than 512 MB');
                }
            });
            response.on('error', () => end('The reply is cut off'));
            response.on('end', () => end(''));
        });
        request.on('error', ({ code, message }) => end(REASONS[code] || message));
        request.end(text);
        timer = limitMs && setTimeout(() => end(`No complete reply within ${limitMs / 1000} s`), limitMs);
    });
}

const REASONS = {
    ECONNREFUSED: 'Connection refused',
    ECONNRESET: 'The connection was closed without a reply',
};

module.exports = { ask };
