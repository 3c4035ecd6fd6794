'use strict';

const SHOWN_LENGTH = 80;

/** Returns the place of the first difference between two requests and their values there, or ''. */
function firstDifference(recorded, received) {
    if (recorded.method !== received.method || recorded.path !== received.path) {
        return `in its method or path: the trace has ${recorded.method} ${recorded.path}, `
            + `but the bridge sent ${received.method} ${received.path}`;
    }
    if (recorded.body.equals(received.body)) {
        return '';
    }
    const [before, now] = [parse(recorded.body), parse(received.body)];
    if (before === undefined || now === undefined) {
        return describeDifference('in the body', recorded.body.toString(), received.body.toString());
    }
    return valueDifference(before, now, '');
}

function parse(body) {
    try {
        return JSON.parse(body);
    } catch {
        return undefined;
    }
}

const isContainer = (value) => typeof value === 'object' && value !== null;

function valueDifference(before, now, pointer) {
    // Each run has another folder.
    if (before === now || (pointer === '/tempDirectory' && typeof now === typeof before)) {
        return '';
    }
    if (!isContainer(before) || !isContainer(now) || Array.isArray(before) !== Array.isArray(now)) {
        return describeDifference(pointer ? `at ${pointer}` : 'in the body', before, now);
    }
    const keys = new Set([...Object.keys(before), ...Object.keys(now)]);
    for (const key of keys) {
        const difference = valueDifference(before[key], now[key], `${pointer}/${key}`);
        if (difference) {
            return difference;
        }
    }
    return '';
}

function describeDifference(where, before, now) {
    const [first, second] = [before, now].map((value) => JSON.stringify(value) ?? 'nothing');
    let same = 0;
    while (same < first.length && first[same] === second[same]) {
        same += 1;
    }
    const from = Math.max(0, same - SHOWN_LENGTH / 2);
    const show = (text) => `${from > 0 ? '...' : ''}${text.slice(from, from + SHOWN_LENGTH)}`
        + `${text.length > from + SHOWN_LENGTH ? '...' : ''}`;
    return `${where}: the trace has ${show(first)}, but the bridge sent ${show(second)}`;
}

module.exports = { firstDifference };
