'use strict';

const CSL = require('citeproc');

const { ApiError } = require('./errors');
const { isObject, writeJson } = require('./json');
const { printableCite, printableData } = require('./items');
const { parseProcessorHtml } = require('./markup');

// The processor would print debug messages to standard output.
CSL.debug = () => {};

const LANGUAGE = 'en-US';

/**
 * Formats all citations of a document in order. Returns { texts, bibliography }: the runs of each
 * citation, and the runs of each entry (no entries if the style has no bibliography). Throws an
 * ApiError with the index of the citation if the processor cannot format one.
 */
function formatDocument(style, styles, clusters) {
    const attempt = (count) => runProcessor(style, styles, clusters.slice(0, count));
    try {
        return attempt(clusters.length);
    } catch (error) {
        const citationIndex = firstFailure(attempt, clusters.length);
        if (citationIndex < 0) {
            throw error;
        }
        throw new ApiError(422, `Citation ${citationIndex + 1} cannot be formatted: `
            + `${error.message || error}`, { citationIndex });
    }
}

/** Returns the index of the first citation that cannot be formatted, or -1. */
function firstFailure(attempt, total) {
    const fails = (count) => {
        try {
            attempt(count);
            return false;
        } catch {
            return true;
        }
    };
    let good = -1;
    let bad = total;
    while (bad - good > 1) {
        const middle = Math.floor((good + bad) / 2);
        if (fails(middle)) {
            bad = middle;
        } else {
            good = middle;
        }
    }
    return bad - 1;
}

function runProcessor(style, styles, clusters) {
    const works = new Map();
    const ids = clusters.map((cluster) => cluster.citationItems.map((item) => workId(works, item)));
    const items = Object.fromEntries([...works.values()].map((work) => [work.id, work]));
    const system = {
        retrieveLocale: (language) => styles.locale(language),
        retrieveItem: (id) => items[id],
    };
    const engine = new CSL.Engine(system, style.xml, LANGUAGE);
    const notes = noteNumbers(clusters, engine.opt.xclass === 'note');
    const citations = clusters.map((cluster, index) => ({
        citationID: `citation-${index}`,
        citationItems: cluster.citationItems
            .map((item, place) => ({ id: ids[index][place], ...printableCite(item) })),
        properties: { noteIndex: notes[index] },
    }));
    const texts = engine.rebuildProcessorState(citations, 'html').map((triple) => triple[2]);
    const [, entries] = engine.makeBibliography() || [{}, []];
    return {
        texts: texts.map(parseProcessorHtml),
        bibliography: entries.map(parseProcessorHtml),
    };
}

/**
 * Returns the id of a work in this run. An id in a document is valid only within its citation, so
 * two items are the same work if their first URIs are equal or, without URIs, their data.
 */
function workId(works, item) {
    const { id, ...data } = item.itemData;
    const key = Array.isArray(item.uris) && item.uris[0] ? item.uris[0] : writeJson(data);
    if (!works.has(key)) {
        works.set(key, { ...printableData(data), id: `work-${works.size}` });
    }
    return works.get(key).id;
}

/**
 * Returns the note number of each citation. The numbers in the citations may be outdated. A citation
 * whose number is less than the previous one is assumed to be in a new note.
 */
function noteNumbers(clusters, isNoteStyle) {
    let last = 0;
    return clusters.map((cluster) => {
        const own = isObject(cluster.properties) ? cluster.properties.noteIndex : 0;
        const number = Number.isSafeInteger(own) && own > 0 ? own : 0;
        if (!isNoteStyle) {
            return number;
        }
        last = number >= last && number > 0 ? number : last + 1;
        return last;
    });
}

module.exports = { formatDocument };
