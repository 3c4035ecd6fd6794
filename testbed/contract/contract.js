'use strict';

// The contract of the local API: local-api.yaml and citation.yaml, and checks of requests and
// replies against them. A check returns findings: { severity: 'violation' | 'warning', pointer,
// problem, found }. `pointer` is a JSON pointer into the body; within the JSON of a field code it
// continues after a "#".

const fs = require('node:fs');
const path = require('node:path');

const Ajv2020 = require('ajv/dist/2020');
const YAML = require('yaml');

const FILE = path.join(__dirname, 'local-api.yaml');
const CITATION_FILE = path.join(__dirname, 'citation.yaml');
const BASE = 'https://tessaron.com/local-api/';
const FOUND_LENGTH = 60;

/** Reads a YAML file. Throws an Error with a sentence if it cannot be read or is malformed. */
function readYaml(file) {
    let value;
    try {
        value = YAML.parse(fs.readFileSync(file, 'utf8'));
    } catch (error) {
        throw new Error(`The contract ${file} cannot be read: ${error.message.split('\n')[0]}`);
    }
    if (typeof value !== 'object' || value === null || Array.isArray(value)) {
        throw new Error(`The contract ${file} is not a YAML mapping.`);
    }
    return value;
}

/** Reads the contract in `file`. Throws an Error with a sentence if the file is not a contract. */
function openContract(file = FILE) {
    const document = readYaml(file);
    if (typeof document.paths !== 'object' || document.paths === null) {
        throw new Error(`The contract ${file} has no "paths".`);
    }
    const ajv = new Ajv2020({ allErrors: true, verbose: true, strictTypes: false,
        strictRequired: false, validateSchema: false });
    // The keys of the document itself. In a schema, an unknown keyword is an error.
    ajv.addVocabulary(['openapi', 'info', 'servers', 'paths', 'components']);
    ajv.addSchema(readYaml(CITATION_FILE));
    ajv.addSchema({ ...document, $id: `${BASE}local-api.yaml` });
    const contract = { document, ajv };
    try {
        compileAll(contract);
    } catch (error) {
        throw new Error(`The contract ${file} cannot be used: ${error.message}`);
    }
    return contract;
}

/** Compiles the schema of every request and reply, so that an error in the contract shows at once. */
function compileAll(contract) {
    for (const path of Object.keys(contract.document.paths)) {
        const { method, operation } = operationOf(contract, path);
        const statuses = [...Object.keys(operation.responses), 'default'];
        for (const status of method === 'POST' ? [undefined, ...statuses] : statuses) {
            const pointer = schemaPointer(contract, path, status);
            if (!contract.ajv.getSchema(`${BASE}local-api.yaml#${pointer}`)) {
                throw new Error(`it has no schema at ${pointer}`);
            }
        }
    }
}

/** { method, operation } of a path; undefined if the contract does not have the path. */
function operationOf({ document }, path) {
    if (!Object.hasOwn(document.paths, path)) {
        return undefined;
    }
    const [[method, operation]] = Object.entries(document.paths[path]);
    return { method: method.toUpperCase(), operation };
}

/** The JSON pointer to the schema of a request, or of the replies with `status`. */
function schemaPointer(contract, path, status) {
    const { method, operation } = operationOf(contract, path);
    const start = `/paths/${escapePointer(path)}/${method.toLowerCase()}`;
    const content = '/content/application~1json/schema';
    if (status === undefined) {
        return `${start}/requestBody${content}`;
    }
    const key = Object.hasOwn(operation.responses, status) ? status : 'default';
    const { $ref } = operation.responses[key] || {};
    return $ref ? `${$ref.slice(1)}${content}` : `${start}/responses/${key}${content}`;
}

