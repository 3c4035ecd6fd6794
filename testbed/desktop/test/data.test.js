'use strict';

const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const { demoDocument } = require('../make-demo-document');
const { library } = require('./support/api');

const items = library.entries.map(({ itemData }) => itemData);
const titles = items.map(({ title }) => title).join();

test('has at least thirty works with different ids', () => {
    assert.ok(items.length >= 30);
    assert.strictEqual(new Set(items.map(({ id }) => id)).size, items.length);
});

for (const { uuid, itemData } of library.entries) {
    test(`has a complete reference ${itemData.id}`, () => {
        assert.match(uuid, /^[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}$/);
        assert.ok(itemData.title.length > 0);
        assert.ok(itemData.author.length > 0);
        assert.ok(Number.isInteger(itemData.issued['date-parts'][0][0]));
        assert.doesNotMatch(itemData.page || '', /[^0-9-]/);
    });
}

for (const type of ['article-journal', 'book', 'chapter', 'thesis', 'paper-conference', 'webpage',
    'report', 'dataset']) {
    test(`has a work of the type ${type}`, () => {
        assert.ok(items.some((item) => item.type === type));
    });
}

for (const script of ['Latin', 'Greek', 'Cyrillic', 'Han', 'Hiragana', 'Arabic', 'Hebrew',
    'Hangul']) {
    test(`has a title in the script ${script}`, () => {
        assert.match(titles, new RegExp(`\\p{Script=${script}}`, 'u'));
    });
}

test('has quotation marks, ampersands and an author with two works in a year', () => {
    assert.match(titles, /“.*”/);
    assert.match(titles, / & /);
    const keys = items.map(({ author, issued }) =>
        JSON.stringify([author, issued['date-parts'][0][0]]));
    assert.ok(new Set(keys).size < keys.length);
});

test('demo-document.json matches the output of its script', () => {
    const file = path.join(__dirname, '..', 'demo-document.json');
    assert.deepStrictEqual(JSON.parse(fs.readFileSync(file, 'utf8')),
        { citations: demoDocument(library) });
});

test('has locators, prefixes and several works in the demo document', () => {
    const cited = demoDocument(library).map(({ citationCluster }) => citationCluster.citationItems);
    const works = cited.flat();
    assert.ok(cited.length >= 12);
    assert.ok(new Set(works.map(({ id }) => id)).size >= 10);
    assert.ok(works.some(({ locator }) => locator));
    assert.ok(works.some(({ prefix }) => prefix));
    assert.ok(cited.some((citationItems) => citationItems.length > 1));
    assert.ok(works.some(({ itemData }) => /\p{Script=Han}/u.test(itemData.title)));
    const einstein = works.filter(({ id }) => id.startsWith('einstein-1905'));
    assert.strictEqual(new Set(einstein.map(({ id }) => id)).size, 2);
});
