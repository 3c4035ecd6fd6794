'use strict';

// Reads the trace that the bridge prints to standard error. Lines of "tessaron.http" are for people and
// are ignored. Lines of "tessaron.http.body" contain everything that is in the readable lines, and the
// bodies. apiclient/HttpTrace.h describes both.

const fs = require('node:fs');

const PREFIX = 'tessaron.http.body: ';
const MAX_TRACE_BYTES = 512 * 1024 * 1024;
const SWITCH = 'QT_LOGGING_RULES="tessaron.http.debug=true;tessaron.http.body.debug=true"';

/** Returns the bytes of a file. Throws an Error with a sentence if it is unreadable or too large. */
function readBytes(file) {
    let size;
    try {
        ({ size } = fs.statSync(file));
        if (size <= MAX_TRACE_BYTES) {
            return fs.readFileSync(file);
        }
    } catch (error) {
        throw new Error(`The trace ${file} cannot be read: ${error.message}.`);
    }
    throw new Error(`The trace ${file} is larger than 512 MB. Trace fewer commands.`);
}

/** Returns the lines of a trace as { number, text, entry }. `entry` is the JSON of a body line. */
function readLines(file) {
    const bytes = readBytes(file);
    if (bytes.length === 0) {
        throw new Error(`The trace ${file} is empty. Run the bridge with ${SWITCH}.`);
    }
    const lines = [];
    for (let start = 0; start < bytes.length;) {
        const newline = bytes.indexOf(10, start);
        const end = newline < 0 ? bytes.length : newline;
        const text = bytes.toString('utf8', start, end).replace(/\r$/, '');
        const number = lines.length + 1;
        lines.push({ number, text, entry: readEntry(file, number, text, newline < 0) });
        start = end + 1;
    }
    return lines;
}

function readEntry(file, number, text, isLast) {
    if (!text.startsWith(PREFIX)) {
        return undefined;
    }
    try {
        const entry = JSON.parse(text.slice(PREFIX.length));
        if (Number.isInteger(entry.process) && Number.isInteger(entry.exchange)
            && (typeof entry.text === 'string' || typeof entry.textBase64 === 'string')) {
            return entry;
        }
    } catch {
        // reported below, like JSON that is not an entry
    }
    throw new Error(isLast ? `The trace ${file} is cut off in line ${number}.`
        : `Line ${number} of the trace ${file} is damaged, or another version of the bridge wrote it.`);
}

const pieceOf = ({ text, textBase64 }) =>
    (text === undefined ? Buffer.from(textBase64, 'base64') : Buffer.from(text, 'utf8'));

/**
 * The events of a trace in their order: { first, pieces, body }. `first` is the entry that begins
 * the event, `pieces` are its lines as { number, size }, and `body` holds its bytes.
 */
function readEvents(file, lines) {
    const events = [];
    const open = new Map(); // by process: the event whose body is not complete
    for (const { number, entry } of lines.filter((line) => line.entry)) {
        let event = open.get(entry.process);
        if (entry.offset === undefined) {
            checkComplete(file, event);
            event = { first: entry, pieces: [], parts: [], size: 0 };
            events.push(event);
            open.set(entry.process, event);
        } else if (!event || event.size !== entry.offset) {
            throw new Error(`Lines are missing before line ${number} of the trace ${file}.`);
        }
        const piece = pieceOf(entry);
        event.pieces.push({ number, size: piece.length });
        event.parts.push(piece);
        event.size += piece.length;
    }
    open.forEach((event) => checkComplete(file, event));
    return events.map(({ first, pieces, parts }) => ({ first, pieces, body: Buffer.concat(parts) }));
}

function checkComplete(file, event) {
    if (event && event.size !== event.first.bytes) {
        const { process, exchange, bytes } = event.first;
        throw new Error(`The trace ${file} is cut off: a body of exchange ${exchange} of process `
            + `${process} has ${event.size} of ${bytes} bytes.`);
    }
}

/**
 * The exchanges of a trace, in the order of their requests: { process, exchange, method, path,
 * body, reply }. `reply` is { status, error, body }, or undefined if the trace ends before it.
 */
function readTrace(file) {
    const lines = readLines(file);
    const events = readEvents(file, lines);
    if (events.length === 0) {
        throw new Error(lines.some(({ text }) => text.startsWith('tessaron.http: '))
            ? `The trace ${file} has no bodies. Run the bridge with ${SWITCH}.`
            : `The file ${file} is not a trace of the bridge. Run the bridge with ${SWITCH}.`);
    }
    const exchanges = [];
    const open = new Map();
    for (const { first, body } of events) {
        const { process, exchange, method, path, status, error = '' } = first;
        const key = `${process} ${exchange}`;
        if (method !== undefined) {
            open.set(key, { process, exchange, method, path, body, reply: undefined });
            exchanges.push(open.get(key));
        } else if (open.has(key) && !open.get(key).reply) {
            open.get(key).reply = { status, error, body };
        } else {
            throw new Error(`The trace ${file} has a reply of process ${process} without its request.`);
        }
    }
    return exchanges;
}

module.exports = { PREFIX, SWITCH, readLines, readEvents, readTrace };
