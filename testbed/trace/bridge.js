'use strict';

// Runs the bridge as a macro does: argument file in, results out.

const { spawn } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const SEPARATOR = '\u0001';
const BYTE_ORDER_MARK = '\ufeff';
const BUILT = path.join(__dirname, '..', '..', 'build', 'tessaron-word-bridge');

/** Returns the bridge's executable: `option`, $BRIDGE or the one in build. Throws if it cannot be run. */
function findBridge(option) {
    const program = path.resolve(option || process.env.BRIDGE || BUILT);
    try {
        fs.accessSync(program, fs.constants.X_OK);
    } catch {
        throw new Error(`The bridge ${program} cannot be run. Build it, or name it with --bridge.`);
    }
    return program;
}

/**
 * Runs `command` with `args` against the application at `port`. Resolves to { results, errors }:
 * the list of results, null if the bridge wrote none, and its standard error. The bridge is killed
 * if it takes longer than `limitMs`.
 */
async function runBridge(program, { command, args, port, environment = {}, limitMs = 60000 }) {
    const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'tessaron-run-'));
    try {
        writePort(folder, port);
        const file = (name) => path.join(folder, `mac-word-plugin-${name}.txt`);
        // The bridge drops one byte order mark. This one protects a U+FEFF that begins the first argument.
        fs.writeFileSync(file('args'), BYTE_ORDER_MARK + args.join(SEPARATOR), 'utf16le');
        const env = { ...process.env, ...environment, XDG_CONFIG_HOME: folder };
        const errors = await run(program, [command, folder], env, limitMs);
        const results = fs.existsSync(file('result-ready'))
            ? fs.readFileSync(file('results'), 'utf16le').split(SEPARATOR) : null;
        return { results, errors };
    } finally {
        fs.rmSync(folder, { recursive: true, force: true });
    }
}

function writePort(folder, port) {
    const settings = path.join(folder, 'tessaron.com', 'Tessaron Desktop.conf');
    fs.mkdirSync(path.dirname(settings));
    fs.writeFileSync(settings, `[%General]\nhttpServerPort=${port}\n`);
}

function run(program, args, env, limitMs) {
    return new Promise((resolve, reject) => {
        const child = spawn(program, args, { env, stdio: ['ignore', 'ignore', 'pipe'] });
        const end = () => child.kill('SIGKILL');
        const timer = setTimeout(end, limitMs);
        process.once('exit', end);
        const pieces = [];
        child.stderr.on('data', (piece) => pieces.push(piece));
        child.on('error', (error) => reject(new Error(`The bridge did not start: ${error.message}`)));
        child.on('close', () => {
            clearTimeout(timer);
            process.removeListener('exit', end);
            resolve(Buffer.concat(pieces).toString('utf8'));
        });
    });
}

module.exports = { findBridge, runBridge };
