'use strict';

// Runs the examples of docs/local-api.md and compares what they print.

const assert = require('node:assert');
const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const { runBridge } = require('../../trace/bridge');
const { BODIES, BRIDGE, startDesktop, temporaryFolder } = require('../../trace/test/support');
const { openContract } = require('../contract');

const ROOT = path.join(__dirname, '..', '..', '..');
const TEXT = fs.readFileSync(path.join(ROOT, 'docs', 'local-api.md'), 'utf8');

/** The examples: [command, printed lines] each. "..." stands for any text or lines. */
const EXAMPLES = [...TEXT.matchAll(/```console\n([^]*?)```/g)].flatMap(([, block]) =>
    block.split(/^\$ /m).slice(1).map((example) => {
        const [command, ...lines] = example.trimEnd().split('\n');
        return [command, lines];
    }));

function patternOf(lines) {
    const escape = (text) => text.replace(/[.*+?^${}()|[\]\\]/g, '\\$&');
    const parts = lines.map((line) => (line === '...' ? '(?:.*\\n)*?'
        : `${line.split('...').map(escape).join('.*')}\\n`));
    return new RegExp(`^${parts.join('')}$`);
}

test('the examples of the page print what it shows', async (t) => {
    const folder = temporaryFolder(t);
    const faults = path.join(folder, 'faults');
    fs.writeFileSync(faults, '{"/userUuid":{"body":"{\\"userUuid\\":\\"u-1\\"}"}}');
    const { port } = await startDesktop(t, ['--uuid', 'u-7']);
    const renamed = await startDesktop(t, ['--faults', faults]);
    const { errors } = await runBridge(BRIDGE,
        { command: 'getUserUuid', args: [], port, environment: BODIES });
    fs.writeFileSync(path.join(folder, 'user.trace'), errors);
    fs.symlinkSync(path.join(ROOT, 'testbed'), path.join(folder, 'testbed'));
    assert.strictEqual(EXAMPLES.length, 4);
    for (const [command, lines] of EXAMPLES) {
        const env = { ...process.env, BRIDGE, PORT: String(port), RENAMED: String(renamed.port) };
        const printed = execFileSync('bash', ['-c', command],
            { cwd: folder, env, encoding: 'utf8', stdio: ['ignore', 'pipe', 'inherit'] });
        assert.match(printed, patternOf(lines), command);
    }
});

test('the page mentions every path of the contract', () => {
    for (const url of Object.keys(openContract().document.paths)) {
        assert.ok(TEXT.includes(`\`${url}\``), url);
    }
});
