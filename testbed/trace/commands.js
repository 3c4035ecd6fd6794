'use strict';

// The command of the bridge that sends a request, and its arguments.

const codes = (entries) => entries.map(({ fieldCode }) => fieldCode);

// Several commands send /tessaronDesktopInfo. isTessaronRunning is the one that sends it once and
// cannot start the application.
const COMMANDS = {
    '/tessaronDesktopInfo': () => ['isTessaronRunning'],
    '/wordProcessor/set': ({ wordProcessor, version }) => ['setWordProcessor', wordProcessor, version],
    '/userAccount': () => ['getUserAccount'],
    '/userUuid': () => ['getUserUuid'],
    '/citationStyles/default': () => ['getRecentStyles'],
    '/citationStyle/selected': () => ['getDesktopCitationStyleId'],
    '/citationStyle/choose/interactive': ({ currentStyleUrl }) =>
        ['getCitationStyleFromDialog', currentStyleUrl],
    '/citation/choose/interactive': () => ['getFieldCodeFromCitationEditor', ''],
    '/citation/edit/interactive': ({ fieldCode }) => ['getFieldCodeFromCitationEditor', fieldCode],
    '/testMethods/citationCluster/getFromUuid': ({ documentUuid }) =>
        ['getFieldCodeFromUuid', documentUuid],
    '/citations/merge': ({ citationClusters }) => ['mergeFields', ...codes(citationClusters)],
    '/citation/update/interactive': ({ fieldCode, formattedText }) =>
        ['checkManualFormatAndGetFieldCode', fieldCode, formattedText],
    '/citation/undoManualFormat': ({ fieldCode }) => ['undoManualFormat', fieldCode],
    '/formattedCitationsAndBibliography/interactive': ({ citationStyleUrl, citationClusters }) =>
        ['formatCitationsAndBibliography', citationStyleUrl,
            ...citationClusters.flatMap(({ fieldCode, formattedText }) => [fieldCode, formattedText])],
};

/** Returns { command, args } of a request, or null if no command sends it. `body` is its JSON. */
function commandOf(path, body) {
    if (!Object.hasOwn(COMMANDS, path)) {
        return null;
    }
    try {
        const [command, ...args] = COMMANDS[path](body === '' ? {} : JSON.parse(body));
        return args.every((argument) => typeof argument === 'string') ? { command, args } : null;
    } catch {
        return null;
    }
}

module.exports = { commandOf };
