'use strict';

const { execFileSync } = require('node:child_process');
const path = require('node:path');

const SCRIPT = path.join(__dirname, '..', '..', 'ask-citeproc.js');

/** What the CSL processor says of a document when it is asked without the application. */
function askDirectly(styleName, citationClusters) {
    const input = JSON.stringify({ citationClusters });
    const options = { input, maxBuffer: 1 << 30 };
    return JSON.parse(execFileSync(process.execPath, [SCRIPT, styleName], options));
}

module.exports = { askDirectly };
