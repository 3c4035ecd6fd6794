'use strict';

const assert = require('node:assert');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { test } = require('node:test');

const YAML = require('yaml');

const {
    FILE, checkReply, checkRequest, describeFinding, openContract, operationOf,
} = require('../contract');
const { rulesOf } = require('./rules');

const contract = openContract();
const CITATION = path.join(__dirname, '..', 'citation.yaml');
const citation = YAML.parse(fs.readFileSync(CITATION, 'utf8'));
const PATHS = Object.keys(contract.document.paths);
const BATCH = '/formattedCitationsAndBibliography/interactive';
const EDIT = '/citation/edit/interactive';

const lines = (findings) => findings.map(describeFinding);
const at = (value, pointer) => pointer.split('/').slice(1)
    .reduce((part, key) => part[key.replace(/~1/g, '/')], value);
const request = (url, body) => {
    const { method } = operationOf(contract, url);
    return checkRequest(contract, { method, path: url, body: JSON.stringify(body) });
};
const reply = (url, body, status = 200, requestBody = '') =>
    checkReply(contract, { path: url, requestBody }, { status, body: JSON.stringify(body) });

async function openApiProblem(document) {
    const { Validator } = await import('@seriousme/openapi-schema-validator');
    const validator = new Validator();
    await validator.addSpecRef(CITATION, 'citation.yaml');
    const { valid, errors } = await validator.validate(document);
    return valid ? '' : JSON.stringify(errors);
}

test('the document is valid OpenAPI', async () => {
    assert.strictEqual(await openApiProblem(FILE), '');
    assert.match(contract.document.openapi, /^3\.1\./);
});

const BREAKAGES = [
    ['without a title', (document) => { delete document.info.title; }],
    ['with a path without a slash', (document) => { document.paths.userUuid = {}; }],
    ['with an unknown method', (document) => { document.paths['/userUuid'].fetch = {}; }],
    ['with a response without a description', (document) => {
        delete document.components.responses.Done.description;
    }],
    ['with a reference to nothing', (document) => { delete document.components.schemas.FieldCode; }],
];
for (const [name, change] of BREAKAGES) {
    test(`a document ${name} is not valid OpenAPI`, async () => {
        const document = YAML.parse(fs.readFileSync(FILE, 'utf8'));
        change(document);
        assert.notStrictEqual(await openApiProblem(document), '');
    });
}

test('the contract has fifteen paths with their methods and dialogs', () => {
    const table = PATHS.map((url) => {
        const { method, operation } = operationOf(contract, url);
        return [method, url, operation['x-dialog'] ?? 'never'].join(' ');
    });
    assert.deepStrictEqual(table.sort(), [
        'GET /citationStyle/selected never',
        'GET /citationStyles/default never',
        'GET /tessaronDesktopInfo never',
        'GET /userAccount never',
        'GET /userUuid never',
        'POST /allowSetFocus never',
        'POST /citation/choose/interactive always',
        'POST /citation/edit/interactive always',
        'POST /citation/undoManualFormat never',
        'POST /citation/update/interactive maybe',
        'POST /citationStyle/choose/interactive always',
        'POST /citations/merge never',
        'POST /formattedCitationsAndBibliography/interactive maybe',
        'POST /testMethods/citationCluster/getFromUuid never',
        'POST /wordProcessor/set never',
    ]);
});

/** The content of a request or reply: { schema, values }, where `values` are its examples. */
function contentOf(part) {
    const resolved = part.$ref ? at(contract.document, part.$ref.slice(1)) : part;
    const { schema, example, examples } = resolved.content['application/json'];
    return { schema, values: examples ? Object.values(examples).map(({ value }) => value) : [example] };
}

const resolveInApi = ($ref) => ($ref.startsWith('citation.yaml#')
    ? { node: at(citation, $ref.slice('citation.yaml#'.length)), resolve: resolveInCitation }
    : { node: at(contract.document, $ref.slice(1)), resolve: resolveInApi });
const resolveInCitation = ($ref) => ({ node: at(citation, $ref.slice(1)), resolve: resolveInCitation });

