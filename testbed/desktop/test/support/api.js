'use strict';

const assert = require('node:assert');
const fs = require('node:fs');
const http = require('node:http');
const os = require('node:os');
const path = require('node:path');

const { checkReply, describeFinding, openContract, operationOf } = require('../../../contract/contract');
const { createApp } = require('../../app');
const { citationItem, openLibrary } = require('../../library');
const { scriptedDialogs } = require('../../dialogs');
const { createServer } = require('../../server');
const { openStyles } = require('../../styles');

const BATCH = '/formattedCitationsAndBibliography/interactive';
const styleUrl = (name) => `http://www.zotero.org/styles/${name}`;
const fieldCode = (cluster) => `ADDIN CSL_CITATION ${JSON.stringify(cluster)}`;

const library = openLibrary();
const contract = openContract();

/** Returns a cluster of works of the library. Each work is [id, details]. */
function clusterOf(works, more = {}) {
    const citationItems = works.map(([id, details]) => citationItem(library.find(id), details));
    return { citationID: 'c1', citationItems, properties: { noteIndex: 0 }, ...more };
}

/** Returns the violations of the contract in a reply, as lines. */
function replyProblems({ path: url, body: requestBody }, reply) {
    return operationOf(contract, url)
        ? checkReply(contract, { path: url, requestBody }, reply)
            .filter(({ severity }) => severity === 'violation').map(describeFinding)
        : [];
}

/**
 * Starts the API for one test and stops it after the test. `answers` are the answers to its dialogs.
 * Without a fault file, every reply must satisfy the contract.
 */
async function startApi(test, { answers = [], answersFile, settings, ...options } = {}) {
    const app = createApp({ styles: openStyles(), library, settings });
    app.dialogs = scriptedDialogs(answers, answersFile);
    const problems = [];
    const observe = (request, reply) => problems.push(...replyProblems(request, reply));
    const server = createServer(app, { ...options, observe: options.faultFile ? undefined : observe });
    await new Promise((resolve) => { server.listen(0, '127.0.0.1', resolve); });
    test.after(async () => {
        await new Promise((resolve) => {
            server.close(resolve);
            server.closeAllConnections();
        });
        assert.deepStrictEqual(problems, []);
    });
    const { port } = server.address();
    return {
        app,
        port,
        get: (url) => send(port, { method: 'GET', url }),
        post: (url, body) => send(port, { method: 'POST', url, text: JSON.stringify(body) }),
        send: (request) => send(port, request),
        format(style, clusters) {
            return this.post(BATCH, batchRequest(style, clusters));
        },
    };
}

function batchRequest(style, clusters) {
    return {
        citationStyleUrl: styleUrl(style),
        citationClusters: clusters.map((cluster) => ({
            fieldCode: typeof cluster === 'string' ? cluster : fieldCode(cluster),
            formattedText: '(old)',
        })),
        tempDirectory: '/tmp',
    };
}

/**
 * Sends a request. Resolves to { status, headers, text, body }, where `body` is the parsed text. Rejects
 * if the server closes the connection.
 */
function send(port, { method, url, text, headers = { 'Content-Type': 'application/json' } }) {
    return new Promise((resolve, reject) => {
        const options = { host: '127.0.0.1', port, method, path: url, headers, agent: false };
        const request = http.request(options, (response) => {
            const pieces = [];
            response.on('data', (piece) => pieces.push(piece));
            response.on('error', reject);
            response.on('end', () => {
                const answer = Buffer.concat(pieces).toString('utf8');
                const { statusCode: status, headers: answerHeaders } = response;
                resolve({ status, headers: answerHeaders, text: answer, body: parse(answer) });
            });
        });
        request.on('error', reject);
        request.end(text);
    });
}

function parse(text) {
    try {
        return JSON.parse(text);
    } catch {
        return undefined;
    }
}

/** Makes a folder that is removed after the test. */
function temporaryFolder(test) {
    const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'desktop-test-'));
    test.after(() => fs.rmSync(folder, { recursive: true, force: true }));
    return folder;
}

module.exports = {
    BATCH, styleUrl, fieldCode, clusterOf, library, startApi, batchRequest, send, temporaryFolder,
};
