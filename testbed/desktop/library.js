'use strict';

const fs = require('node:fs');
const path = require('node:path');

const { citationItemProblem } = require('./items');
const { isObject } = require('./json');

const OWN_LIBRARY = path.join(__dirname, 'library.json');

/** Reads a library, a JSON list of { uuid, itemData }. Throws an Error if it cannot be used. */
function openLibrary(file = OWN_LIBRARY) {
    const entries = JSON.parse(fs.readFileSync(file, 'utf8'));
    const problem = libraryProblem(entries);
    if (problem) {
        throw new Error(`The library ${file} cannot be used. ${problem}`);
    }
    return {
        entries,
        /** Returns the entry whose uuid or whose data's id is `key`, or undefined. */
        find: (key) => entries.find(({ uuid, itemData }) => key === uuid || key === itemData.id),
    };
}

function libraryProblem(entries) {
    if (!Array.isArray(entries)) {
        return 'It is not a list.';
    }
    const uuids = new Set();
    for (const [index, entry] of entries.entries()) {
        const problem = isObject(entry) && typeof entry.uuid === 'string'
            ? citationItemProblem(entry) : 'It has no "uuid".';
        if (problem) {
            return `Entry ${index + 1}: ${problem}`;
        }
        if (uuids.has(entry.uuid)) {
            return `Entry ${index + 1}: Another entry has the same "uuid".`;
        }
        uuids.add(entry.uuid);
    }
    return '';
}

/** Returns the citation item for an entry, with the `details` of this citation. */
function citationItem({ uuid, itemData }, details = {}) {
    return { id: itemData.id, uris: [`urn:uuid:${uuid}`], itemData, ...details };
}

/** Describes an entry for a person, such as "Knuth 1984, Literate Programming". */
function describeEntry({ itemData }) {
    const names = (itemData.author || itemData.editor || [])
        .map((name) => name.family || name.literal || name.given);
    const who = names.length > 3 ? `${names[0]} et al.` : names.join(', ');
    const [[year]] = (itemData.issued || {})['date-parts'] || [[]];
    return `${who} ${year || 'undated'}, ${itemData.title}`;
}

module.exports = { openLibrary, citationItem, describeEntry };