/** Every request, success and failure of the contract: [name, check(body), content]. */
const MESSAGES = PATHS.flatMap((url) => {
    const { operation } = operationOf(contract, url);
    const body = operation.requestBody;
    return [
        ...(body ? [[`request ${url}`, (value) => request(url, value), contentOf(body)]] : []),
        [`reply ${url}`, (value) => reply(url, value), contentOf(operation.responses['200'])],
        [`failure ${url}`, (value) => reply(url, value, 422), contentOf(operation.responses.default)],
    ];
});

for (const [name, check, { schema, values }] of MESSAGES) {
    test(`the examples of the ${name} satisfy the contract`, () => {
        assert.ok(values.length > 0);
        values.forEach((value) => assert.deepStrictEqual(lines(check(value)), []));
    });
    const rules = rulesOf(schema, resolveInApi);
    assert.ok(rules.length > 0);
    for (const { name: rule, pointer, violate } of rules) {
        test(`the ${name} must satisfy the rule ${rule}`, () => {
            const broken = violate(structuredClone(values[0]));
            const expected = broken === null || typeof broken !== 'object' || Array.isArray(broken)
                ? '' : pointer;
            // The reason of a failure may also be any other text.
            const severity = name.startsWith('failure') && pointer === '' ? 'warning' : 'violation';
            assert.ok(check(broken).some((finding) => finding.severity === severity
                && finding.pointer === expected), JSON.stringify(broken));
        });
    }
}

const { fieldCode: EXAMPLE_CODE } = contentOf(operationOf(contract, EDIT).operation.requestBody).values[0];
const CLUSTER = JSON.parse(EXAMPLE_CODE.slice('ADDIN CSL_CITATION '.length));
const code = (cluster) => `ADDIN CSL_CITATION ${JSON.stringify(cluster)}`;

// The rule that checkCsl() does not apply.
const CANCELLED = '/citationItems minItems 1';

for (const [severity, schema] of [['violation', 'cluster'], ['warning', 'csl']]) {
    for (const { name, pointer, violate } of rulesOf(citation.$defs[schema], resolveInCitation)) {
        if (pointer === '' && name.includes('type')) {
            continue; // a citation that is not an object is a case of the messages above
        }
        if (schema === 'csl' && name === CANCELLED) {
            continue; // the next test covers a citation without works
        }
        test(`a citation that breaks the rule ${name} of ${schema} gives a ${severity}`, () => {
            const broken = violate(structuredClone(CLUSTER));
            const found = [
                [`/fieldCode#${pointer}`, request(EDIT, { fieldCode: code(broken) })],
                [`/citationCluster${pointer}`, reply(EDIT, { citationCluster: broken })],
            ];
            for (const [expected, findings] of found) {
                assert.ok(findings.some((finding) => finding.severity === severity
                    && finding.pointer === expected), `${expected} ${JSON.stringify(broken)}`);
            }
        });
    }
}

test('a citation without works means a cancelled dialog and gives no finding', () => {
    const cancelled = { ...CLUSTER, citationItems: [] };
    assert.deepStrictEqual(lines(request(EDIT, { fieldCode: code(cancelled) })), []);
    assert.deepStrictEqual(lines(reply(EDIT, { citationCluster: cancelled })), []);
});

const batch = { citationStyleUrl: 's', tempDirectory: '/t',
    citationClusters: [{ fieldCode: EXAMPLE_CODE, formattedText: '' }] };
