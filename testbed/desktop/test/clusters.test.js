'use strict';

const assert = require('node:assert');
const { test } = require('node:test');

const clusters = require('../clusters');
const { writeJson } = require('../json');
const { fieldCode } = require('./support/api');

const ITEM = { id: 1, itemData: { type: 'book', title: 'T' } };
const ITEMS = '"citationItems":[{"itemData":{"type":"book"}}]';
const item = (more) => fieldCode({ citationItems: [{ ...ITEM, ...more }] });
const data = (more) => item({ itemData: { type: 'book', ...more } });

const READABLE = [
    ['as the bridge writes it', fieldCode({ citationItems: [ITEM] })],
    ['with spaces around it', ` ${fieldCode({ citationItems: [ITEM] })} `],
    ['with two spaces in its name', fieldCode({ citationItems: [ITEM] }).replace(' ', '  ')],
    ['with two spaces before its JSON', fieldCode({ citationItems: [ITEM] }).replace(' {', '  {')],
    ['with a switch before its JSON',
        fieldCode({ citationItems: [ITEM] }).replace(' {', ' \\* MERGEFORMAT {')],
    ['with numbers in place of texts', data({ volume: 12, title: 1984 })],
    ['with unknown keys', data({ custom: { a: [1] }, nothing: null })],
    ['with a literal name', data({ author: [{ literal: 'UNESCO' }] })],
    ['with a raw date', data({ issued: { raw: '1963' } })],
];

const UNREADABLE = [
    ['an empty text', '', /does not begin with "ADDIN CSL_CITATION"/],
    ['another field', ' PAGEREF _Toc1 \\h ', /does not begin/],
    ['JSON alone', `{${ITEMS}}`, /does not begin/],
    ['the prefix alone', 'ADDIN CSL_CITATION', /malformed/],
    ['no JSON', 'ADDIN CSL_CITATION hello', /malformed/],
    ['JSON cut off', `ADDIN CSL_CITATION {${ITEMS}`, /malformed/],
    ['text after the JSON', `ADDIN CSL_CITATION {${ITEMS}} x`, /malformed/],
    ['a raw line break in a text', `ADDIN CSL_CITATION {"a":"\n",${ITEMS}}`, /malformed/],
    ['the key "__proto__"', `ADDIN CSL_CITATION {"__proto__":{},${ITEMS}}`, /"__proto__"/],
    ['very deep nesting', `ADDIN CSL_CITATION ${'['.repeat(200000)}`, /nested too deeply/],
    ['null', 'ADDIN CSL_CITATION null', /not an object/],
    ['a list', 'ADDIN CSL_CITATION []', /not an object/],
    ['a number beyond 2^53', 'ADDIN CSL_CITATION 9007199254740993', /not an object/],
    ['no items', 'ADDIN CSL_CITATION {}', /no "citationItems"/],
    ['an empty list of items', 'ADDIN CSL_CITATION {"citationItems":[]}', /no "citationItems"/],
    ['items that are an object', 'ADDIN CSL_CITATION {"citationItems":{}}', /no "citationItems"/],
    ['a "tessaron" that is a text', `ADDIN CSL_CITATION {"tessaron":"x",${ITEMS}}`, /"tessaron"/],
    ['a "tessaron" that is null', `ADDIN CSL_CITATION {"tessaron":null,${ITEMS}}`, /"tessaron"/],
    ['an item that is a text', fieldCode({ citationItems: ['x'] }), /not an object/],
    ['an item without data', fieldCode({ citationItems: [{ id: 1 }] }), /no "itemData"/],
    ['data that is a list', item({ itemData: [] }), /no "itemData"/],
    ['data without a type', item({ itemData: { title: 'T' } }), /no "type"/],
    ['a type that is a number', data({ type: 5 }), /no "type"/],
    ['an author that is a text', data({ author: 'Knuth' }), /"author"/],
    ['an author that is an object', data({ author: { family: 'Knuth' } }), /"author"/],
    ['a name that is null', data({ author: [null] }), /"author"/],
    ['a name that is a text', data({ author: ['Knuth'] }), /"author"/],
    ['a name without parts', data({ editor: [{}] }), /"editor"/],
    ['a name whose part is a number', data({ author: [{ family: 5 }] }), /"author"/],
    ['a date that is a text', data({ issued: '1984' }), /"issued"/],
    ['a date that is empty', data({ issued: {} }), /"issued"/],
    ['a date without parts', data({ issued: { 'date-parts': [] } }), /"issued"/],
    ['a date with flat parts', data({ issued: { 'date-parts': [1984] } }), /"issued"/],
    ['a date with null in it', data({ accessed: { 'date-parts': [[null]] } }), /"accessed"/],
    ['a locator that is a list', item({ locator: [1] }), /"locator"/],
    ['a label that is true', item({ label: true }), /"label"/],
    ['a prefix that is an object', item({ prefix: {} }), /"prefix"/],
    ['a flag that is a text', item({ 'suppress-author': 'yes' }), /"suppress-author"/],
    ['URIs that are a text', item({ uris: 'urn:x' }), /"uris"/],
    ['a URI that is a number', item({ uris: [1] }), /"uris"/],
];

