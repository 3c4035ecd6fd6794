'use strict';

// A citation cluster is the JSON object in a citation field of a document. The object under
// "tessaron" belongs to this application. All other unknown keys stay unchanged.

const crypto = require('node:crypto');

const { ApiError } = require('./errors');
const { citationItemProblem } = require('./items');
const { isObject, readJson } = require('./json');
const { parseAnyText, plainText, writeMarkup } = require('./markup');

const PREFIX = /^ADDIN\s+CSL_CITATION/;
const SCHEMA = 'https://github.com/citation-style-language/schema/raw/master/csl-citation.json';

/** Returns the cluster in a field code. Throws an ApiError if it cannot be read. */
function readFieldCode(fieldCode) {
    const text = fieldCode.trim();
    const [prefix] = PREFIX.exec(text) || [];
    if (prefix === undefined) {
        throw unreadable('it does not begin with "ADDIN CSL_CITATION"');
    }
    // Anything else before the JSON, such as a second space, is ignored.
    const json = text.slice(prefix.length);
    const cluster = readCluster(json.slice(Math.max(json.indexOf('{'), 0)));
    if (!isObject(cluster)) {
        throw unreadable('its JSON is not an object');
    }
    if (!Array.isArray(cluster.citationItems) || cluster.citationItems.length === 0) {
        throw unreadable('it has no "citationItems"');
    }
    if (cluster.tessaron !== undefined && !isObject(cluster.tessaron)) {
        throw unreadable('its "tessaron" is not an object');
    }
    const problem = cluster.citationItems.map(citationItemProblem).find((found) => found);
    if (problem) {
        throw new ApiError(422, `The citation cannot be read. ${problem}`);
    }
    return cluster;
}

function readCluster(json) {
    try {
        return readJson(json);
    } catch (error) {
        throw unreadable(error instanceof RangeError
            ? 'its JSON is nested too deeply' : `its JSON is malformed: ${error.message}`);
    }
}

function unreadable(reason) {
    return new ApiError(422, `The field code of a citation cannot be read: ${reason}.`);
}

/** Returns the clusters of several field codes. The ApiError for an unreadable one has its index. */
function readFieldCodes(entries) {
    return entries.map(({ fieldCode }, index) => {
        try {
            return readFieldCode(fieldCode);
        } catch (error) {
            throw error instanceof ApiError
                ? new ApiError(error.status, `Citation ${index + 1}: ${error.message}`,
                    { citationIndex: index })
                : error;
        }
    });
}

function newCluster(citationItems) {
    return {
        citationID: crypto.randomBytes(6).toString('hex'),
        citationItems,
        properties: { noteIndex: 0 },
        schema: SCHEMA,
    };
}

/** Replaces the works of a citation and removes its texts, which belong to the old works. */
function withItems(cluster, citationItems) {
    return { ...withoutTexts(cluster), citationItems };
}

/** Merges clusters into one with all works. For other keys the first cluster takes precedence. */
function mergeClusters(clusters) {
    const tessaron = clusters.map((cluster) => cluster.tessaron || {});
    const merged = {
        ...Object.assign({}, ...[...clusters].reverse()),
        tessaron: Object.assign({}, ...tessaron.reverse()),
        citationItems: clusters.flatMap((cluster) => cluster.citationItems),
    };
    return withoutTexts(merged);
}

function withoutTexts(cluster) {
    const { manualFormatting, previouslyFormattedCitation, plainTextFormattedCitation, ...rest } =
        cluster.tessaron || {};
    const { tessaron, ...others } = cluster;
    return Object.keys(rest).length > 0 ? { ...others, tessaron: rest } : others;
}

/** Returns { cluster, text }: the text for the document, and the cluster that records it. */
function withFormattedText(cluster, runs) {
    const manual = manualText(cluster);
    const shown = manual === undefined ? runs : parseAnyText(manual);
    const text = writeMarkup(shown);
    const tessaron = {
        ...cluster.tessaron,
        previouslyFormattedCitation: text,
        plainTextFormattedCitation: plainText(shown),
    };
    return { text, cluster: { ...cluster, tessaron } };
}

function manualText(cluster) {
    const manual = (cluster.tessaron || {}).manualFormatting;
    return typeof manual === 'string' ? manual : undefined;
}

/** Whether the text in the document differs from the text that was last written there. */
function isEdited(cluster, text) {
    const found = parseAnyText(text);
    const markup = writeMarkup(found);
    const manual = manualText(cluster);
    const { previouslyFormattedCitation, plainTextFormattedCitation } = cluster.tessaron || {};
    const shown = manual === undefined ? previouslyFormattedCitation : manual;
    if (typeof shown !== 'string') {
        return plainTextFormattedCitation !== plainText(found);
    }
    const expected = parseAnyText(shown);
    // A macro that reads plain text loses the italics. This is not an edit.
    const isPlain = found.every((run) => Object.keys(run).length === 1);
    return isPlain ? plainText(found) !== plainText(expected) : markup !== writeMarkup(expected);
}

function withManualText(cluster, text) {
    const manualFormatting = writeMarkup(parseAnyText(text));
    return { ...cluster, tessaron: { ...cluster.tessaron, manualFormatting } };
}

function withoutManualText(cluster) {
    if (!cluster.tessaron) {
        return cluster;
    }
    const { manualFormatting, ...tessaron } = cluster.tessaron;
    return { ...cluster, tessaron };
}

module.exports = {
    SCHEMA,
    readFieldCode,
    readFieldCodes,
    newCluster,
    withItems,
    mergeClusters,
    withFormattedText,
    isEdited,
    withManualText,
    withoutManualText,
    withoutTexts,
};
