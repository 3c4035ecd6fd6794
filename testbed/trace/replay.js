'use strict';

const { parseArgs } = require('node:util');

const { findBridge, runBridge } = require('./bridge');
const { commandOf } = require('./commands');
const { firstDifference } = require('./compare');
const { createPlayer, listen } = require('./player');
const { SWITCH, readTrace } = require('./trace');

const USAGE = `usage: replay TRACE [--port N] [--run] [--bridge PROGRAM] [--limit SECONDS]

Plays the application from a trace of the bridge. To record a trace of one or more commands, run the
bridge with
  ${SWITCH}
replay prints the port that it listens on. Run the same commands again: each request gets the recorded
reply. The first request that differs from the trace is reported. The folder of a run may differ.

  --port N          listen on 127.0.0.1:N (default: any free port)
  --run             also run the bridge, with each command and its arguments from the trace (Linux)
  --bridge PROGRAM  the bridge for --run (default: $BRIDGE, otherwise build/tessaron-word-bridge)
  --limit SECONDS   stop if no request comes within this time (default 600)
  --help            print this

Exit status: 0 if all requests were as recorded, 1 if one differed or is missing, 2 if the trace or
an option cannot be used.
`;
const OPTIONS = {
    port: { type: 'string', default: '0' },
    run: { type: 'boolean' },
    bridge: { type: 'string' },
    limit: { type: 'string', default: '600' },
    help: { type: 'boolean' },
};

const say = (text) => process.stdout.write(`${text}\n`);

function readNumber(name, text, largest) {
    if (!/^\d{1,6}$/.test(text) || Number(text) > largest) {
        throw new Error(`--${name} must be a number from 0 to ${largest}, not "${text}".`);
    }
    return Number(text);
}

/**
 * Plays `exchanges` and resolves to a sentence about the first difference, or to ''. With `program`, also
 * runs the bridge.
 */
async function play(exchanges, { port, limitMs, program }) {
    const state = { received: 0, isFinished: false };
    let finish;
    const finished = new Promise((resolve) => {
        finish = (sentence) => { state.isFinished = true; resolve(sentence); };
    });
    const stop = (why) => finish(state.received === exchanges.length ? ''
        : `${why}. Requests received: ${state.received} of ${exchanges.length}.`);
    const player = createPlayer(exchanges, (exchange, request) => {
        timer.refresh(); // set below, before the first request
        state.received += 1;
        const sentence = report(state.received, exchange, request);
        if (sentence || state.received === exchanges.length) {
            finish(sentence);
        }
    });
    const used = await listen(player, port);
    const timer = setTimeout(() => stop(`No request came for ${limitMs / 1000} s`), limitMs);
    for (const signal of ['SIGINT', 'SIGTERM']) {
        process.once(signal, () => stop('Interrupted'));
    }
    say(`listening on 127.0.0.1:${used}`);
    const running = program && runCommands(program, exchanges, used, state)
        .then(() => stop('The commands ended'));
    const difference = await finished;
    clearTimeout(timer);
    await running;
    player.close();
    return difference;
}

/** Prints a request. Returns a sentence if it differs from the recorded request, otherwise ''. */
function report(number, exchange, request) {
    say(`Request ${number}: ${request.method} ${request.path}`);
    if (!exchange) {
        return `The trace has no request ${number}, but the bridge sent ${request.method} ${request.path}.`;
    }
    if (!exchange.reply) {
        say('  The trace ends before the reply, so the bridge gets the status 0.');
    }
    const difference = firstDifference(exchange, request);
    return difference && `Request ${number} differs ${difference}.`;
}

/** Runs the command of each exchange in turn and prints its results. */
async function runCommands(program, exchanges, port, state) {
    for (const [index, { path, body }] of exchanges.entries()) {
        if (state.isFinished) {
            return;
        }
        const found = commandOf(path, body.toString('utf8'));
        if (!found) {
            say(`Request ${index + 1}: no command of the bridge sends ${path} like this.`);
            return;
        }
        const { results, errors } = await runBridge(program, { ...found, port });
        say(`${found.command}: ${results === null ? 'no results' : results.map(shorten).join(' | ')}`);
        if (errors) {
            say(`  standard error: ${errors.trim()}`);
        }
    }
}

const shorten = (text) => (text.length > 60 ? `${text.slice(0, 57)}...` : text);

async function main() {
    const { values, positionals } = parseArgs({ options: OPTIONS, allowPositionals: true });
    if (values.help) {
        process.stdout.write(USAGE);
        return 0;
    }
    if (positionals.length !== 1) {
        throw new Error('Name one trace. --help explains the options.');
    }
    if (values.run && process.platform === 'darwin') {
        throw new Error('--run works on Linux only: on macOS the port is in the settings of the user.');
    }
    const port = readNumber('port', values.port, 65535);
    const limitMs = readNumber('limit', values.limit, 86400) * 1000;
    const program = values.run ? findBridge(values.bridge) : '';
    const exchanges = readTrace(positionals[0]);
    const difference = await play(exchanges, { port, limitMs, program });
    say(difference || `Requests as recorded: ${exchanges.length} of ${exchanges.length}.`);
    return difference ? 1 : 0;
}

/** Runs the program and sets the exit status. */
async function runReplay() {
    try {
        process.exitCode = await main();
    } catch (error) {
        process.stderr.write(`replay: ${error.message}\n`);
        process.exitCode = 2;
    }
}

module.exports = { runReplay };
