'use strict';

// The CSL styles and locales installed on this machine. A style's id is its URL, and the last part
// of the URL is the name of its file. A dependent style only names its parent, which formats instead.

const fs = require('node:fs');
const path = require('node:path');
const CSL = require('citeproc');

const { ApiError } = require('./errors');

const DEFAULT_FOLDER = '/usr/share/citation-style-language';

function openStyles(folder = process.env.TESSARON_CSL_DIR || DEFAULT_FOLDER) {
    const known = new Map();
    return {
        folder,
        /** Returns { id, title, parent, xml } of an installed style, or undefined. */
        find(id) {
            if (!known.has(id)) {
                known.set(id, readStyle(folder, id));
            }
            return known.get(id);
        },
        /** Returns the text of a locale's file, or false, as the CSL processor expects. */
        locale(language) {
            return /^[A-Za-z-]+$/.test(language)
                && readIfThere(path.join(folder, 'locales', `locales-${language}.xml`));
        },
    };
}

/** Returns the style with this id or its parent. Throws an ApiError if it is not installed. */
function resolveStyle(styles, id) {
    const style = styles.find(id);
    if (!style) {
        throw new ApiError(404, `The citation style "${id}" is not installed.`);
    }
    if (!style.parent) {
        return style;
    }
    const parent = styles.find(style.parent);
    if (!parent || parent.parent) {
        throw new ApiError(404, `The citation style "${id}" depends on "${style.parent}", `
            + 'which is not installed.');
    }
    return parent;
}

function readStyle(folder, id) {
    const name = String(id).split('/').pop();
    if (!/^[A-Za-z0-9][A-Za-z0-9_.-]*$/.test(name)) {
        return undefined;
    }
    const xml = readIfThere(path.join(folder, 'styles', `${name}.csl`))
        || readIfThere(path.join(folder, 'styles', 'dependent', `${name}.csl`));
    const style = xml && describe(xml);
    return style && style.id === id ? style : undefined;
}

function describe(xml) {
    const info = childrenNamed(CSL.parseXml(xml), 'info')[0];
    const text = (name) => (childrenNamed(info, name)[0] || { children: [] }).children.join('');
    const parent = childrenNamed(info, 'link')
        .find((link) => link.attrs.rel === 'independent-parent');
    return { id: text('id'), title: text('title'), parent: parent && parent.attrs.href, xml };
}

function childrenNamed(node, name) {
    return node ? node.children.filter((child) => child.name === name) : [];
}

function readIfThere(file) {
    try {
        return fs.readFileSync(file, 'utf8');
    } catch (error) {
        if (error.code === 'ENOENT') {
            return false;
        }
        throw error;
    }
}

module.exports = { openStyles, resolveStyle };
