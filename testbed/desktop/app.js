'use strict';

// The application's state and one operation for each path of its local API. An operation takes the
// state and the validated request body. It returns the body of the reply or throws an ApiError.

const clusters = require('./clusters');
const { ApiError } = require('./errors');
const dialogs = require('./dialogs');
const { formatDocument } = require('./formatter');
const { citationItem } = require('./library');
const { writeMarkup } = require('./markup');
const { resolveStyle } = require('./styles');

const DEFAULT_STYLES = [
    'apa', 'ieee', 'chicago-fullnote-bibliography', 'chicago-author-date', 'nature',
].map((name) => `http://www.zotero.org/styles/${name}`);
const RECENT_STYLES = 10;

/** Creates an application. `settings` may hold account, uuid, selectedStyle and recentStyles. */
function createApp({ styles, library, settings = {} }) {
    const { recentStyles = DEFAULT_STYLES, selectedStyle = recentStyles[0] } = settings;
    const unknown = [...recentStyles, selectedStyle].find((id) => !styles.find(id));
    if (unknown !== undefined) {
        throw new Error(`The citation style "${unknown}" is not installed in ${styles.folder}.`);
    }
    return {
        styles,
        library,
        dialogs: dialogs.scriptedDialogs([], undefined),
        account: settings.account ?? 'reader@example.org',
        uuid: settings.uuid ?? '6f1c9a54-2f0e-4c38-9a57-0d3b8f5a7c21',
        recentStyles: [...recentStyles],
        selectedStyle,
        caller: null,
        focusAllowedTo: null,
    };
}

function desktopInfo({ caller, focusAllowedTo }) {
    return { processId: process.pid, caller, focusAllowedTo };
}

function allowSetFocus(app, { processId }) {
    app.focusAllowedTo = processId;
    return {};
}

function setWordProcessor(app, { wordProcessor, version }) {
    app.caller = { wordProcessor, version };
    return {};
}

const userAccount = ({ account }) => ({ account });
const userUuid = ({ uuid }) => ({ uuid });
const selectedStyle = (app) => ({ citationStyleId: app.selectedStyle });

function defaultStyles({ styles, recentStyles }) {
    return {
        citationStyles: recentStyles.map((id) => ({ url: id, title: styles.find(id).title })),
    };
}

async function chooseStyle(app, { currentStyleUrl }) {
    const id = await app.dialogs.open(dialogs.STYLE, { currentStyleUrl });
    if (id === null) {
        return {};
    }
    if (!app.styles.find(id)) {
        throw new ApiError(500, `The dialog chose the citation style "${id}", `
            + 'which is not installed.');
    }
    app.selectedStyle = id;
    app.recentStyles = [id, ...app.recentStyles.filter((other) => other !== id)]
        .slice(0, RECENT_STYLES);
    return { citationStyleUrl: id };
}

const CANCELLED = { citationCluster: { citationItems: [] } };

async function chooseCitation(app) {
    const items = await app.dialogs.open(dialogs.CHOOSE, {});
    return items === null || items.length === 0
        ? CANCELLED
        : { citationCluster: clusters.newCluster(dialogs.chosenItems(app.library, items)) };
}

async function editCitation(app, { fieldCode }) {
    const cluster = clusters.readFieldCode(fieldCode);
    const items = await app.dialogs.open(dialogs.EDIT, { cluster });
    return items === null || items.length === 0
        ? CANCELLED
        : { citationCluster: clusters.withItems(cluster, dialogs.chosenItems(app.library, items)) };
}

function clusterFromUuid({ library }, { documentUuid }) {
    const entry = library.entries.find(({ uuid }) => uuid === documentUuid);
    if (!entry) {
        throw new ApiError(404, `The library has no entry with the uuid "${documentUuid}".`);
    }
    return { citationCluster: clusters.newCluster([citationItem(entry)]) };
}

function mergeCitations(app, { citationClusters }) {
    if (citationClusters.length === 0) {
        throw new ApiError(400, 'There are no citations to merge.');
    }
    return { citationCluster: clusters.mergeClusters(clusters.readFieldCodes(citationClusters)) };
}

async function updateCitation(app, { fieldCode, formattedText }) {
    const cluster = clusters.readFieldCode(fieldCode);
    if (!clusters.isEdited(cluster, formattedText)) {
        return { citationCluster: cluster };
    }
    const keep = await app.dialogs.open(dialogs.UPDATE, { cluster, text: formattedText });
    if (keep === null) {
        return { citationCluster: cluster };
    }
    return {
        citationCluster: keep
            ? clusters.withManualText(cluster, formattedText)
            : clusters.withoutTexts(cluster),
    };
}

function undoManualFormat(app, { fieldCode }) {
    return { citationCluster: clusters.withoutManualText(clusters.readFieldCode(fieldCode)) };
}

function formatAll({ styles }, { citationStyleUrl, citationClusters }) {
    const style = resolveStyle(styles, citationStyleUrl);
    const read = clusters.readFieldCodes(citationClusters);
    const { texts, bibliography } = formatDocument(style, styles, read);
    return {
        citationStyleUrl: style.id,
        citationClusters: read.map((cluster, index) => {
            const { text, cluster: known } = clusters.withFormattedText(cluster, texts[index]);
            return { citationCluster: known, formattedText: text };
        }),
        bibliography: bibliography.map(writeMarkup).join('\n'),
    };
}

module.exports = {
    createApp,
    desktopInfo,
    allowSetFocus,
    setWordProcessor,
    userAccount,
    userUuid,
    selectedStyle,
    defaultStyles,
    chooseStyle,
    chooseCitation,
    editCitation,
    clusterFromUuid,
    mergeCitations,
    updateCitation,
    undoManualFormat,
    formatAll,
};
