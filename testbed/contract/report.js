'use strict';

const { describeFinding } = require('./contract');

/** Returns readable lines about the result of one question. */
function describeResult({ method, path, asks, verdict, findings, outcome }) {
    return [
        `${verdict.padEnd(8)}  ${`${method} ${path}`.padEnd(52)}  ${asks}`,
        ...findings.map((finding) => `            ${describeFinding(finding)}`),
        ...(outcome ? [`            ${outcome}`] : []),
    ].join('\n');
}

function summaryOf(results) {
    const count = (verdict) => results.filter((result) => result.verdict === verdict).length;
    const warnings = results.flatMap(({ findings }) => findings)
        .filter(({ severity }) => severity === 'warning').length;
    return `${results.length} questions: ${count('ok')} ok, ${count('DEVIATES')} deviate; `
        + `${warnings} warnings.`;
}

/** Returns the results as JUnit XML. */
function junitOf(results) {
    const cases = results.map(({ method, path, asks, verdict, findings, outcome }) => {
        const text = [...findings.map(describeFinding), outcome].filter(Boolean).join('\n');
        const about = `<testcase classname="local-api" name="${escapeXml(`${method} ${path}: ${asks}`)}"`;
        return verdict === 'DEVIATES'
            ? `  ${about}><failure message="The reply deviates from the contract.">${escapeXml(text)}`
                + '</failure></testcase>'
            : `  ${about}>${text ? `<system-out>${escapeXml(text)}</system-out>` : ''}</testcase>`;
    });
    const failures = results.filter(({ verdict }) => verdict === 'DEVIATES').length;
    return ['<?xml version="1.0" encoding="UTF-8"?>',
        `<testsuite name="local API" tests="${results.length}" failures="${failures}">`,
        ...cases, '</testsuite>', ''].join('\n');
}

function escapeXml(text) {
    return text
        .replace(/[&<>"]/g, (character) => `&#${character.charCodeAt(0)};`)
        .replace(/[^\t\n\r\u0020-\ud7ff\ue000-\ufffd\u{10000}-\u{10ffff}]/gu, '?');
}

module.exports = { describeResult, summaryOf, junitOf };
