'use strict';

const assert = require('node:assert');
const { test } = require('node:test');

const markup = require('../markup');
const { demoDocument } = require('../make-demo-document');
const { BATCH, clusterOf, fieldCode, library, startApi, styleUrl } = require('./support/api');
const { askDirectly } = require('./support/direct');

const numbered = (clusters) => clusters.map((cluster, index) =>
    ({ ...cluster, properties: { noteIndex: index + 1 } }));
const demoClusters = numbered(demoDocument(library).map(({ citationCluster }) => citationCluster));
const wholeLibrary = numbered(library.entries.map(({ itemData }) => clusterOf([[itemData.id]])));

const texts = (answer) => answer.body.citationClusters.map(({ formattedText }) => formattedText);
const entries = (answer) => answer.body.bibliography.split('\n');

const STYLES = [
    ['apa', 'author and date'],
    ['chicago-author-date', 'author and date'],
    ['ieee', 'numbers'],
    ['nature', 'numbers in superscript'],
    ['chicago-fullnote-bibliography', 'notes'],
    ['modern-humanities-research-association', 'notes'],
    ['antiquity', 'small capitals'],
];

for (const [style, kind] of STYLES) {
    for (const [name, clusters] of [['the demo', demoClusters], ['the library', wholeLibrary]]) {
        test(`${style} (${kind}) formats ${name} as the CSL processor does`, async (t) => {
            const api = await startApi(t);
            const answer = await api.format(style, clusters);
            const expected = askDirectly(style, clusters);
            assert.strictEqual(answer.status, 200);
            assert.strictEqual(answer.body.citationStyleUrl, styleUrl(style));
            assert.deepStrictEqual(texts(answer), expected.citations);
            assert.deepStrictEqual(entries(answer), expected.bibliography);
            assert.ok(expected.citations.length === clusters.length);
        });
    }
}

test('writes every text in the documented markup', async (t) => {
    const api = await startApi(t);
    for (const [style] of STYLES) {
        const answer = await api.format(style, wholeLibrary);
        [...texts(answer), ...entries(answer)].forEach((text) => {
            assert.notStrictEqual(markup.parseMarkup(text), null, text);
        });
    }
});

test('records the text and the plain text in the cluster and keeps the rest', async (t) => {
    const api = await startApi(t);
    const cluster = clusterOf([['watson-crick-1953']], { unknown: { a: [1, null] },
        tessaron: { own: 'kept' } });
    const { body } = await api.format('apa', [cluster]);
    assert.deepStrictEqual(body.citationClusters, [{
        citationCluster: {
            ...cluster,
            tessaron: {
                own: 'kept',
                previouslyFormattedCitation: '(Watson &amp; Crick, 1953)',
                plainTextFormattedCitation: '(Watson & Crick, 1953)',
            },
        },
        formattedText: '(Watson &amp; Crick, 1953)',
    }]);
});

test('keeps integers above 2^53', async (t) => {
    const api = await startApi(t);
    const code = fieldCode(clusterOf([['truss-2003']], { big: 0 }))
        .replace('"big":0', '"big":[9007199254740993,-9223372036854775808,18446744073709551615]');
    const answer = await api.format('apa', [code]);
    assert.ok(answer.text.includes('[9007199254740993,-9223372036854775808,18446744073709551615]'));
});

test('changes nothing when it formats twice', async (t) => {
    const api = await startApi(t);
    const once = await api.format('chicago-fullnote-bibliography', demoClusters);
    const again = await api.format('chicago-fullnote-bibliography',
        once.body.citationClusters.map(({ citationCluster }) => citationCluster));
    assert.strictEqual(again.text, once.text);
});

test('distinguishes the same author and year by letters in title order', async (t) => {
    const api = await startApi(t);
    const answer = await api.format('apa', [clusterOf([['knuth-1984-texbook']]),
        clusterOf([['knuth-1984-literate']])]);
    assert.deepStrictEqual(texts(answer), ['(Knuth, 1984b)', '(Knuth, 1984a)']);
});

