'use strict';

const { execFileSync } = require('node:child_process');
const path = require('node:path');

const SCRIPT = path.join(__dirname, '..', '..', 'ask-citeproc.js');

/** Formats a document with the CSL processor alone. Returns texts in the markup of the stand-in. */
function askDirectly(styleName, citationClusters) {
    const input = JSON.stringify({ citationClusters });
    const options = { input, maxBuffer: 1 << 30 };
    const answer = JSON.parse(execFileSync(process.execPath, [SCRIPT, styleName], options));
    return {
        citations: answer.citations.map(toMarkup),
        bibliography: answer.bibliography.map(toMarkup),
    };
}

function toMarkup(html) {
    return html
        .replace(/\s*<div class="csl-right-inline">/g, '\t')
        .replace(/[ \n]*<\/?div[^>]*>[ \n]*/g, ' ')
        .replace(/ *\t */g, '\t')
        .trim()
        .replace(/&#38;/g, '&amp;')
        .replace(/&#60;/g, '&lt;')
        .replace(/&#62;/g, '&gt;');
}

module.exports = { askDirectly };
