'use strict';

const assert = require('node:assert');
const { test } = require('node:test');

const markup = require('../markup');

const SMALL_CAPS = '<span style="font-variant:small-caps;">';

const READ = [
    ['nothing', '', []],
    ['plain text', 'Smith 2015', [{ text: 'Smith 2015' }]],
    ['escapes', 'a &amp; b &lt;c&gt;', [{ text: 'a & b <c>' }]],
    ['an escape of an escape', '&amp;amp;', [{ text: '&amp;' }]],
    ['italics', 'a <i>b</i> c', [{ text: 'a ' }, { text: 'b', italic: true }, { text: ' c' }]],
    ['bold', '<b>1</b>', [{ text: '1', bold: true }]],
    ['superscript', '<sup>1</sup>', [{ text: '1', sup: true }]],
    ['subscript', 'C<sub>60</sub>', [{ text: 'C' }, { text: '60', sub: true }]],
    ['small capitals', `${SMALL_CAPS}Knuth</span>`, [{ text: 'Knuth', smallCaps: true }]],
    ['nesting', '<i>a<b>b</b></i>',
        [{ text: 'a', italic: true }, { text: 'b', italic: true, bold: true }]],
    ['adjacent equal runs', '<i>a</i><i>b</i>', [{ text: 'ab', italic: true }]],
    ['other scripts', '<i>こころ</i>', [{ text: 'こころ', italic: true }]],
    ['an unpaired surrogate', 'a\ud83d', [{ text: 'a\ud83d' }]],
];

const NOT_MARKUP = [
    ['a bare ampersand', 'Watson & Crick'],
    ['a bare less-than', 'a < b'],
    ['a bare greater-than', 'a > b'],
    ['an unknown tag', '<u>a</u>'],
    ['a tag in capitals', '<I>a</I>'],
    ['an attribute', '<i class="x">a</i>'],
    ['another style', '<span style="color:red;">a</span>'],
    ['a span without style', '<span>a</span>'],
    ['a div', '<div>a</div>'],
    ['an open tag', '<i>a'],
    ['only a closing tag', 'a</i>'],
    ['crossed tags', '<i><b>a</i></b>'],
    ['an unknown entity', 'a&nbsp;b'],
    ['a numeric entity', '&#38;'],
    ['a broken entity', '&amp'],
    ['a tag cut off', 'a <i'],
    ['a comment', '<!-- a -->'],
];

for (const [name, text, runs] of READ) {
    test(`reads ${name}`, () => {
        assert.deepStrictEqual(markup.parseMarkup(text), runs);
    });
    test(`writes back ${name}`, () => {
        const again = markup.parseMarkup(markup.writeMarkup(runs));
        assert.deepStrictEqual(again, runs);
    });
}

for (const [name, text] of NOT_MARKUP) {
    test(`treats ${name} as plain text`, () => {
        assert.strictEqual(markup.parseMarkup(text), null);
        assert.strictEqual(markup.plainText(markup.parseAnyText(text)), text);
    });
}

test('keeps a tag open across adjacent runs that share it', () => {
    const runs = [
        { text: 'a', italic: true }, { text: '&', italic: true, sup: true }, { text: 'c' },
    ];
    assert.strictEqual(markup.writeMarkup(runs), '<i>a<sup>&amp;</sup></i>c');
});

test('returns plain text without tags and escapes', () => {
    const runs = markup.parseMarkup('<i>Eats, Shoots &amp; Leaves</i><sup>2</sup>');
    assert.strictEqual(markup.plainText(runs), 'Eats, Shoots & Leaves2');
});

const PROCESSOR = [
    ['numeric escapes', 'a &#38; b &#60;i&#62;', 'a &amp; b &lt;i&gt;'],
    ['emphasis', '<em>a</em>', '<i>a</i>'],
    ['upright in italics', '<i>On <span style="font-style:normal;">C. elegans</span> now</i>',
        '<i>On </i>C. elegans<i> now</i>'],
    ['normal weight in bold', '<b>a<span style="font-weight:normal;">b</span></b>', '<b>a</b>b'],
    ['the baseline in superscript', '<sup>a<span style="baseline">b</span></sup>',
        '<sup>a</sup>b'],
    ['an underline', '<span style="text-decoration:underline;">a</span>', 'a'],
    ['a link', '<a href="https://doi.org/10.1/2">10.1/2</a>', '10.1/2'],
    ['a label in the margin',
        '  <div class="csl-entry">\n    <div class="csl-left-margin">[1]</div>'
        + '<div class="csl-right-inline">A. B.</div>\n  </div>\n', '[1]\tA. B.'],
    ['a block', '<div class="csl-entry">A.\n\n    <div class="csl-block">Note.</div>\n</div>',
        'A. Note.'],
    ['a tag that is never closed', '<i>a', '<i>a</i>'],
    ['a tag that was never open', 'a</i>', 'a'],
    ['a bare sign', 'a < b', 'a &lt; b'],
];

for (const [name, html, expected] of PROCESSOR) {
    test(`reduces ${name} to the subset`, () => {
        assert.strictEqual(markup.writeMarkup(markup.parseProcessorHtml(html)), expected);
    });
}