test('numbers works in the order of the citations', async (t) => {
    const api = await startApi(t);
    const answer = await api.format('ieee', [clusterOf([['truss-2003']]),
        clusterOf([['kuhn-1962']]), clusterOf([['truss-2003']])]);
    assert.deepStrictEqual(texts(answer), ['[1]', '[2]', '[1]']);
    assert.deepStrictEqual(entries(answer).map((entry) => entry.split('\t')[0]), ['[1]', '[2]']);
});

const note = (id, noteIndex) => clusterOf([[id]], { properties: { noteIndex } });
const NOTES = [
    ['correct', [1, 2, 3]],
    ['all zero', [0, 0, 0]],
    ['outdated', [7, 3, 1]],
    ['not numbers', ['x', null, {}]],
];
for (const [name, numbers] of NOTES) {
    test(`shortens the second note on a work if the note numbers are ${name}`, async (t) => {
        const api = await startApi(t);
        const works = ['kuhn-1962', 'truss-2003', 'kuhn-1962'];
        const style = 'chicago-fullnote-bibliography';
        const answer = await api.format(style, works.map((id, i) => note(id, numbers[i])));
        const expected = askDirectly(style, works.map((id, i) => note(id, i + 1)));
        assert.deepStrictEqual(texts(answer), expected.citations);
        assert.match(texts(answer)[2], /^Kuhn, /);
    });
}

test('keeps two citations in the same note', async (t) => {
    const api = await startApi(t);
    const clusters = [note('kuhn-1962', 1), note('kuhn-1962', 1), note('truss-2003', 2)];
    const style = 'modern-humanities-research-association';
    const answer = await api.format(style, clusters);
    assert.deepStrictEqual(texts(answer), askDirectly(style, clusters).citations);
});

test('formats a dependent style as its parent and returns the parent', async (t) => {
    const api = await startApi(t);
    const dependent = await api.format('nature-genetics', demoClusters);
    const parent = await api.format('nature', demoClusters);
    assert.strictEqual(dependent.body.citationStyleUrl, styleUrl('nature'));
    assert.strictEqual(dependent.text, parent.text);
});

test('uses small capitals, superscript, subscript, bold and italics', async (t) => {
    const api = await startApi(t);
    const seen = [];
    for (const style of ['antiquity', 'nature']) {
        seen.push((await api.format(style, wholeLibrary)).text);
    }
    for (const tag of ['<i>', '<b>', '<sup>', '<sub>', 'font-variant:small-caps;']) {
        assert.ok(seen.join().includes(tag), tag);
    }
});

test('does not merge different works with the same id', async (t) => {
    const api = await startApi(t);
    const work = (title) => ({
        citationItems: [{ id: 'ITEM-1', itemData: { id: 'ITEM-1', type: 'book', title } }],
    });
    const answer = await api.format('ieee', [work('First'), work('Second'), work('First')]);
    assert.deepStrictEqual(texts(answer), ['[1]', '[2]', '[1]']);
});

test('treats one URI with two ids as one work', async (t) => {
    const api = await startApi(t);
    const work = (id, title) => ({
        citationItems: [{ id, uris: ['urn:x:1'], itemData: { id, type: 'book', title } }],
    });
    const answer = await api.format('ieee', [work('a', 'New'), work('b', 'Stale')]);
    assert.deepStrictEqual(texts(answer), ['[1]', '[1]']);
    assert.match(answer.body.bibliography, /New/);
});

test('keeps a text edited by hand', async (t) => {
    const api = await startApi(t);
    const edits = ['(<i>Kuhn</i> &amp; co)', '(<i>Kuhn</i> & co)', ''];
    const clusters = edits.map((manualFormatting) =>
        clusterOf([['kuhn-1962']], { tessaron: { manualFormatting } }));
    const answer = await api.format('apa', [...clusters, clusterOf([['kuhn-1962']])]);
    const known = answer.body.citationClusters.map(({ citationCluster: { tessaron } }) => tessaron);
    assert.deepStrictEqual(texts(answer), ['(<i>Kuhn</i> &amp; co)',
        '(&lt;i&gt;Kuhn&lt;/i&gt; &amp; co)', '', '(Kuhn, 1962)']);
    assert.deepStrictEqual(known.map((tessaron) => tessaron.plainTextFormattedCitation),
        ['(Kuhn & co)', '(<i>Kuhn</i> & co)', '', '(Kuhn, 1962)']);
    assert.deepStrictEqual(known.map((tessaron) => tessaron.manualFormatting),
        [...edits, undefined]);
});