for (const [name, code] of READABLE) {
    test(`reads a field code ${name}`, () => {
        assert.strictEqual(clusters.readFieldCode(code).citationItems.length, 1);
    });
}

for (const [name, code, reason] of UNREADABLE) {
    test(`refuses ${name}`, () => {
        assert.throws(() => clusters.readFieldCode(code), { status: 422, message: reason });
    });
}

test('passes unknown values through unchanged', () => {
    const json = '{"a":9007199254740993,"b":-9223372036854775808,"c":18446744073709551615,"d":0.1,'
        + `"e":1e400,"f":"\\ud83d","g":"\\u0000\ufeff",${ITEMS},"h":[[],{},null,true]}`;
    const cluster = clusters.readFieldCode(`ADDIN CSL_CITATION ${json}`);
    const { cluster: formatted } = clusters.withFormattedText(cluster, [{ text: 'x' }]);
    const { tessaron, ...rest } = formatted;
    assert.strictEqual(writeJson(rest), json);
    assert.deepStrictEqual(tessaron,
        { previouslyFormattedCitation: 'x', plainTextFormattedCitation: 'x' });
});

test('merges all works and takes other keys from the first citation', () => {
    const first = { a: 1, citationItems: [{ id: 1 }], tessaron: { manualFormatting: 'x', own: 1 } };
    const second = { a: 2, b: 2, citationItems: [{ id: 2 }, { id: 3 }], tessaron: { own: 2 } };
    assert.deepStrictEqual(clusters.mergeClusters([first, second]), {
        a: 1, b: 2, citationItems: [{ id: 1 }, { id: 2 }, { id: 3 }], tessaron: { own: 1 },
    });
    assert.deepStrictEqual(first.tessaron, { manualFormatting: 'x', own: 1 });
});

const FORMATTED = { previouslyFormattedCitation: 'A <i>b</i> &amp; c' };
const EDITED = [
    ['the same text', FORMATTED, 'A <i>b</i> &amp; c', false],
    ['the same text read as plain text', FORMATTED, 'A b & c', false],
    ['another word', FORMATTED, 'A b & d', true],
    ['a word added in markup', FORMATTED, 'A <i>b</i> &amp; c d', true],
    ['other words in italics', FORMATTED, '<i>A</i> b &amp; c', true],
    ['nothing left', FORMATTED, '', true],
    ['the text edited before', { ...FORMATTED, manualFormatting: 'Z' }, 'Z', false],
    ['the formatted text again after an edit', { ...FORMATTED, manualFormatting: 'Z' },
        'A <i>b</i> &amp; c', true],
    ['the same text if only the plain text is recorded', { plainTextFormattedCitation: 'A' }, 'A', false],
    ['another text if only the plain text is recorded', { plainTextFormattedCitation: 'A' }, 'B', true],
    ['any text if no text is recorded', {}, 'A', true],
];

for (const [name, tessaron, text, expected] of EDITED) {
    test(`detects an edit by hand: ${name}`, () => {
        assert.strictEqual(clusters.isEdited({ tessaron }, text), expected);
    });
}
