'use strict';

// Reads and writes JSON without loss, because clusters pass through the application and back into
// the document. A number that a double cannot represent becomes a LosslessNumber, which keeps its text.
// All other numbers are ordinary numbers.

const { parse, stringify, isLosslessNumber, isSafeNumber, LosslessNumber } =
    require('lossless-json');

const readNumber = (text) => (isSafeNumber(text) ? Number(text) : new LosslessNumber(text));
const takeLast = () => undefined;

// For the key "__proto__" the library sets the prototype of an object instead of a member.
const PROTOTYPE_KEY = /"(?:_|\\u005[fF]){2}proto(?:_|\\u005[fF]){2}"\s*:/;

/** Parses JSON. Throws a SyntaxError if it is malformed. */
function readJson(text) {
    if (PROTOTYPE_KEY.test(text)) {
        throw new SyntaxError('the key "__proto__" is not allowed');
    }
    return parse(text, undefined, { parseNumber: readNumber, onDuplicateKey: takeLast });
}

function writeJson(value) {
    return stringify(value);
}

/** Returns a copy with ordinary numbers only, for code that does not know LosslessNumber. */
function withPlainNumbers(value) {
    if (isLosslessNumber(value)) {
        return Number(value.value);
    }
    if (Array.isArray(value)) {
        return value.map(withPlainNumbers);
    }
    if (isObject(value)) {
        const entries = Object.entries(value);
        return Object.fromEntries(entries.map(([key, inner]) => [key, withPlainNumbers(inner)]));
    }
    return value;
}

function isObject(value) {
    return typeof value === 'object' && value !== null && !Array.isArray(value)
        && !isLosslessNumber(value);
}

module.exports = { readJson, writeJson, withPlainNumbers, isObject };