test('removes control characters of a title from the texts', async (t) => {
    const api = await startApi(t);
    const itemData = { type: 'book', title: 'One\u0013\u0001two\r\nthree\tfour' };
    const answer = await api.format('ieee', [{ citationItems: [{ itemData }] }]);
    assert.match(answer.body.bibliography, /Onetwo three four/);
    assert.match(answer.body.citationClusters[0].citationCluster.citationItems[0].itemData.title,
        /\u0013\u0001two\r\nthree\tfour/);
});

test('returns no bibliography without citations', async (t) => {
    const api = await startApi(t);
    const { status, body } = await api.format('apa', []);
    assert.strictEqual(status, 200);
    assert.deepStrictEqual(body,
        { citationStyleUrl: styleUrl('apa'), citationClusters: [], bibliography: '' });
});

test('returns an empty bibliography for a style without one', async (t) => {
    const api = await startApi(t);
    const answer = await api.format('bluebook-law-review', [clusterOf([['kuhn-1962']])]);
    assert.strictEqual(answer.status, 200);
    assert.match(texts(answer)[0], /Kuhn/i);
    assert.strictEqual(answer.body.bibliography, '');
});

const UNKNOWN_STYLES = ['', 'apa', 'http://www.zotero.org/styles/no-such-style',
    'http://www.zotero.org/styles/../styles/apa', 'http://example.org/styles/apa',
    'http://www.zotero.org/styles/', '../../../etc/passwd'];
for (const citationStyleUrl of UNKNOWN_STYLES) {
    test(`rejects the style "${citationStyleUrl}", which is not installed`, async (t) => {
        const api = await startApi(t);
        const request = { citationStyleUrl, citationClusters: [], tempDirectory: '' };
        const { status, body } = await api.post(BATCH, request);
        assert.strictEqual(status, 404);
        assert.deepStrictEqual(body,
            { error: `The citation style "${citationStyleUrl}" is not installed.` });
    });
}

test('returns the index of an unreadable citation', async (t) => {
    const api = await startApi(t);
    const good = clusterOf([['kuhn-1962']]);
    const clusters = [good, good, 'ADDIN CSL_CITATION {"a":', good];
    const { status, body } = await api.format('apa', clusters);
    assert.strictEqual(status, 422);
    assert.strictEqual(body.citationIndex, 2);
    assert.match(body.error, /^Citation 3: .*malformed/);
});

for (const index of [0, 1, 7, 8]) {
    test(`returns the index ${index} of a citation that the CSL processor cannot format`, async (t) => {
        const api = await startApi(t);
        const clusters = wholeLibrary.slice(0, 9);
        // The processor looks the language up in an object, including its prototype.
        const { itemData: good } = library.find('kuhn-1962');
        const itemData = { ...good, title: 'Other', language: 'constructor' };
        clusters[index] = { citationItems: [{ itemData }] };
        const { status, body } = await api.format('apa', clusters);
        assert.strictEqual(status, 422);
        assert.strictEqual(body.citationIndex, index);
        assert.match(body.error, /cannot be formatted/);
    });
}

test('formats a thousand citations of a thousand works within seconds', async (t) => {
    const api = await startApi(t);
    const clusters = Array.from({ length: 1000 }, (_, i) => ({
        citationItems: [{
            itemData: {
                type: 'book',
                title: `Volume ${i}`,
                author: [{ family: `Name${i % 300}`, given: 'A.' }],
                issued: { 'date-parts': [[1900 + (i % 50)]] },
            },
        }],
    }));
    const start = process.hrtime.bigint();
    const answer = await api.format('apa', clusters);
    const seconds = Number(process.hrtime.bigint() - start) / 1e9;
    t.diagnostic(`1,000 citations of 1,000 works in APA style: ${seconds.toFixed(1)} s`);
    assert.strictEqual(texts(answer).length, 1000);
    assert.strictEqual(entries(answer).length, 1000);
    assert.ok(seconds < 60, `${seconds} s`);
});
