'use strict';

const fs = require('node:fs');
const { parseArgs } = require('node:util');

const { findBridge, runBridge } = require('../trace/bridge');
const { commandOf } = require('../trace/commands');
const { createPlayer, listen } = require('../trace/player');
const { ask } = require('./ask');
const { FILE, checkReply, openContract } = require('./contract');
const { QUESTIONS, requestOf } = require('./questions');
const { describeResult, junitOf, summaryOf } = require('./report');
const { portOfSettings } = require('./settings');

const USAGE = `usage: check-application [OPTION]...

Asks a running Tessaron Desktop everything that the Word bridge asks, and checks each reply against
the contract of the local API. If a reply deviates, it shows where, what was found, and what the
bridge's command returns then. Nothing in the library or in a document is changed.

  --port N             the application's port (default: the one in its settings, otherwise 50002)
  --dialogs            also open the application's dialogs, and print what to do in each
  --limit SECONDS      how long a reply may take (default 10); dialogs have no limit
  --write-report FILE  also write the results as JUnit XML
  --contract FILE      another contract (default: local-api.yaml of this program)
  --bridge PROGRAM     the bridge (default: $BRIDGE, otherwise build/tessaron-word-bridge)
  --help               print this

Exit status: 0 if all replies satisfy the contract, 1 if one deviates, 2 if nothing answers or an
option cannot be used. Warnings do not count.
`;
const text = { type: 'string' };
const flag = { type: 'boolean' };
const OPTIONS = {
    port: text, dialogs: flag, limit: { ...text, default: '10' }, 'write-report': text,
    contract: { ...text, default: FILE }, bridge: text, help: flag,
};
const SHOWN_LENGTH = 60;

const say = (line) => process.stdout.write(`${line}\n`);
const deviation = (pointer, problem, found) => ({ severity: 'violation', pointer, problem, found });

/** Returns the findings about the reply to a question. */
function check(contract, { path, fails, expect = () => false }, requestBody, { status, body, error }) {
    if (error) {
        return [deviation(undefined, 'must be complete', `${error} (status ${status})`)];
    }
    const findings = checkReply(contract, { path, requestBody }, { status, body });
    if ((status === 200) === Boolean(fails)) {
        const wanted = fails ? 'must be refused with a status other than 200' : 'must succeed with status 200';
        return [deviation(undefined, wanted, `status ${status}: ${shorten(body)}`), ...findings];
    }
    const unmet = !findings.some(isViolation) && isJson(body) && expect(JSON.parse(body));
    return unmet ? [deviation(unmet.pointer, unmet.problem, shorten(body)), ...findings] : findings;
}

const isViolation = ({ severity }) => severity === 'violation';
const isJson = (text) => { try { JSON.parse(text); return true; } catch { return false; } };
const shorten = (value) => (value.length > SHOWN_LENGTH
    ? `${value.slice(0, SHOWN_LENGTH - 3)}...` : value);

/** Returns a sentence about what the bridge's command returns after this reply. */
async function outcomeOf(bridge, { path, requestBody }, { status, body, error }) {
    const found = commandOf(path, requestBody);
    if (!found) {
        return 'No command of the bridge sends this.';
    }
    if (error.startsWith('No complete reply')) {
        return `The bridge (${found.command}) sets no timeout and keeps waiting.`;
    }
    if (process.platform === 'darwin') {
        return `The bridge (${found.command}) was not run: on macOS its port is in the user's settings.`;
    }
    let program;
    try {
        program = findBridge(bridge);
    } catch (problem) {
        return problem.message;
    }
    const player = createPlayer([{ reply: { status, error, body: Buffer.from(body) } }], () => {});
    const { results, errors } = await runBridge(program, { ...found, port: await listen(player, 0) });
    player.close();
    const shown = results === null ? 'nothing' : results.map((line) => JSON.stringify(shorten(line))).join(', ');
    return `The bridge (${found.command}) returns ${shown}${errors ? `, and says: ${errors.trim()}` : ''}`;
}

/** Asks one question. Returns its result for the report. */
async function askQuestion(contract, question, { port, limitMs, bridge, style }) {
    const { path, asks, dialog } = question;
    const { method, text: requestBody } = requestOf(contract, question, style);
    if (dialog) {
        say(`\nThe application opens a dialog. ${dialog}`);
    }
    const reply = await ask(port, { method, path, text: requestBody, limitMs: dialog ? 0 : limitMs });
    const findings = check(contract, question, requestBody, reply);
    const deviates = findings.some(isViolation);
    const outcome = deviates ? await outcomeOf(bridge, { path, requestBody }, reply) : '';
    return { method, path, asks, reply, findings, verdict: deviates ? 'DEVIATES' : 'ok', outcome };
}

function nothingAnswers({ reply: { status, error } }) {
    return status === 0 && (error === 'Connection refused' || error.startsWith('No complete reply'));
}

/** Asks all questions and returns their results. Throws if nothing answers the first one. */
async function askAll(contract, options) {
    const results = [];
    let style;
    for (const question of QUESTIONS.filter(({ dialog }) => options.dialogs || !dialog)) {
        const result = await askQuestion(contract, question, { ...options, style });
        if (results.length === 0 && nothingAnswers(result)) {
            throw new Error(`Nothing answers at 127.0.0.1:${options.port} (${result.reply.error}). `
                + 'Start the application, or name its port with --port.');
        }
        results.push(result);
        say(describeResult(result));
        if (question.path === '/citationStyle/selected' && result.verdict === 'ok') {
            style = JSON.parse(result.reply.body).citationStyleId;
        }
    }
    return results;
}

function readNumber(name, value, smallest, largest) {
    if (!/^\d{1,6}$/.test(value) || Number(value) < smallest || Number(value) > largest) {
        throw new Error(`--${name} must be a number from ${smallest} to ${largest}, not "${value}".`);
    }
    return Number(value);
}

async function main() {
    const { values } = parseArgs({ options: OPTIONS });
    if (values.help) {
        process.stdout.write(USAGE);
        return 0;
    }
    const options = {
        port: values.port === undefined ? portOfSettings() : readNumber('port', values.port, 1, 65535),
        limitMs: readNumber('limit', values.limit, 1, 86400) * 1000,
        bridge: values.bridge,
        dialogs: values.dialogs,
    };
    const contract = openContract(values.contract);
    say(`Checking the application at 127.0.0.1:${options.port}\n`);
    const results = await askAll(contract, options);
    say(`\n${summaryOf(results)}`);
    if (values['write-report']) {
        fs.writeFileSync(values['write-report'], junitOf(results));
    }
    return results.some(({ verdict }) => verdict === 'DEVIATES') ? 1 : 0;
}

/** Runs the program and sets the exit status. */
async function runCheck() {
    for (const signal of ['SIGINT', 'SIGTERM']) {
        process.once(signal, () => process.exit(2)); // on exit, runBridge() kills a running bridge
    }
    try {
        process.exitCode = await main();
    } catch (error) {
        process.stderr.write(`check-application: ${error.message}\n`);
        process.exitCode = 2;
    }
}

module.exports = { runCheck };
