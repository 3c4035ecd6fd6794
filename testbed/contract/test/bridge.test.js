'use strict';

// Checks the requests of the bridge and the replies of the stand-in against the contract.

const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const { runBridge } = require('../../trace/bridge');
const {
    ANSWERS, BRIDGE, answerOptions, runAllCommands, startDesktop, temporaryFolder,
} = require('../../trace/test/support');
const { openContract } = require('../contract');

const COMMANDS = 17;
const FAILED = /^$|^false$|^0$|^ADDIN CSL_CITATION null$|^(Unable|Can't)/;

test('all seventeen commands and their replies satisfy the contract', async (t) => {
    const log = path.join(temporaryFolder(t), 'log');
    const { port, errors } = await startDesktop(t, ['--validate', '--log', log, ...answerOptions(Object.values(ANSWERS))]);
    const outcomes = await runAllCommands(port);

    assert.strictEqual(new Set(outcomes.map(([command]) => command)).size, COMMANDS);
    for (const [command, { results, errors: warnings }] of outcomes) {
        assert.strictEqual(warnings, '', command);
        if (!['lastError', 'setWordProcessor'].includes(command)) {
            assert.doesNotMatch(results[0], FAILED, command);
        }
    }
    const asked = fs.readFileSync(log, 'utf8').trim().split('\n').map((line) => JSON.parse(line).path);
    const known = Object.keys(openContract().document.paths);
    assert.deepStrictEqual([...new Set(asked)].sort(),
        known.filter((url) => url !== '/allowSetFocus').sort());
    const violations = errors().split('\n').filter((line) => line && !line.includes('warning: '));
    assert.deepStrictEqual(violations, []);
});

test('commands that fail send valid requests, except for merging nothing', async (t) => {
    const faults = path.join(temporaryFolder(t), 'faults');
    fs.writeFileSync(faults, JSON.stringify({ '/userUuid': { status: 503 } }));
    const { port, errors } = await startDesktop(t, ['--validate', '--faults', faults]);
    for (const [command, ...args] of [['getUserUuid'], ['getFieldCodeFromUuid', 'no such entry'],
        ['getFieldCodeFromCitationEditor', ''], ['getCitationStyleFromDialog', ''], ['mergeFields'],
        ['formatCitationsAndBibliography', 'no such style']]) {
        await runBridge(BRIDGE, { command, args, port });
    }
    // An empty argument file is read as one empty field code, which holds no citation.
    assert.deepStrictEqual(errors().trim().split('\n'), [
        'contract: request POST /citations/merge: /citationClusters/0/fieldCode must hold the JSON '
            + 'object of a citation; found ""']);
});

const FAULTS = [
    ['a renamed key', '/userUuid', { body: '{"userUuid":"u"}' }, 'getUserUuid', [],
        "reply GET /userUuid: the body must have required property 'uuid'; found {\"userUuid\":\"u\"}"],
    ['a body that is not JSON', '/userAccount', { body: '<html>' }, 'getUserAccount', [],
        'reply GET /userAccount: the body must be a JSON object; found "<html>"'],
    ['too many citations', '/formattedCitationsAndBibliography/interactive', { extraCitations: 1 },
        'formatCitationsAndBibliography', ['http://www.zotero.org/styles/apa'],
        'reply POST /formattedCitationsAndBibliography/interactive: /citationClusters must have 0 '
            + 'entries, as the request has; found 1'],
];
for (const [name, url, fault, command, args, line] of FAULTS) {
    test(`the stand-in reports ${name} while it runs`, async (t) => {
        const faults = path.join(temporaryFolder(t), 'faults');
        fs.writeFileSync(faults, JSON.stringify({ [url]: fault }));
        const { port, errors } = await startDesktop(t, ['--validate', '--faults', faults]);
        await runBridge(BRIDGE, { command, args, port });
        assert.ok(errors().split('\n').includes(`contract: ${line}`), errors());
    });
}
