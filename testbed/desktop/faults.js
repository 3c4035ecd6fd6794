'use strict';

// Faults for tests. The fault file is a JSON object that maps paths to faults. It is read again for
// each request, so a test can change it while the application runs.

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
    const isValid = ([key, value]) => Object.hasOwn(FAULTS, key) && FAULTS[key](value);
    const invalid = Object.entries(fault).find((entry) => !isValid(entry));
    if (invalid) {
        throw new Error(`The fault file ${file} gives ${path} an invalid "${invalid[0]}".`);
    }
    return fault;
}

/** Returns the correct reply { status, body } with a fault. `body` is a value, not yet JSON. */
function applyFault(fault, { status, body }) {
    const reply = { status: fault.status || status, body };
    if (fault.status && fault.status !== 200) {
        reply.body = { error: `The fault file asks for the status ${fault.status}.` };
    }
    if (fault.extraCitations && Array.isArray(body.citationClusters)) {
        reply.body = { ...reply.body, citationClusters: resize(body.citationClusters, fault) };
    }
    if (fault.emptyBibliography) {
        reply.body = { ...reply.body, bibliography: '' };
    }
    return reply;
}

function resize(list, { extraCitations }) {
    const filler = list[list.length - 1] || {};
    const count = Math.max(list.length + extraCitations, 0);
    return Array.from({ length: count }, (_, index) => list[index] || filler);
}

module.exports = { faultOf, applyFault };
