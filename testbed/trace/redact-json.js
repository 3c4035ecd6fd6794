'use strict';

// Replaces the values in JSON text without changing its structure, its numbers, its keys, its size
// or how its characters are escaped.

const fs = require('node:fs');
const path = require('node:path');
const YAML = require('yaml');

const FIELD_CODE = 'ADDIN CSL_CITATION';
const TOKENS = /"(?:[^"\\]|\\[^])*"|[^"]+/g;
const UNITS = /\\u[0-9a-fA-F]{4}|\\[^]|[^]/g;
const CONTROLS = /[\u0000-\u001f]/g;

const csl = YAML.parse(fs.readFileSync(
    path.join(__dirname, '..', 'contract', 'citation.yaml'), 'utf8')).$defs;

// The values that stay, by key.
const ENUMERATED = {
    type: csl.itemData.properties.type.enum,
    label: csl.citeItem.properties.label.enum,
    processId: ['0'],
};

/** Whether a body is JSON for the bridge, which also accepts control characters in strings. */
function isJson(text) {
    try {
        JSON.parse(text.replace(/^\ufeff/, '').replace(CONTROLS, ' '));
        return true;
    } catch {
        return false;
    }
}

/** A text with `replace(value, key)` applied to each string value, if it is JSON, or to all of it. */
function redactText(text, replace) {
    return isJson(text) ? redactJson(text, replace) : replace(text, '');
}

function redactJson(json, replace) {
    const tokens = json.match(TOKENS) || [];
    let key = '';
    return tokens.map((token, index) => {
        if (!token.startsWith('"')) {
            return token;
        }
        if (/^\s*:/.test(tokens[index + 1] || '')) {
            key = token.slice(1, -1);
            return token;
        }
        return `"${redactString(token.slice(1, -1), key, replace)}"`;
    }).join('');
}

/** Redacts a JSON string without its quotes. An escaped character stays escaped in the same way. */
function redactString(raw, key, replace) {
    const units = raw.match(UNITS) || [];
    const value = units.map(unescape).join('');
    const redacted = redactValue(value, key, replace);
    return units.map((unit, index) => escapeLike(unit, redacted[index])).join('');
}

const SHORT = { b: '\b', f: '\f', n: '\n', r: '\r', t: '\t' };

function unescape(unit) {
    if (unit.length === 1) {
        return unit;
    }
    return unit.length === 6 ? String.fromCharCode(parseInt(unit.slice(2), 16)) : SHORT[unit[1]] ?? unit[1];
}

function escapeLike(unit, character) {
    if (unit.length === 6) {
        const hex = character.charCodeAt(0).toString(16).padStart(4, '0');
        return `\\u${/[A-F]/.test(unit) ? hex.toUpperCase() : hex}`;
    }
    // A short escape stands for a character that stays, or for a slash.
    return unit.length === 2 ? unit : character;
}

function redactValue(value, key, replace) {
    if (Object.hasOwn(ENUMERATED, key) && ENUMERATED[key].includes(value)) {
        return value;
    }
    if (value.startsWith(FIELD_CODE)) {
        const start = FIELD_CODE.length;
        const brace = value.indexOf('{');
        const cluster = brace < 0 ? '' : value.slice(brace);
        return isJson(cluster)
            ? FIELD_CODE + replace(value.slice(start, brace), key) + redactJson(cluster, replace)
            : FIELD_CODE + replace(value.slice(start), key);
    }
    return replace(value, key);
}

module.exports = { ENUMERATED, FIELD_CODE, redactText, redactValue };
