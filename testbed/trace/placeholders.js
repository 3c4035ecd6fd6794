'use strict';

// Placeholders: each character is replaced by a character of the same kind, so that only the length,
// the script and the letter case of a text remain. All characters of a kind get the same placeholder.

const UNASSIGNED = /^\p{Cn}$/u;
// Characters that stay: quotes, backslashes, control characters and unpaired surrogates, which JSON
// escapes; spaces; and the byte order mark.
const STAYS = /^["\\\p{Cc}\p{Cs}\p{Z}\ufeff]$/u;
const KINDS = [
    ['upper', /^\p{Lu}$/u], ['lower', /^\p{Ll}$/u], ['letter', /^\p{L}$/u], ['digit', /^\p{N}$/u],
    ['mark', /^\p{M}$/u], ['symbol', /^[^]$/u],
];
const SCRIPTS = ['Latin', 'Greek', 'Cyrillic', 'Han', 'Hiragana', 'Katakana', 'Hangul', 'Hebrew',
    'Arabic', 'Armenian', 'Georgian', 'Devanagari', 'Bengali', 'Gurmukhi', 'Gujarati', 'Oriya', 'Tamil',
    'Telugu', 'Kannada', 'Malayalam', 'Sinhala', 'Thai', 'Lao', 'Tibetan', 'Myanmar', 'Khmer',
    'Mongolian', 'Ethiopic', 'Cherokee', 'Syriac', 'Thaana', 'Bopomofo', 'Gothic', 'Coptic']
    .map((name) => [name, new RegExp(`^\\p{Script=${name}}$`, 'u')]);
// By length in UTF-8: the first and the last code point to try, without the rare ones at the end.
const RANGES = { 1: [0x21, 0x7f], 2: [0x80, 0x7ff], 3: [0x800, 0xffff], 4: [0x10000, 0x1ffff] };
const VARIANTS = 26;
const choicesByKind = new Map(); // a cache

/** Returns the kind of a character: category, script, and length in UTF-8. */
function kindOf(character) {
    const [category] = KINDS.find(([, pattern]) => pattern.test(character));
    const [script] = SCRIPTS.find(([, pattern]) => pattern.test(character)) || ['Common'];
    return `${category} ${script} ${Buffer.byteLength(character)}`;
}

/** Returns the possible placeholders of a kind: its first characters. */
function choicesOf(kind) {
    if (!choicesByKind.has(kind)) {
        const [category, script, size] = kind.split(' ');
        const patterns = [KINDS, SCRIPTS].map((table) => table.find(([name]) =>
            name === category || name === script)).filter(Boolean);
        const choices = [];
        const [first, last] = RANGES[size];
        for (let point = first; point <= last && choices.length < VARIANTS; point += 1) {
            const character = String.fromCodePoint(point);
            // The digit 0 could turn a number into zero, and a slash may be escaped.
            if (patterns.every(([, pattern]) => pattern.test(character)) && !/[0/]/.test(character)
                && !STAYS.test(character) && !UNASSIGNED.test(character)
                && kindOf(character) === kind) {
                choices.push(character);
            }
        }
        choicesByKind.set(kind, choices);
    }
    return choicesByKind.get(kind);
}

function choose(kind, variant) {
    const choices = choicesOf(kind);
    // The only character of a kind would be its own placeholder, so it becomes a symbol instead.
    return choices.length > 1 ? choices[variant % choices.length]
        : choose(`symbol Common ${kind.split(' ')[2]}`, variant);
}

/**
 * Returns a function that replaces the characters of a text by placeholders. `variant` selects one of the
 * possible placeholders of each kind.
 */
function createPlaceholders(variant) {
    const byCharacter = new Map();
    const byKind = new Map();
    const placeholderOf = (character) => {
        if (STAYS.test(character)) {
            return character;
        }
        const kind = kindOf(character);
        if (!byKind.has(kind)) {
            byKind.set(kind, choose(kind, variant));
        }
        return byKind.get(kind);
    };
    return (text) => {
        let result = '';
        for (const character of text) {
            if (!byCharacter.has(character)) {
                byCharacter.set(character, placeholderOf(character));
            }
            result += byCharacter.get(character);
        }
        return result;
    };
}

module.exports = { VARIANTS, createPlaceholders };
