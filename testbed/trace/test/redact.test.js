'use strict';

const assert = require('node:assert');
const { test } = require('node:test');

const { ENUMERATED, FIELD_CODE } = require('../redact-json');
const { redact } = require('../redact');
const { readTrace } = require('../trace');
const { recordAllCommands, traceFile, traceOf } = require('./record');
const { runTool } = require('./support');

const json = (value) => JSON.stringify(value);
const redacted = (t, text) => `${redact(traceFile(t, text)).join('\n')}\n`;
/** The redacted body of a reply. */
const redactBody = (t, body) =>
    readTrace(traceFile(t, redacted(t, traceOf({ path: '/userUuid', method: 'GET', reply: { body } }))))[0]
        .reply.body;

/** Returns every string in a value, and in the JSON of its field codes, as pairs [key, text]. */
function strings(value, key = '') {
    if (typeof value === 'string') {
        const brace = value.startsWith(FIELD_CODE) ? value.indexOf('{') : -1;
        return brace < 0 ? [[key, value]] : strings(JSON.parse(value.slice(brace)), key);
    }
    return typeof value === 'object' && value !== null
        ? Object.entries(value).flatMap(([name, inner]) =>
            strings(inner, Array.isArray(value) ? key : name)) : [];
}

/** Returns a value with each string replaced by its length and the classes of its characters. */
function shapeOf(value) {
    if (typeof value === 'string') {
        return [value.length, Buffer.byteLength(value), [...value].map(classOf).join('')];
    }
    return typeof value !== 'object' || value === null ? value
        : Array.isArray(value) ? value.map(shapeOf)
            : Object.entries(value).map(([key, inner]) => [key, shapeOf(inner)]);
}

