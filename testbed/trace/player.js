'use strict';

// Plays the application from recorded exchanges.

const http = require('node:http');

/**
 * An HTTP server on 127.0.0.1 that sends to each request the reply of the next exchange.
 * `onRequest(exchange, request)` gets the exchange, undefined after the last one, and the request
 * { method, path, body }.
 */
function createPlayer(exchanges, onRequest) {
    const left = [...exchanges];
    return http.createServer(async (request, response) => {
        const pieces = [];
        try {
            for await (const piece of request) {
                pieces.push(piece);
            }
        } catch {
            return; // the bridge was killed
        }
        const exchange = left.shift();
        onRequest(exchange, { method: request.method, path: request.url, body: Buffer.concat(pieces) });
        sendReply(response, exchange && exchange.reply);
    });
}

// The status 0 is what the bridge sees if nothing replies. It is sent as a status here, because Qt
// repeats a GET when the connection closes without one.
const NO_REPLY = 'HTTP/1.1 000 No Reply\r\nContent-Length: 0\r\nConnection: close\r\n\r\n';

/** Sends a recorded reply, or the status 0 if there is none. */
function sendReply(response, reply) {
    if (!reply || reply.status === 0) {
        response.socket.end(NO_REPLY);
        return;
    }
    const { status, error, body } = reply;
    // A transport error with the status of a success means that the body was cut off.
    const isCut = status === 200 && error !== '';
    const length = body.length + (isCut ? 1 : 0);
    const hasBody = status !== 204 && status !== 304;
    response.writeHead(status, hasBody
        ? { 'Content-Type': 'application/json', 'Content-Length': length, Connection: 'close' } : {});
    if (isCut) {
        response.flushHeaders();
        response.write(body, () => response.destroy());
    } else {
        response.end(hasBody ? body : undefined);
    }
}

/** Starts a player on `port`, or on any free port if it is 0. Resolves to the port. */
function listen(player, port) {
    return new Promise((resolve, reject) => {
        player.once('error', (error) => reject(new Error(`Port ${port} cannot be used: ${error.message}`)));
        player.listen(port, '127.0.0.1', () => resolve(player.address().port));
    });
}

module.exports = { createPlayer, listen };
