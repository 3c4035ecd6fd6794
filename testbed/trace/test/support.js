'use strict';

const { spawn } = require('node:child_process');
const { once } = require('node:events');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const readline = require('node:readline');

const { findBridge, runBridge } = require('../bridge');

const TESTBED = path.join(__dirname, '..', '..');
const STYLE = 'http://www.zotero.org/styles/';
const KUHN = '5fca65e8-28ab-4e73-a63a-0c167c9057c5';
const BRIDGE = findBridge();
const BODIES = { QT_LOGGING_RULES: 'tessaron.http.debug=true;tessaron.http.body.debug=true' };

/** Makes a folder that is removed after the test. */
function temporaryFolder(t) {
    const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'trace-test-'));
    t.after(() => fs.rmSync(folder, { recursive: true, force: true }));
    return folder;
}

/**
 * Starts a program of the test bed that listens, and kills it after the test. Resolves to { child, port,
 * errors() }, where `errors()` is its standard error so far.
 */
async function startListening(t, program, options) {
    const child = spawn(process.execPath, [path.join(TESTBED, program), ...options]);
    t.after(() => child.kill('SIGKILL'));
    let errors = '';
    child.stderr.setEncoding('utf8').on('data', (text) => { errors += text; });
    const [line] = await once(readline.createInterface({ input: child.stdout }), 'line');
    return { child, port: Number(line.split(':').pop()), errors: () => errors };
}

/** Starts the stand-in for the application on a free port. */
function startDesktop(t, options = []) {
    return startListening(t, 'desktop/main.js', ['--port', '0', ...options]);
}

/** Runs a program of the test bed, for a minute at most. Resolves to { status, output, errors }. */
async function runTool(t, program, args, environment = {}) {
    const child = spawn(process.execPath, [path.join(TESTBED, program), ...args],
        { env: { ...process.env, ...environment }, stdio: ['ignore', 'pipe', 'pipe'], timeout: 60000 });
    t.after(() => child.kill('SIGKILL'));
    const outcome = { output: '', errors: '' };
    child.stdout.setEncoding('utf8').on('data', (text) => { outcome.output += text; });
    child.stderr.setEncoding('utf8').on('data', (text) => { outcome.errors += text; });
    [outcome.status] = await once(child, 'close');
    return outcome;
}

/** Answers to the dialogs of runAllCommands(), in their order. */
const ANSWERS = {
    chooseCitation: { dialog: 'chooseCitation', items: [{ uuid: 'kuhn-1962', label: 'page', locator: '10' }] },
    editCitation: { dialog: 'editCitation', items: [{ uuid: 'darwin-1859' }] },
    chooseStyle: { dialog: 'chooseStyle', style: `${STYLE}ieee` },
    updateCitation: { dialog: 'updateCitation', keep: true },
};

/** The options that make the stand-in give these answers, one after the other. */
const answerOptions = (answers) => answers.flatMap((answer) => ['--answer', JSON.stringify(answer)]);

/** Runs all seventeen commands in a usual order. Resolves to a list of [command, outcome]. */
async function runAllCommands(port, environment) {
    const outcomes = [];
    const run = async (command, ...args) => {
        const outcome = await runBridge(BRIDGE, { command, args, port, environment });
        outcomes.push([command, outcome]);
        return outcome.results;
    };
    for (const command of ['isTessaronRunning', 'launchTessaron', 'tessaronProcessId', 'getUserAccount',
        'getUserUuid', 'getRecentStyles', 'getDesktopCitationStyleId', 'lastError']) {
        await run(command);
    }
    await run('setWordProcessor', 'Word', '16.80');
    const [kuhn] = await run('getFieldCodeFromCitationEditor', '');
    const [darwin] = await run('getFieldCodeFromCitationEditor', kuhn);
    const [other] = await run('getFieldCodeFromUuid', KUHN);
    await run('mergeFields', darwin, other);
    const [style] = await run('getCitationStyleFromDialog', `${STYLE}apa`);
    const [, , , code, text] = await run('formatCitationsAndBibliography', style, other, '(old)', darwin, '');
    const [edited] = await run('checkManualFormatAndGetFieldCode', code, `as ${text} “shows”`);
    await run('hasManualEdit', edited);
    await run('undoManualFormat', edited);
    return outcomes;
}

module.exports = {
    BRIDGE, BODIES, ANSWERS, answerOptions, temporaryFolder, startListening, startDesktop, runTool,
    runAllCommands,
};