const SCRIPTS = { L: 'Latin', G: 'Greek', C: 'Cyrillic', H: 'Han', A: 'Arabic', h: 'Hebrew', k: 'Hiragana' };
const classOf = (character) => Object.keys(SCRIPTS).find((letter) =>
    new RegExp(`\\p{Script=${SCRIPTS[letter]}}`, 'u').test(character))
    ?? (/\p{N}/u.test(character) ? '1' : /["\\\p{Cc}\p{Cs}\p{Z}]/u.test(character) ? character : '.');

/** Returns a generator of random numbers that are the same in each run. */
function createRandom(seed) {
    let state = seed;
    return (limit) => {
        state = (Math.imul(state, 1103515245) + 12345) >>> 0;
        return (state >>> 8) % limit;
    };
}

const ALPHABET = [...'abcxyzABCXYZ0123456789.,-/<>&"\\\n\t äßÉ€αΩжЖ漢字あاא😀\u0000\u200d\ufeff𝄞'];
const KEYS = ['uuid', 'account', 'title', 'type', 'label', 'family', 'processId', 'citationIndex', 'url'];

function randomValue(random, depth) {
    const text = () => Array.from({ length: 1 + random(8) }, () => ALPHABET[random(ALPHABET.length)]).join('');
    const choice = random(depth > 0 ? 8 : 5);
    if (choice === 7) {
        return `${FIELD_CODE} ${json({ [KEYS[random(KEYS.length)]]: randomValue(random, depth - 1) })}`;
    }
    return choice === 6 ? Array.from({ length: random(4) }, () => randomValue(random, depth - 1))
        : choice === 5 ? Object.fromEntries(Array.from({ length: random(5) },
            () => [KEYS[random(KEYS.length)], randomValue(random, depth - 1)]))
            : choice === 4 ? random(100000) - 50000 : text();
}

test('no value remains, whatever the values are', (t) => {
    const random = createRandom(20260102);
    let seen = 0;
    for (let round = 0; round < 300; round += 1) {
        const value = { list: Array.from({ length: 6 }, () => randomValue(random, 4)) };
        const after = JSON.parse(redactBody(t, json(value)));
        const before = strings(value).filter(([key, text]) => !(ENUMERATED[key] || []).includes(text)
            && /[^"\\\p{Cc}\p{Cs}\p{Z}\ufeff]/u.test(text)).map(([, text]) => text);
        const left = new Set(strings(after).map(([, text]) => text));
        assert.deepStrictEqual(before.filter((text) => left.has(text)), [], json(value));
        assert.deepStrictEqual(shapeOf(after), shapeOf(value));
        seen += before.length;
    }
    assert.ok(seen > 1000);
});

const CASES = [
    ['a word', '{"uuid":"reader"}', '{"uuid":"aaaaaa"}'],
    ['a digit', '{"uuid":"7"}', '{"uuid":"1"}'],
    ['the placeholder itself', '{"uuid":"a","b":"1"}', '{"uuid":"b","b":"2"}'],
    ['an address', '{"account":"R.D@ex-1.org"}', '{"account":"A!A!aa!1!aaa"}'],
    ['keys, numbers and literals', '{"reader":12,"b":[true,false,null,-1.5e3]}',
        '{"reader":12,"b":[true,false,null,-1.5e3]}'],
    ['whitespace between tokens', '{ "uuid" :\n "u" }', '{ "uuid" :\n "a" }'],
    ['escapes', '{"a":"x\\ny\\u00e9\\"\\\\\\/z"}', '{"a":"a\\na\\u00df\\"\\\\\\/a"}'],
    ['an escaped emoji', '{"a":"\\ud83d\\ude00"}', '{"a":"\\ud800\\udd00"}'],
    ['an unpaired surrogate', '{"a":"\\ud83dx"}', '{"a":"\\ud83da"}'],
    ['a type and a label', '{"type":"book","label":"page"}', '{"type":"book","label":"page"}'],
    ['another type', '{"type":"diary","label":"book"}', '{"type":"aaaaa","label":"book"}'],
    ['an enumerated value of another key', '{"title":"page"}', '{"title":"aaaa"}'],
    ['the process id 0', '{"processId":"0"}', '{"processId":"0"}'],
    ['a process id in a text', '{"processId":"471"}', '{"processId":"111"}'],
    ['a field code', json({ fieldCode: 'ADDIN CSL_CITATION {"id":"k","n":[1962]}' }),
        json({ fieldCode: 'ADDIN CSL_CITATION {"id":"a","n":[1962]}' })],
    ['a field code without JSON', json({ fieldCode: 'ADDIN CSL_CITATION {"id' }),
        json({ fieldCode: 'ADDIN CSL_CITATION !"aa' })],
    ['JSON that is not an object', '"reader"', '"aaaaaa"'],
    ['JSON with raw control characters', '{"a":"x\ny"}', '{"a":"a\na"}'],
    ['a byte order mark', '\ufeff{"a":"x"}', '\ufeff{"a":"a"}'],
    ['a web page', '<p>User 47</p>', '!a!Aaaa 11!!a!'],
    ['JSON that was cut off', '{"account":"reader', '!"aaaaaaa"!"aaaaaa'],
    ['nothing', '', ''],
];
for (const [name, body, expected] of CASES) {
    test(`the redaction of ${name}`, (t) => {
        assert.strictEqual(`${redactBody(t, body)}`, expected);
    });
}

test('bytes that are not UTF-8 are redacted and stay invalid', (t) => {
    const after = redactBody(t, Buffer.from([0x61, 0xe9, 0x7b, 0x31, 0xff]));
    assert.deepStrictEqual([...after], [0x61, 0xff, 0x21, 0x31, 0xff]);
});

test('only the transport\'s own errors remain', (t) => {
    const lines = redacted(t, traceOf(
        { method: 'GET', path: '/userUuid', reply: { status: 0, error: 'Connection refused' } },
        { method: 'GET', path: '/userUuid', exchange: 2, reply: { status: 502, error: 'no reader' } }));
    assert.match(lines, /^tessaron\.http: 0 0 bytes 1 ms, Connection refused$/m);
    assert.match(lines, /"error":"Connection refused"/);
    assert.match(lines, /^tessaron\.http: 502 0 bytes 1 ms, aa aaaaaa$/m);
    assert.match(lines, /"error":"aa aaaaaa"/);
});

test('other lines and paths are replaced', (t) => {
    const lines = redacted(t, `Unable to open args file "/Users/Jo/x"\n${traceOf(
        { method: 'GET', path: '/reader', reply: {} })}`).split('\n');
    assert.strictEqual(lines[0], 'Aaaaaa aa aaaa aaaa aaaa "!Aaaaa!Aa!a"');
    assert.ok(lines.slice(1).every((line) => !line.includes('reader')), lines.join('\n'));
});

test('the time is shifted to the year 2000', (t) => {
    const lines = redacted(t, traceOf({ method: 'GET', path: '/userUuid', reply: {} }));
    assert.ok(!lines.includes('2026-01-02'));
    assert.match(lines, /"at":"2000-01-01T00:00:00\.000Z"/);
});

test('a redacted trace replays with the same commands and lengths of results', async (t) => {
    const trace = await recordAllCommands(t);
    const failures = traceOf(
        { method: 'GET', path: '/userUuid', reply: { status: 503, body: '{"error":"Closed","x":1}' } },
        { path: '/citations/merge', body: json({ citationClusters: [{ fieldCode: 'x' }] }), reply: { body: '<p>' } },
        { path: '/formattedCitationsAndBibliography/interactive',
            body: json({ citationClusters: [], citationStyleUrl: 's', tempDirectory: '/Users/me' }),
            reply: { status: 422, body: '{"error":"x","citationIndex":"2"}' } },
        { method: 'GET', path: '/tessaronDesktopInfo', reply: { body: '{"processId":"0"}' } },
        { method: 'GET', path: '/userAccount', reply: { status: 0, error: 'Connection closed' } });
    const before = await runTool(t, 'replay', [traceFile(t, trace + failures), '--run']);
    const { status, output: lines } = await runTool(t, 'redact', [traceFile(t, trace + failures)]);
    assert.strictEqual(status, 0);
    assert.strictEqual(lines.length, (trace + failures).length);
    const after = await runTool(t, 'replay', [traceFile(t, lines), '--run']);
    assert.deepStrictEqual([before.status, after.status], [0, 0], after.output);
    const sizes = ({ output }) => output.split('\n').slice(1).map((line) => line.length);
    assert.deepStrictEqual(sizes(after), sizes(before));
    assert.doesNotMatch(after.output, /Kuhn|reader@|ieee/);
});

test('the help lists what stays', async (t) => {
    const { output } = await runTool(t, 'redact', ['--help']);
    for (const value of [...ENUMERATED.type, ...ENUMERATED.label, FIELD_CODE, 'Connection refused']) {
        assert.ok(output.includes(value), value);
    }
});
