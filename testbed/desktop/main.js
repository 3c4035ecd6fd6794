'use strict';

const { parseArgs } = require('node:util');

const { checkExchange, openContract } = require('../contract/contract');
const { createApp } = require('./app');
const { answerProblem, scriptedDialogs } = require('./dialogs');
const { openLibrary } = require('./library');
const { createServer } = require('./server');
const { openStyles } = require('./styles');
const { terminalDialogs } = require('./terminal');

const USAGE = `usage: node main.js [OPTION]...

  --port N          listen on 127.0.0.1:N; 0 takes any free port (default 50002)
  --account TEXT    the user's account
  --uuid TEXT       the user's unique id
  --style URL       the style selected in the application
  --recent URL      a recent style; may be given several times
  --library FILE    the library (default: library.json beside this program)
  --csl-dir FOLDER  where "styles" and "locales" are (default: the environment variable
                    TESSARON_CSL_DIR, otherwise /usr/share/citation-style-language)
  --answer JSON     the answer to the next dialog; may be given several times
  --answers FILE    answers to the dialogs after that, one line of JSON each
  --interactive     show the dialogs on this terminal
  --faults FILE     faults by path, for tests
  --log FILE        append a line of JSON for each request
  --validate        check each request and reply against the contract of the API, and print
                    violations and warnings to standard error
  --help            print this
`;

const text = { type: 'string' };
const texts = { type: 'string', multiple: true };
const flag = { type: 'boolean' };
const OPTIONS = {
    port: { type: 'string', default: '50002' },
    account: text,
    uuid: text,
    style: text,
    recent: texts,
    library: text,
    'csl-dir': text,
    answer: { ...texts, default: [] },
    answers: text,
    interactive: flag,
    faults: text,
    log: text,
    validate: flag,
    help: flag,
};

function main() {
    const options = parseArgs({ options: OPTIONS }).values;
    if (options.help) {
        process.stdout.write(USAGE);
        return;
    }
    const port = readPort(options.port);
    const app = createApp({
        styles: openStyles(options['csl-dir']),
        library: openLibrary(options.library),
        settings: {
            account: options.account,
            uuid: options.uuid,
            selectedStyle: options.style,
            recentStyles: options.recent,
        },
    });
    app.dialogs = options.interactive
        ? terminalDialogs(app, process.stdin, process.stdout)
        : scriptedDialogs(options.answer.map(readAnswerOption), options.answers);
    const observe = options.validate ? printFindings(openContract()) : undefined;
    run(createServer(app, { logFile: options.log, faultFile: options.faults, observe }), port);
}

function run(server, port) {
    server.on('error', (error) => fail(`Tessaron Desktop cannot listen: ${error.message}`));
    server.listen(port, '127.0.0.1', () => {
        process.stdout.write(`listening on 127.0.0.1:${server.address().port}\n`);
    });
    for (const signal of ['SIGTERM', 'SIGINT']) {
        process.on(signal, () => process.exit(0));
    }
}

function printFindings(contract) {
    return (request, reply) => checkExchange(contract, request, reply)
        .forEach((line) => process.stderr.write(`contract: ${line}\n`));
}

function readPort(text) {
    const port = /^\d{1,5}$/.test(text) ? Number(text) : 65536;
    if (port > 65535) {
        throw new Error(`"${text}" is not a port number.`);
    }
    return port;
}

function readAnswerOption(text) {
    const answer = JSON.parse(text);
    const problem = answerProblem(answer);
    if (problem) {
        throw new Error(`The answer ${text} cannot be used: ${problem}`);
    }
    return answer;
}

function fail(message) {
    process.stderr.write(`${message}\n`);
    process.exitCode = 2;
}

try {
    main();
} catch (error) {
    fail(error.message);
}
