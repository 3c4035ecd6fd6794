'use strict';

// Faults for tests. The fault file is a JSON object from path to fault. It is read again for each
// request, so a test can change it while the application runs.

const fs = require('node:fs');

const { isObject } = require('./json');

const PLACES = ['beforeStatus', 'afterHeaders', 'inBody'];
const isCount = (value) => Number.isSafeInteger(value);

const FAULTS = {
    delayMs: (value) => isCount(value) && value >= 0,
    drop: (value) => PLACES.includes(value),
    status: (value) => isCount(value) && value >= 200 && value <= 599,
    body: (value) => typeof value === 'string',
    extraCitations: isCount,
    emptyBibliography: (value) => typeof value === 'boolean',
};

/** Returns the fault of a path, {} if it has none. Throws an Error if the file is invalid. */
function faultOf(file, path) {
    if (!file) {
        return {};
    }
    const all = JSON.parse(fs.readFileSync(file, 'utf8'));
    const fault = isObject(all) && Object.hasOwn(all, path) ? all[path] : {};
    if (!isObject(all) || !isObject(fault)) {
        throw new Error(`The fault file ${file} does not give an object for ${path}.`);
    }
    const isRight = ([key, value]) => Object.hasOwn(FAULTS, key) && FAULTS[key](value);
    const wrong = Object.entries(fault).find((entry) => !isRight(entry));
    if (wrong) {
        throw new Error(`The fault file ${file} gives ${path} an unknown "${wrong[0]}".`);
    }
    return fault;
}

/** Applies a fault to the correct reply { status, body }. `body` is a value, not yet JSON. */
function spoil(fault, { status, body }) {
    const spoilt = { status: fault.status || status, body };
    if (fault.status && fault.status !== 200) {
        spoilt.body = { error: `This failure with status ${fault.status} was asked for.` };
    }
    if (fault.extraCitations && Array.isArray(body.citationClusters)) {
        spoilt.body = { ...spoilt.body, citationClusters: resize(body.citationClusters, fault) };
    }
    if (fault.emptyBibliography) {
        spoilt.body = { ...spoilt.body, bibliography: '' };
    }
    return spoilt;
}

function resize(list, { extraCitations }) {
    const filler = list[list.length - 1] || {};
    const count = Math.max(list.length + extraCitations, 0);
    return Array.from({ length: count }, (_, index) => list[index] || filler);
}

module.exports = { faultOf, spoil };
