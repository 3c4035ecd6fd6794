'use strict';

// Replaces the values in JSON text without changing its structure, its numbers, its keys, its size
// or how its characters are escaped.

const fs = require('node:fs');
const path = require('node:path');
const YAML = require('yaml');

const FIELD_CODE = 'ADDIN CSL_CITATION';
const ESCAPES = /\\u[0-9a-fA-F]{4}|\\[^]/g;
const CONTROLS = /[\u0000-\u001f]/g;

const csl = YAML.parse(fs.readFileSync(
    path.join(__dirname, '..', 'contract', 'citation.yaml'), 'utf8')).$defs;

// By key, the values that are not replaced.
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

/** Applies `replace(value, key)` to each string value of a JSON text, or to the whole text if not JSON. */
function redactText(text, replace) {
    return isJson(text) ? redactJson(text, replace) : replace(text, '');
}

function redactJson(json, replace) {
    const parts = [];
    let key = '';
    let end = 0;
    for (let start = json.indexOf('"'); start >= 0; start = json.indexOf('"', end)) {
        parts.push(json.slice(end, start));
        end = endOfString(json, start);
        const raw = json.slice(start + 1, end - 1);
        if (/^\s*:/.test(json.slice(end, end + 100))) {
            key = raw;
            parts.push(json.slice(start, end));
        } else {
            parts.push('"', redactString(raw, key, replace), '"');
        }
    }
    return parts.join('') + json.slice(end);
}

/** Returns the index after the JSON string at `start`. A pattern could fail on a very long string. */
function endOfString(json, start) {
    let end = start + 1;
    while (json[end] !== '"') {
        end += json[end] === '\\' ? 2 : 1;
    }
    return end + 1;
}

/** Redacts a JSON string without its quotes. An escaped character stays escaped in the same way. */
function redactString(raw, key, replace) {
    const redacted = redactValue(raw.replace(ESCAPES, unescape), key, replace);
    let result = '';
    let done = 0; // in `raw`
    let used = 0; // in `redacted`
    for (const { 0: unit, index } of raw.matchAll(ESCAPES)) {
        const escaped = used + index - done;
        result += redacted.slice(used, escaped) + escapeLike(unit, redacted[escaped]);
        used = escaped + 1;
        done = index + unit.length;
    }
    return result + redacted.slice(used);
}

const SHORT = { b: '\b', f: '\f', n: '\n', r: '\r', t: '\t' };

function unescape(unit) {
    return unit.length === 6 ? String.fromCharCode(parseInt(unit.slice(2), 16)) : SHORT[unit[1]] ?? unit[1];
}

function escapeLike(unit, character) {
    if (unit.length === 6) {
        const hex = character.charCodeAt(0).toString(16).padStart(4, '0');
        return `\\u${/[A-F]/.test(unit) ? hex.toUpperCase() : hex}`;
    }
    return unit; // a character that is not replaced, or a slash
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

module.exports = { ENUMERATED, FIELD_CODE, redactText };
