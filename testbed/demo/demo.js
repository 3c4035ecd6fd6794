'use strict';

// Does what a macro does: formats citations through the bridge in two styles and prints their texts
// before and after. Then formats a .docx and keeps it in OUTDIR.
//
//   node demo.js BRIDGE OUTDIR

const { execFileSync, spawn } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const readline = require('node:readline');

const { parseAnyText, plainText } = require('../desktop/markup');
const demoDocument = require('../desktop/demo-document.json');

const SEPARATOR = '\u0001';
const FIELD_CODE_PREFIX = 'ADDIN CSL_CITATION ';
const TESTBED = path.join(__dirname, '..');
const DESKTOP = path.join(TESTBED, 'desktop', 'main.js');
const MACRO = path.join(TESTBED, 'macro', 'macro');
const SAMPLES = path.join(TESTBED, 'samples');
const STYLES = [
    ['APA, an author-date style', 'http://www.zotero.org/styles/apa'],
    ['IEEE, a numeric style', 'http://www.zotero.org/styles/ieee'],
];

const readable = (markup) => plainText(parseAnyText(markup));

/** Starts the stand-in for the application and resolves to its process and port. */
function startDesktop() {
    // On macOS the bridge reads the port from the user's preferences. This assumes that no port is
    // set there.
    const port = process.platform === 'darwin' ? '50002' : '0';
    const desktop = spawn(process.execPath, [DESKTOP, '--port', port],
        { stdio: ['ignore', 'pipe', 'inherit'] });
    return new Promise((resolve, reject) => {
        desktop.on('exit', () => reject(new Error('The stand-in for the application did not start.')));
        readline.createInterface({ input: desktop.stdout }).once('line', (line) => {
            resolve({ desktop, port: Number(line.split(':').pop()) });
        });
    });
}

/** Runs one command as a macro does: writes the argument file, reads the ready file and the results. */
function runBridge(bridge, folder, command, args) {
    const file = (name) => path.join(folder, `mac-word-plugin-${name}.txt`);
    for (const name of ['result-ready', 'results']) {
        fs.rmSync(file(name), { force: true });
    }
    fs.writeFileSync(file('args'), args.join(SEPARATOR), 'utf16le');
    execFileSync(bridge, [command, folder],
        { env: { ...process.env, XDG_CONFIG_HOME: folder }, stdio: ['ignore', 'ignore', 'inherit'] });
    const status = Number(fs.readFileSync(file('result-ready'), 'utf16le'));
    const results = fs.readFileSync(file('results'));
    if (status !== results.length) {
        throw new Error(`The bridge wrote ${results.length} bytes of results but the ready file says ${status}.`);
    }
    return results.toString('utf16le').split(SEPARATOR);
}

/** Formats all citations in one batch and stores the new field codes and texts in them. */
function format(bridge, folder, styleUrl, citations) {
    const args = [styleUrl, ...citations.flatMap((c) => [c.fieldCode, c.text])];
    const [formatted, , bibliography, ...lines] =
        runBridge(bridge, folder, 'formatCitationsAndBibliography', args);
    if (formatted !== 'true') {
        throw new Error('The application could not format the citations.');
    }
    citations.forEach((citation, i) => {
        citation.before = readable(citation.text);
        [citation.fieldCode, citation.text, , citation.plain] = lines.slice(4 * i, 4 * i + 4);
    });
    return bibliography.split('\n').map(readable);
}

function print(title, citations, bibliography) {
    console.log(`\n${title}\n${'-'.repeat(title.length)}`);
    for (const { sentence, before, plain } of citations) {
        console.log(`  ${sentence}\n      before  ${before}\n      after   ${plain}`);
    }
    console.log('\n  Bibliography');
    for (const entry of bibliography) {
        console.log(`      ${entry}`);
    }
}

/** Formats a Word document with the stand-in for the macro; renders pictures if LibreOffice is there. */
function formatWordDocument(bridge, folder, output) {
    const run = (program, ...args) => execFileSync(program, args, {
        env: { ...process.env, XDG_CONFIG_HOME: folder, TMPDIR: folder, BRIDGE: bridge }, encoding: 'utf8',
    });
    run(path.join(SAMPLES, 'make_samples'), path.join(folder, 'samples'));
    fs.mkdirSync(output, { recursive: true });
    const before = path.join(output, 'before.docx');
    const after = path.join(output, 'after.docx');
    fs.copyFileSync(path.join(folder, 'samples', 'author-date.docx'), before);
    console.log('\n== A Word document, before');
    console.log(run(MACRO, 'list', before).trimEnd());
    console.log('\n== The same document, after');
    const summary = run(MACRO, 'format', before, after, '--style', STYLES[0][1]);
    console.log(run(MACRO, 'list', after).trimEnd());
    console.log(`\n${summary.trimEnd()}`);
    if (['soffice', 'pdftoppm'].every(isInstalled)) {
        console.log(run(path.join(SAMPLES, 'render_pictures'), output, before, after).trimEnd());
    } else {
        console.log(`Install libreoffice-writer-nogui and poppler-utils for pictures of both in ${output}.`);
    }
}

function isInstalled(program) {
    return process.env.PATH.split(path.delimiter).some(
        (folder) => fs.existsSync(path.join(folder, program)));
}

async function main(bridge, output) {
    const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'tessaron-demo-'));
    let desktop;
    // No process and no file is left, however the program ends.
    process.on('exit', () => {
        desktop?.kill();
        fs.rmSync(folder, { recursive: true, force: true });
    });
    try {
        console.log('\n== Starting a stand-in for Tessaron Desktop');
        const started = await startDesktop();
        const { port } = started;
        desktop = started.desktop;
        desktop.removeAllListeners('exit');
        const settings = path.join(folder, 'tessaron.com', 'Tessaron Desktop.conf');
        fs.mkdirSync(path.dirname(settings));
        fs.writeFileSync(settings, `[%General]\nhttpServerPort=${port}\n`);
        console.log(`   It listens on 127.0.0.1:${port}.`);
        const citations = demoDocument.citations.map((citation) => ({
            sentence: citation.sentence,
            text: citation.formattedText,
            fieldCode: FIELD_CODE_PREFIX + JSON.stringify(citation.citationCluster),
        }));
        for (const [name, url] of STYLES) {
            console.log(`\n== formatCitationsAndBibliography, ${citations.length} citations, ${url}`);
            print(name, citations, format(bridge, folder, url, citations));
        }
        formatWordDocument(bridge, folder, output);
    } finally {
        desktop?.kill();
    }
}

for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) {
    process.on(signal, () => process.exit(1));
}

main(...process.argv.slice(2, 4).map((name) => path.resolve(name))).catch((error) => {
    console.error(error.message);
    process.exitCode = 1;
});
