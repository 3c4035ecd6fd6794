'use strict';

const app = require('./app');
const { ApiError } = require('./errors');
const { isObject } = require('./json');

const text = { fits: (value) => typeof value === 'string', name: 'a text' };
const processId = { fits: Number.isSafeInteger, name: 'a whole number' };
const list = { fits: Array.isArray, name: 'a list' };

const fieldCode = { fieldCode: text };
const fieldCodeAndText = { fieldCode: text, formattedText: text };

const get = (operation) => ({ method: 'GET', keys: {}, operation });
const post = (keys, operation, entries) => ({ method: 'POST', keys, operation, entries });

// `entries` are the keys of each object in the list "citationClusters".
const ROUTES = {
    '/tessaronDesktopInfo': get(app.desktopInfo),
    '/allowSetFocus': post({ processId }, app.allowSetFocus),
    '/wordProcessor/set': post({ wordProcessor: text, version: text }, app.setWordProcessor),
    '/userAccount': get(app.userAccount),
    '/userUuid': get(app.userUuid),
    '/citationStyles/default': get(app.defaultStyles),
    '/citationStyle/selected': get(app.selectedStyle),
    '/citationStyle/choose/interactive': post({ currentStyleUrl: text }, app.chooseStyle),
    '/citation/choose/interactive': post({}, app.chooseCitation),
    '/citation/edit/interactive': post(fieldCode, app.editCitation),
    '/testMethods/citationCluster/getFromUuid': post({ documentUuid: text }, app.clusterFromUuid),
    '/citations/merge': post({ citationClusters: list }, app.mergeCitations, fieldCode),
    '/citation/update/interactive': post(fieldCodeAndText, app.updateCitation),
    '/citation/undoManualFormat': post(fieldCode, app.undoManualFormat),
    '/formattedCitationsAndBibliography/interactive': post(
        { citationStyleUrl: text, citationClusters: list, tempDirectory: text },
        app.formatAll, fieldCodeAndText),
};

/** Returns the route of a request. Throws an ApiError if the API has no such path or method. */
function findRoute(method, path) {
    const route = Object.hasOwn(ROUTES, path) && ROUTES[path];
    if (!route) {
        throw new ApiError(404, `The path ${path} is not known here.`);
    }
    if (route.method !== method) {
        throw new ApiError(405, `The path ${path} accepts ${route.method}, not ${method}.`,
            {}, { Allow: route.method });
    }
    return route;
}

/** Throws an ApiError if the body of a request lacks a key or has a value of the wrong type. */
function checkBody(route, body) {
    if (!isObject(body)) {
        throw new ApiError(400, 'The body of the request is not a JSON object.');
    }
    checkKeys(body, route.keys, 'The request', {});
    if (route.entries) {
        body.citationClusters.forEach((entry, citationIndex) => {
            const what = `Citation ${citationIndex + 1}`;
            if (!isObject(entry)) {
                throw new ApiError(400, `${what} is not a JSON object.`, { citationIndex });
            }
            checkKeys(entry, route.entries, what, { citationIndex });
        });
    }
}

function checkKeys(body, keys, what, extra) {
    for (const [key, type] of Object.entries(keys)) {
        if (!Object.hasOwn(body, key)) {
            throw new ApiError(400, `${what} has no "${key}".`, extra);
        }
        if (!type.fits(body[key])) {
            throw new ApiError(400, `${what} has a "${key}" that is not ${type.name}.`, extra);
        }
    }
}

module.exports = { ROUTES, findRoute, checkBody };
