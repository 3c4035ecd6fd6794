'use strict';

// The rules of a JSON Schema, each with a way to break it in a valid value.

const VALUES = [5, 'text', true, {}, [], null];
const TYPE_OF = {
    string: (value) => typeof value === 'string',
    number: (value) => typeof value === 'number',
    integer: Number.isInteger,
    boolean: (value) => typeof value === 'boolean',
    object: (value) => typeof value === 'object' && value !== null && !Array.isArray(value),
    array: Array.isArray,
};

/**
 * All rules of `schema` as { name, pointer, violate }: violate(value) changes a valid value so
 * that it violates the rule, and the violation is at `pointer`. `resolve` resolves a $ref.
 */
function rulesOf(schema, resolve, at = []) {
    const { node, resolve: resolveInner } = schema.$ref
        ? resolve(schema.$ref) : { node: schema, resolve };
    const inner = (part, ...keys) => rulesOf(part, resolveInner, [...at, ...keys]);
    return [
        ...Object.entries(RULES).flatMap(([keyword, make]) =>
            (Object.hasOwn(node, keyword) ? make(node[keyword]) : [])
                .map(([name, change]) => rule(`${keyword} ${name}`, at, change))),
        ...(node.allOf || []).flatMap((part) => inner(part)),
        ...Object.entries(node.properties || {}).flatMap(([key, part]) => inner(part, key)),
        ...Object.entries(node.patternProperties || {}).flatMap(([pattern, part]) =>
            inner(part, /^\^\(([^|)]+)/.exec(pattern)[1])),
        ...(node.items ? inner(node.items, 0) : []),
    ];
}

// By keyword: the ways to break it, as pairs of a name and a change of the value that it applies to.
const RULES = {
    type: (types) => {
        const fits = (value) => [types].flat().some((type) => TYPE_OF[type](value));
        return [[`${types}`, () => VALUES.find((value) => !fits(value))]];
    },
    required: (keys) => keys.map((key) => [key, (value) => {
        const { [key]: removed, ...rest } = value || {};
        return rest;
    }]),
    additionalProperties: () => [['', (value) => ({ ...value, unexpected: 1 })]],
    minimum: (limit) => [[`${limit}`, () => limit - 1]],
    minItems: (count) => [[`${count}`, () => Array(count - 1).fill('x')]],
    maxItems: (count) => [[`${count}`, () => Array(count + 1).fill('x')]],
    enum: () => [['', () => 'no such value']],
};

function rule(name, at, change) {
    const pointer = at.map((key) => `/${key}`).join('');
    return { name: `${pointer} ${name}`, pointer, violate: (value) => changed(value, at, change) };
}

function changed(value, [key, ...rest], change) {
    if (key === undefined) {
        return change(value);
    }
    const holder = value ?? (typeof key === 'number' ? [] : {});
    const part = changed(holder[key], rest, change);
    return Array.isArray(holder)
        ? holder.map((other, index) => (index === key ? part : other)).concat(holder.length ? [] : [part])
        : { ...holder, [key]: part };
}

module.exports = { rulesOf };