const escapePointer = (key) => key.replace(/~/g, '~0').replace(/\//g, '~1');

function validate({ ajv }, reference, value) {
    const check = ajv.getSchema(`${BASE}${reference}`);
    check(value);
    return check.errors || [];
}

const asViolation = (error, prefix = '') => ({ ...finding(error, prefix), severity: 'violation' });
const asWarning = (error, prefix = '') => ({ ...finding(error, prefix), severity: 'warning' });

function finding({ instancePath, message, params, data }, prefix) {
    const extra = params.additionalProperty ? ` ("${params.additionalProperty}")`
        : params.allowedValues ? ` (${params.allowedValues.length} values)` : '';
    return {
        pointer: `${prefix}${instancePath}`, problem: `${message}${extra}`, found: describe(data),
    };
}

/** A short description of a value. */
function describe(value) {
    const text = value === undefined ? 'nothing' : JSON.stringify(value);
    return text.length > FOUND_LENGTH ? `${text.slice(0, FOUND_LENGTH - 3)}...` : text;
}

/** The findings about a request; `body` is its text. */
function checkRequest(contract, { method, path, body, contentType }) {
    const known = operationOf(contract, path);
    if (!known) {
        return [violation('', 'must be a path of the contract', path)];
    }
    if (known.method !== method) {
        return [violation('', `must be sent with ${known.method}`, method)];
    }
    if (method === 'GET') {
        return body === '' ? [] : [violation('', 'must have no body', body)];
    }
    if (contentType !== undefined && contentType !== 'application/json') {
        return [violation('', 'must have the content type application/json', contentType)];
    }
    const value = parseObject(body);
    if (!value) {
        return [violation('', 'must be a JSON object', body)];
    }
    const errors = validate(contract, `local-api.yaml#${schemaPointer(contract, path)}`, value);
    return [...errors.map((error) => asViolation(error)), ...checkClusters(contract, value)];
}

/** The findings about a reply to a request for `path`; `body` is its text. */
function checkReply(contract, { path, requestBody }, { status, body }) {
    const value = parseObject(body);
    if (!value && status === 200) {
        return [violation('', 'must be a JSON object', body)];
    }
    if (!value) {
        return [warning('', 'has no "error", so the whole body becomes the reason', body)];
    }
    const pointer = schemaPointer(contract, path, String(status));
    const errors = validate(contract, `local-api.yaml#${pointer}`, value);
    const findings = errors.map((error) => asViolation(error));
    if (status !== 200 && !Object.hasOwn(value, 'error')) {
        findings.push(warning('', 'has no "error", so the whole body becomes the reason', body));
    }
    return [...findings, ...checkClusters(contract, value),
        ...(status === 200 ? checkCount(requestBody, value) : [])];
}

const violation = (pointer, problem, found) =>
    ({ severity: 'violation', pointer, problem, found: describe(found) });
const warning = (pointer, problem, found) =>
    ({ ...violation(pointer, problem, found), severity: 'warning' });

function parseObject(text) {
    try {
        const value = JSON.parse(text);
        return typeof value === 'object' && !Array.isArray(value) ? value : null;
    } catch {
        return null;
    }
}

/** Checks that formatting returns as many citations as were sent. */
function checkCount(requestBody, { citationClusters }) {
    const sent = (parseObject(requestBody || '') || {}).citationClusters;
    return Array.isArray(sent) && Array.isArray(citationClusters)
        && sent.length !== citationClusters.length
        ? [violation('/citationClusters', `must have ${sent.length} entries, as the request has`,
            citationClusters.length)]
        : [];
}

/** Checks the citations in a body: the JSON in field codes, and all clusters against CSL. */
function checkClusters(contract, body) {
    const entries = Array.isArray(body.citationClusters) ? body.citationClusters : [];
    return [['', body], ...entries.map((entry, index) => [`/citationClusters/${index}`, entry])]
        .filter(([, holder]) => typeof holder === 'object' && holder !== null)
        .flatMap(([at, holder]) => [
            ...checkFieldCode(contract, `${at}/fieldCode`, holder.fieldCode),
            ...checkCsl(contract, `${at}/citationCluster`, holder.citationCluster),
        ]);
}

function checkFieldCode(contract, at, fieldCode) {
    if (typeof fieldCode !== 'string') {
        return [];
    }
    const cluster = clusterIn(fieldCode);
    if (!cluster) {
        return [violation(at, 'must hold the JSON object of a citation', fieldCode)];
    }
    const errors = validate(contract, 'citation.yaml#/$defs/cluster', cluster);
    return [...errors.map((error) => asViolation(error, `${at}#`)),
        ...checkCsl(contract, `${at}#`, cluster)];
}

/** The cluster in a field code, as the bridge extracts it; null if there is none. */
function clusterIn(fieldCode) {
    const start = fieldCode.indexOf('{');
    return start < 0 ? null : parseObject(fieldCode.slice(start, fieldCode.lastIndexOf('}') + 1));
}

function checkCsl(contract, at, cluster) {
    const isCancelled = Array.isArray((cluster || {}).citationItems)
        && cluster.citationItems.length === 0;
    return typeof cluster !== 'object' || cluster === null || isCancelled ? []
        : validate(contract, 'citation.yaml#/$defs/csl', cluster)
            .map((error) => asWarning(error, at));
}

/** Returns the findings about a request and its reply, as lines that name the path. */
function checkExchange(contract, request, reply) {
    const { method, path, body: requestBody } = request;
    const about = (what) => (finding) => `${what} ${method} ${path}: ${describeFinding(finding)}`;
    return [
        ...checkRequest(contract, request).map(about('request')),
        ...(operationOf(contract, path)
            ? checkReply(contract, { path, requestBody }, reply).map(about('reply')) : []),
    ];
}

/** Returns one line about a finding. A finding about the whole reply, not its body, has no pointer. */
function describeFinding({ severity, pointer, problem, found }) {
    const where = pointer === '' ? 'the body' : pointer ?? 'the reply';
    return `${severity === 'warning' ? 'warning: ' : ''}${where} ${problem}; found ${found}`;
}

module.exports = {
    FILE, openContract, operationOf, checkRequest, checkReply, checkExchange, describeFinding,
};