const REQUESTS = [
    ['an unknown path', { method: 'GET', path: '/userName', body: '' }, 'must be a path of the contract'],
    ['a path that is a member of Object', { method: 'GET', path: 'constructor', body: '' }, 'must be a path of the contract'],
    ['another method', { method: 'POST', path: '/userUuid', body: '{}' }, 'must be sent with GET'],
    ['a GET with a body', { method: 'GET', path: '/userUuid', body: '{}' }, 'must have no body'],
    ['another content type', { method: 'POST', path: '/citation/choose/interactive', body: '{}',
        contentType: 'text/plain' }, 'must have the content type'],
    ['no body', { method: 'POST', path: EDIT, body: '' }, 'must be a JSON object'],
    ['a list', { method: 'POST', path: EDIT, body: '[]' }, 'must be a JSON object'],
    ['malformed JSON', { method: 'POST', path: EDIT, body: '{"fieldCode":' }, 'must be a JSON object'],
    ['a field code without JSON', { method: 'POST', path: EDIT, body: '{"fieldCode":"PAGE"}' },
        '/fieldCode must hold the JSON object'],
    ['a field code with half its JSON', { method: 'POST', path: EDIT,
        body: '{"fieldCode":"ADDIN CSL_CITATION {\\"a\\":}"}' }, '/fieldCode must hold the JSON object'],
    ['a second field code without JSON', { method: 'POST', path: BATCH, body: JSON.stringify({ ...batch,
        citationClusters: [batch.citationClusters[0], { fieldCode: '', formattedText: '' }] }) },
        '/citationClusters/1/fieldCode must hold the JSON object'],
];
for (const [name, message, problem] of REQUESTS) {
    test(`a request with ${name} is rejected`, () => {
        const [first] = lines(checkRequest(contract, message));
        assert.ok(first.includes(problem), first);
    });
}

test('a field code is read from its first to its last brace', () => {
    assert.deepStrictEqual(lines(request(EDIT, { fieldCode: `x ${JSON.stringify(CLUSTER)} y` })), []);
});

for (const body of ['', '<html></html>', '[]', 'null', '5', '{"uuid":"u"']) {
    test(`the body ${JSON.stringify(body)} is a violation with status 200, otherwise a warning`, () => {
        const check = (status) => checkReply(contract, { path: '/userUuid' }, { status, body });
        assert.deepStrictEqual(check(200).map(({ severity }) => severity), ['violation']);
        assert.deepStrictEqual(check(500).map(({ severity }) => severity), ['warning']);
    });
}

test('a failure without "error" gives a warning', () => {
    assert.deepStrictEqual(lines(reply('/userUuid', { reason: 'none' }, 503)),
        ['warning: the body has no "error", so the whole body becomes the reason; '
            + 'found "{\\"reason\\":\\"none\\"}"']);
});

test('a reply may hold additional keys', () => {
    assert.deepStrictEqual(lines(reply('/userUuid', { uuid: 'u', name: 1 })), []);
    const cluster = { ...CLUSTER, future: {}, tessaron: { future: [] } };
    assert.deepStrictEqual(lines(reply(EDIT, { citationCluster: cluster, more: null })), []);
});

test('a reply has as many citations as its request', () => {
    const [example] = contentOf(operationOf(contract, BATCH).operation.responses['200']).values;
    const sent = (count) => JSON.stringify({ citationClusters: Array(count).fill({}) });
    assert.deepStrictEqual(lines(reply(BATCH, example, 200, sent(1))), []);
    for (const count of [0, 2]) {
        assert.deepStrictEqual(lines(reply(BATCH, example, 200, sent(count))),
            [`/citationClusters must have ${count} entries, as the request has; found 1`]);
    }
});

const FILES = [
    ['that does not exist', undefined, /cannot be read: ENOENT/],
    ['that is not YAML', 'openapi: [', /cannot be read: /],
    ['that is a text', 'hello', /is not a YAML mapping/],
    ['that is empty', '', /is not a YAML mapping/],
    ['that is a list', '- 1', /is not a YAML mapping/],
    ['without paths', 'openapi: 3.1.0', /has no "paths"/],
    ['whose path has no operation', 'paths: {/userUuid: {}}', /cannot be used/],
    ['whose path has no schema', 'paths: {/userUuid: {get: {responses: {}}}}', /has no schema at/],
    ['with a misspelt keyword', fs.readFileSync(FILE, 'utf8').replace('required: [uuid]', 'require: [uuid]'),
        /unknown keyword: "require"/],
];
for (const [name, text, problem] of FILES) {
    test(`a contract ${name} is refused with a sentence`, (t) => {
        const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'contract-test-'));
        t.after(() => fs.rmSync(folder, { recursive: true }));
        const file = path.join(folder, 'api.yaml');
        if (text !== undefined) {
            fs.writeFileSync(file, text);
        }
        assert.throws(() => openContract(file), (error) => {
            assert.match(error.message, problem);
            assert.ok(error.message.startsWith(`The contract ${file} `));
            assert.ok(!error.message.includes('\n'));
            return true;
        });
    });
}
