'use strict';

const fs = require('node:fs');
const path = require('node:path');

const { citationItemProblem } = require('./items');
const { isObject } = require('./json');

const OWN_LIBRARY = path.join(__dirname, 'library.json');

/** Reads a library, a JSON list of { uuid, itemData }. Throws an Error that says why it cannot. */
function openLibrary(file = OWN_LIBRARY) {
    const entries = JSON.parse(fs.readFileSync(file, 'utf8'));
    const problem = libraryProblem(entries);
    if (problem) {
        throw new Error(`The library ${file} cannot be used. ${problem}`);
    }
    return {
        entries,
        /** The entry with this uuid, or with this id of its data; undefined when there is none. */
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

/** The library's entry as it stands in a citation, with what only this citation says of it. */
function citationItem({ uuid, itemData }, details = {}) {
    return { id: itemData.id, uris: [`urn:uuid:${uuid}`], itemData, ...details };
}

/** "Knuth 1984, Literate Programming": how a person recognises an entry. */
function describeEntry({ itemData }) {
    const names = (itemData.author || itemData.editor || [])
        .map((name) => name.family || name.literal || name.given);
    const who = names.length > 3 ? `${names[0]} et al.` : names.join(', ');
    const [[year]] = (itemData.issued || {})['date-parts'] || [[]];
    return `${who} ${year || 'undated'}, ${itemData.title}`;
}

module.exports = { openLibrary, citationItem, describeEntry };
