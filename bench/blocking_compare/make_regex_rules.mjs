// Writes a content-blocker rule file in which every address pattern is a regular expression as
// another converter writes them: host anchors as ^[^:]+://+([^:/]+\.)?host([^a-zA-Z0-9_.%-].*)?$
// and the lists' own /regex/ filters kept, padded with host rules to the count asked for.
// Usage: node make_regex_rules.mjs adblock-rules.json easylist.txt easyprivacy.txt [count] > out.json
import fs from 'node:fs';

const [rulesPath, ...rest] = process.argv.slice(2);
const count = Number(rest.length > 2 ? rest[2] : 100000);
const ours = '^[^:]+:(//)?([^/]+\\.)?';
const theirs = '^[^:]+://+([^:/]+\\.)?';

const blocks = [];
const after = [];
let seenIgnore = false;
for (const rule of JSON.parse(fs.readFileSync(rulesPath, 'utf8'))) {
    if (rule.action.type === 'css-display-none') continue;
    const filter = rule.trigger['url-filter'];
    if (filter.startsWith(ours)) rule.trigger['url-filter'] = theirs + filter.slice(ours.length);
    seenIgnore ||= rule.action.type === 'ignore-previous-rules';
    (seenIgnore ? after : blocks).push(rule);
}

// The lists' regular-expression filters, rewritten into the syntax the rule format allows:
// counted repeats spelled out, \d and \w as classes, each alternative of a group its own rule.
function atoms(source) {
    const out = [];
    for (let i = 0; i < source.length;) {
        let end = i + 1;
        if (source[i] === '\\') {
            end = i + 2;
        } else if (source[i] === '[') {
            end = i + 1;
            while (end < source.length && source[end] !== ']') end += source[end] === '\\' ? 2 : 1;
            ++end;
        } else if (source[i] === '(') {
            let depth = 0;
            for (end = i; end < source.length; end += source[end] === '\\' ? 2 : 1) {
                if (source[end] === '(') ++depth;
                if (source[end] === ')' && --depth === 0) break;
            }
            ++end;
        }
        out.push(source.slice(i, end));
        i = end;
    }
    return out;
}
function rewrite(source) {
    const out = [];
    const parts = atoms(source);
    for (let i = 0; i < parts.length; ++i) {
        let atom = parts[i];
        if (atom === '\\d') atom = '[0-9]';
        else if (atom === '\\w') atom = '[A-Za-z0-9_]';
        else if (atom.startsWith('[')) atom = atom.replaceAll('\\d', '0-9').replaceAll('\\w', 'A-Za-z0-9_');
        else if (atom.startsWith('(') && !atom.startsWith('(?')) atom = '(' + rewrite(atom.slice(1, -1)) + ')';
        if (parts[i + 1] === '{') {
            let close = i + 1;
            while (close < parts.length && parts[close] !== '}') ++close;
            const [low, high] = parts.slice(i + 2, close).join('').split(',');
            const least = Number(low);
            const most = high === undefined ? least : high === '' ? Infinity : Number(high);
            if (!(least >= 0 && least <= 200 && (most === Infinity || most <= 200))) return null;
            out.push(atom.repeat(least));
            if (most === Infinity) out.push(atom + '*');
            else out.push((atom + '?').repeat(most - least));
            i = close;
            continue;
        }
        out.push(atom);
    }
    return out.includes(null) ? null : out.join('');
}
// Spreads the first group holding "|" into one expression per alternative.
function alternatives(source) {
    const parts = atoms(source);
    for (let i = 0; i < parts.length; ++i) {
        const inner = parts[i].startsWith('(') ? parts[i].slice(1, -1) : null;
        if (inner === null) continue;
        const choices = [];
        let from = 0;
        let depth = 0;
        for (let j = 0; j < inner.length; j += inner[j] === '\\' ? 2 : 1) {
            if (inner[j] === '(') ++depth;
            if (inner[j] === ')') --depth;
            if (inner[j] === '|' && depth === 0) {
                choices.push(inner.slice(from, j));
                from = j + 1;
            }
        }
        if (choices.length === 0) continue;
        choices.push(inner.slice(from));
        const before = parts.slice(0, i).join('');
        const after = parts.slice(i + 1).join('');
        return choices.flatMap(c => alternatives(`${before}(${c})${after}`)).slice(0, 64);
    }
    return [source];
}
// What the rule format accepts: no "|", "{}", look-arounds or back references, "^" and "$"
// only at the ends.
const allowed = source => !/[|{}]|\(\?|\\[1-9bBsSDW]|[^\x20-\x7e]/.test(source)
    && !/.\^/.test(source.replaceAll(/\[\^/g, '[').replaceAll(/\\\^/g, ''))
    && !/\$./.test(source.replaceAll(/\\\$/g, ''));
const typeNames = { script: 'script', image: 'image', xmlhttprequest: 'raw', stylesheet: 'style-sheet',
    subdocument: 'document', media: 'media', font: 'font', other: 'other', ping: 'ping' };
let listRegexes = 0;
for (const file of rest.slice(0, 2)) {
    for (const line of fs.readFileSync(file, 'utf8').split('\n')) {
        const m = /^(@@)?\/(.+)\/(?:\$(.*))?$/.exec(line.trim());
        if (!m || line.includes('##')) continue;
        const trigger = {};
        let usable = true;
        const types = [];
        for (const option of (m[3] ?? '').split(',').filter(Boolean)) {
            const [name, value] = option.split('=');
            if (name === 'third-party') trigger['load-type'] = ['third-party'];
            else if (name === 'domain' && !value.includes('~')) trigger['if-domain'] = value.split('|').map(d => '*' + d);
            else if (name === 'domain' && value.split('|').every(d => d.startsWith('~'))) trigger['unless-domain'] = value.split('|').map(d => '*' + d.slice(1));
            else if (typeNames[name]) types.push(typeNames[name]);
            else usable = false;
        }
        if (!usable) continue;
        if (types.length) trigger['resource-type'] = types;
        const rewritten = rewrite(m[2]);
        if (rewritten === null) continue;
        for (const source of alternatives(rewritten)) {
            if (!allowed(source)) continue;
            const rule = { trigger: { 'url-filter': source, ...trigger }, action: { type: m[1] ? 'ignore-previous-rules' : 'block' } };
            (m[1] ? after : blocks).push(rule);
            ++listRegexes;
        }
    }
}

// Padding: host rules for hosts no request names, so the count grows without changing decisions.
let seed = 0x5eed4321;
function random() {
    seed = (seed + 0x6d2b79f5) | 0;
    let t = Math.imul(seed ^ (seed >>> 15), 1 | seed);
    t = (t + Math.imul(t ^ (t >>> 7), 61 | t)) ^ t;
    return ((t ^ (t >>> 14)) >>> 0) / 4294967296;
}
const letters = n => Array.from({ length: n }, () => 'abcdefghijklmnopqrstuvwxyz0123456789'[Math.floor(random() * 36)]).join('');
const padding = [];
while (blocks.length + after.length + padding.length < count) {
    const host = `${letters(4 + Math.floor(random() * 8))}-${letters(5)}\\.${['com', 'net', 'io', 'xyz'][Math.floor(random() * 4)]}`;
    padding.push({ trigger: { 'url-filter': `${theirs}${host}([^a-zA-Z0-9_.%-].*)?$` }, action: { type: 'block' } });
}
process.stderr.write(`${blocks.length + after.length + padding.length} rules: ${listRegexes} regular-expression filters of the lists, ${padding.length} padding host rules\n`);
process.stdout.write(JSON.stringify([...padding, ...blocks, ...after]));
