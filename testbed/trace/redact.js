'use strict';

const fs = require('node:fs');
const { parseArgs } = require('node:util');

const { openContract } = require('../contract/contract');
const { VARIANTS, createPlaceholders } = require('./placeholders');
const { ENUMERATED, FIELD_CODE, redactText } = require('./redact-json');
const { PREFIX, readEvents, readLines, readTrace } = require('./trace');

const PATHS = Object.keys(openContract().document.paths);
// Qt's own error texts. Any other error text may contain text of the application.
const ERRORS = ['Connection refused', 'Connection closed', 'Operation canceled', 'Unknown error'];
const USAGE = `usage: redact TRACE > REDACTED

Replaces every text in a trace of the bridge by placeholders of the same length and script, so that
the trace can be sent to someone who may not read the document. It can still be replayed.

Replaced:
- each string value in the bodies of requests and replies, and within field codes: accounts, ids,
  URLs, folder names, titles, names. All letters of a script become the same letter, all digits the
  same digit, all other characters the same symbol
- the whole body, if it is not JSON
- the error texts of the application, and all lines that do not belong to the trace
- the time: the trace starts at 2000-01-01, and intervals stay the same

Not replaced:
- keys, numbers, true, false and null, and the order and size of everything
- spaces, quotes, backslashes, control characters, and how characters are escaped
- method, path, status and process id of each request, and these error texts of the transport:
  ${ERRORS.join(', ')}
- the text "${FIELD_CODE}"
- these values of "type": ${ENUMERATED.type.join(', ')}
- these values of "label": ${ENUMERATED.label.join(', ')}
- "0" as the value of "processId"

Numbers are not replaced, so a year that is a JSON number stays.
Exit status: 0, or 2 if the trace cannot be used.
`;
const EPOCH = Date.parse('2000-01-01T00:00:00.000Z');

/** Redacts the bytes of a body. Invalid UTF-8 stays invalid. */
function redactBody(body, replace) {
    const text = body.toString('utf8');
    if (Buffer.from(text, 'utf8').equals(body)) {
        return Buffer.from(redactText(text, replace), 'utf8');
    }
    const ascii = replace(body.toString('latin1').replace(/[\u0080-\u00ff]/g, '\u0001'), '');
    return Buffer.from(body.map((byte, index) => (byte >= 0x80 ? 0xff : ascii.charCodeAt(index))));
}

/** Returns the lines of a trace, redacted with `replace(value, key)`. */
function redactLines(lines, events, replace) {
    const result = lines.map(({ text, entry }) => (entry ? '' : redactOther(text, replace)));
    const start = Date.parse(events[0].first.at);
    for (const { first, pieces, body } of events) {
        const redacted = redactBody(body, replace);
        let offset = 0;
        for (const { number, size } of pieces) {
            const { entry } = lines[number - 1];
            const piece = redacted.subarray(offset, offset + size);
            offset += size;
            result[number - 1] = PREFIX + JSON.stringify({
                ...(entry === first ? redactFirst(first, start, replace) : headOf(entry)),
                ...textOf(piece),
            });
        }
    }
    return result;
}

function headOf({ exchange, offset, process }) {
    return { exchange, offset, process };
}

function redactFirst({ at, bytes, exchange, process, method, path, status, elapsedMs, error }, start,
    replace) {
    return {
        at: new Date(EPOCH + (Date.parse(at) - start || 0)).toISOString(),
        bytes, elapsedMs, error: error && redactError(error, replace), exchange,
        method: method && (method === 'GET' ? 'GET' : 'POST'),
        path: path && (PATHS.includes(path) ? path : replace(path, '')),
        process, status,
    };
}

const redactError = (error, replace) => (ERRORS.includes(error) ? error : replace(error, ''));

function textOf(bytes) {
    const text = bytes.toString('utf8');
    return Buffer.from(text, 'utf8').equals(bytes) ? { text } : { textBase64: bytes.toString('base64') };
}

/** Redacts a line that holds no body: a readable line of the trace, or a line from elsewhere. */
function redactOther(line, replace) {
    const request = /^tessaron\.http: (?:GET|POST) (\S+) \d+ bytes$/.exec(line);
    if (request && PATHS.includes(request[1])) {
        return line;
    }
    const reply = /^(tessaron\.http: \d+ \d+ bytes \d+ ms)(?:(, )(.*))?$/.exec(line);
    return reply
        ? reply[1] + (reply[2] || '') + (reply[3] ? redactError(reply[3], replace) : '')
        : replace(line, '');
}

/**
 * Returns the redacted lines of a trace. Chooses the placeholders so that as few as possible equal an
 * original value of the trace.
 */
function redact(file) {
    readTrace(file); // reports a trace that cannot be used
    const lines = readLines(file);
    const events = readEvents(file, lines);
    const values = new Set();
    redactLines(lines, events, (value) => { values.add(value); return value; });
    const used = [...values].filter((value) => /[^\s]/.test(value));
    let best;
    for (let variant = 0; variant < VARIANTS; variant += 1) {
        const replace = createPlaceholders(variant);
        const collisions = used.filter((value) => values.has(replace(value))).length;
        if (!best || collisions < best.collisions) {
            best = { collisions, replace };
        }
        if (collisions === 0) {
            break;
        }
    }
    return redactLines(lines, events, best.replace);
}

function main() {
    const { values, positionals } = parseArgs({ options: { help: { type: 'boolean' } }, allowPositionals: true });
    if (values.help) {
        process.stdout.write(USAGE);
        return;
    }
    if (positionals.length !== 1) {
        throw new Error('Name one trace. --help explains what is replaced.');
    }
    const lines = redact(positionals[0]);
    // In pieces, because one string cannot hold a long trace.
    for (let start = 0; start < lines.length; start += 10000) {
        fs.writeSync(1, lines.slice(start, start + 10000).map((line) => `${line}\n`).join(''));
    }
}

/** Runs the program and sets the exit status. */
function runRedact() {
    try {
        main();
    } catch (error) {
        process.stderr.write(`redact: ${error.message}\n`);
        process.exitCode = 2;
    }
}

module.exports = { redact, runRedact };
