'use strict';

// Validates CSL-JSON from a document before it is passed to the CSL processor. For a value of the
// wrong type the processor throws an unclear error or returns a wrong text.

const { isObject, withPlainNumbers } = require('./json');

const NAMES = new Set(['author', 'chair', 'collection-editor', 'compiler', 'composer',
    'container-author', 'contributor', 'curator', 'director', 'editor', 'editor-translator',
    'editorial-director', 'executive-producer', 'guest', 'host', 'illustrator', 'interviewer',
    'narrator', 'organizer', 'original-author', 'performer', 'producer', 'recipient',
    'reviewed-author', 'script-writer', 'series-creator', 'translator']);
const DATES = new Set(['accessed', 'available-date', 'event-date', 'issued', 'original-date',
    'submitted']);

const NAME_PARTS = ['family', 'given', 'literal', 'suffix', 'dropping-particle',
    'non-dropping-particle'];
const CITE_TEXTS = ['locator', 'label', 'prefix', 'suffix'];
const CITE_FLAGS = ['suppress-author', 'author-only'];

const isText = (value) => typeof value === 'string' || typeof value === 'number';

/** Returns a sentence about an invalid entry of "citationItems", or '' if it is valid. */
function citationItemProblem(item) {
    if (!isObject(item)) {
        return 'An entry of "citationItems" is not an object.';
    }
    const text = CITE_TEXTS.find((key) => isSet(item[key]) && !isText(plain(item[key])));
    if (text) {
        return `The "${text}" of a citation item is not a text.`;
    }
    const flag = CITE_FLAGS.find((key) => isSet(item[key]) && !isFlag(item[key]));
    if (flag) {
        return `The "${flag}" of a citation item is neither true nor false.`;
    }
    if (item.uris !== undefined && !isListOf(item.uris, (uri) => typeof uri === 'string')) {
        return 'The "uris" of a citation item are not a list of texts.';
    }
    return itemDataProblem(item.itemData);
}

function itemDataProblem(data) {
    if (!isObject(data)) {
        return 'A citation item has no "itemData" object.';
    }
    if (typeof data.type !== 'string' || data.type === '') {
        return 'The "itemData" of a citation item has no "type".';
    }
    for (const [key, value] of Object.entries(withPlainNumbers(data))) {
        if (isSet(value) && NAMES.has(key) && !isListOf(value, isName)) {
            return `The "${key}" of a citation item is not a list of names.`;
        }
        if (isSet(value) && DATES.has(key) && !isDate(value)) {
            return `The "${key}" of a citation item is not a date.`;
        }
    }
    return '';
}

const plain = withPlainNumbers;
const isSet = (value) => value !== undefined && value !== null;
const isFlag = (value) => typeof value === 'boolean' || value === 0 || value === 1;
const isListOf = (value, test) => Array.isArray(value) && value.every(test);

function isName(value) {
    const parts = isObject(value) ? NAME_PARTS.filter((key) => isSet(value[key])) : [];
    return parts.length > 0 && parts.every((key) => typeof value[key] === 'string');
}

function isDate(value) {
    if (!isObject(value)) {
        return false;
    }
    const parts = value['date-parts'];
    return parts === undefined
        ? isText(value.raw) || isText(value.literal)
        : isListOf(parts, (part) => isListOf(part, isText)) && parts.length > 0;
}

/** Returns the part of an item's data that the CSL processor formats, with numbers as strings. */
function printableData(data) {
    const entries = Object.entries(withPlainNumbers(data));
    const texts = entries.filter(([, value]) => isText(value))
        .map(([key, value]) => [key, String(value)]);
    const others = entries.filter(([key, value]) =>
        isSet(value) && (NAMES.has(key) || DATES.has(key)));
    return withoutControls(Object.fromEntries([...texts, ...others]));
}

function printableCite(item) {
    const texts = CITE_TEXTS.filter((key) => isSet(item[key]))
        .map((key) => [key, String(plain(item[key]))]);
    const flags = CITE_FLAGS.filter((key) => isSet(item[key]))
        .map((key) => [key, Boolean(plain(item[key]))]);
    return withoutControls(Object.fromEntries([...texts, ...flags]));
}

/** Replaces line breaks and tabs by spaces and removes other control characters. */
function withoutControls(value) {
    if (typeof value === 'string') {
        return value.replace(/[\t-\r]+/g, ' ').replace(/[\u0000-\u001f\u007f]/g, '');
    }
    if (Array.isArray(value)) {
        return value.map(withoutControls);
    }
    if (isObject(value)) {
        return Object.fromEntries(Object.entries(value)
            .map(([key, inner]) => [key, withoutControls(inner)]));
    }
    return value;
}

module.exports = { citationItemProblem, printableData, printableCite };
