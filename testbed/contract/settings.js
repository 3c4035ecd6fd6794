'use strict';

const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const DEFAULT_PORT = 50002;

/** The port in the application's settings, or its default. */
function portOfSettings() {
    const text = process.platform === 'darwin' ? readPreferences() : readSettingsFile();
    const port = Number(text);
    return Number.isInteger(port) && port > 0 && port < 65536 ? port : DEFAULT_PORT;
}

function readPreferences() {
    try {
        return execFileSync('defaults',
            ['read', 'com.tessaron.Tessaron Desktop', 'General.httpServerPort'],
            { encoding: 'utf8', stdio: ['ignore', 'pipe', 'ignore'] }).trim();
    } catch {
        return '';
    }
}

function readSettingsFile() {
    const folder = process.env.XDG_CONFIG_HOME || path.join(os.homedir(), '.config');
    try {
        const text = fs.readFileSync(path.join(folder, 'tessaron.com', 'Tessaron Desktop.conf'), 'utf8');
        const [, group = ''] = text.split(/^\[%General\]\s*$/m);
        return (/^httpServerPort=(\d+)\s*$/m.exec(group.split(/^\[/m)[0]) || ['', ''])[1];
    } catch {
        return '';
    }
}

module.exports = { portOfSettings };
