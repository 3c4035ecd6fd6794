'use strict';

// Clusters pass through this application and back into the document, so they are read without
// losing what a double cannot hold: such numbers stay as text inside a LosslessNumber and are
// written as they came. All other numbers are ordinary ones.

const { parse, stringify, isLosslessNumber, isSafeNumber, LosslessNumber } =
    require('lossless-json');

const readNumber = (text) => (isSafeNumber(text) ? Number(text) : new LosslessNumber(text));
const takeLast = () => undefined;

// The library would set the prototype of an object for this key instead of a member.
const PROTOTYPE_KEY = /"(?:_|\\u005[fF]){2}proto(?:_|\\u005[fF]){2}"\s*:/;

/** The value of a JSON text; throws a SyntaxError when it is none. */
function readJson(text) {
    if (PROTOTYPE_KEY.test(text)) {
        throw new SyntaxError('the key "__proto__" is not allowed');
    }
    return parse(text, undefined, { parseNumber: readNumber, onDuplicateKey: takeLast });
}

function writeJson(value) {
    return stringify(value);
}

/** A copy in which every number is an ordinary one, for code that cannot know of the others. */
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
