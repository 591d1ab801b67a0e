// Decides one request corpus with uBlock Origin's engine, Ghostery's engine and Vantorel's
// blocking_driver, all loaded with the same EasyList and EasyPrivacy, and prints each one's
// per-request median and p99, its build time, the ratio to ours and its agreement with uBO.
// Usage: node compare.mjs --driver PATH --rules adblock-rules.json --requests corpus.jsonl
//        --lists easylist.txt easyprivacy.txt [--mismatches FILE]
import fs from 'node:fs';
import { spawnSync } from 'node:child_process';
import { StaticNetFilteringEngine, pslInit } from '@gorhill/ubo-core';
import { FiltersEngine, Request } from '@ghostery/adblocker';

const args = process.argv.slice(2);
const option = name => (args.includes(name) ? args[args.indexOf(name) + 1] : undefined);
const lists = args.slice(args.indexOf('--lists') + 1, args.indexOf('--lists') + 3);
const requestsText = fs.readFileSync(option('--requests'), 'utf8');
const requests = requestsText.trim().split('\n').map(line => JSON.parse(line));
const listTexts = lists.map(file => fs.readFileSync(file, 'utf8'));

const now = () => process.hrtime.bigint();
function figures(times) {
    const sorted = Float64Array.from(times).sort();
    const at = q => sorted[Math.min(sorted.length - 1, Math.floor(q * sorted.length))];
    return { median: at(0.5), p99: at(0.99) };
}
// One warm-up pass (for the JIT), then one timed pass, one clock reading around each request.
function run(decide) {
    for (const r of requests) decide(r);
    const times = new Array(requests.length);
    const blocked = new Array(requests.length);
    for (let i = 0; i < requests.length; ++i) {
        const start = now();
        blocked[i] = decide(requests[i]);
        times[i] = Number(now() - start);
    }
    return { blocked, ...figures(times) };
}

// uBlock Origin, given the same public suffix list as ours (its bundled copy does not load here,
// which makes every other host third-party).
pslInit(fs.readFileSync(option('--suffixes') ?? '/usr/share/publicsuffix/public_suffix_list.dat', 'utf8'));
// Ours, in its own process, first: once node holds the other engines its collector runs beside
// whatever comes next and slows it. The requests come from the file itself: fed through a pipe,
// node's refills between requests made each one read about 1 µs slower.
const requestsFile = fs.openSync(option('--requests'), 'r');
const driver = spawnSync(option('--driver'), ['--rules', option('--rules')],
    { stdio: [requestsFile, 'pipe', 'pipe'], maxBuffer: 1 << 28, encoding: 'utf8' });
fs.closeSync(requestsFile);
if (driver.status !== 0) {
    console.error(driver.stderr);
    process.exit(1);
}
const stats = Object.fromEntries(driver.stderr.trim().split(/\s+/).map(kv => kv.split('=')));
const oursRun = {
    blocked: driver.stdout.trim().split('\n').map(line => line === 'block'),
    median: Number(stats.median_ns),
    p99: Number(stats.p99_ns),
};

let start = now();
const ubo = await StaticNetFilteringEngine.create();
await ubo.useLists(listTexts.map((raw, i) => ({ name: `list${i}`, raw })));
const uboBuildMs = Number(now() - start) / 1e6;
const uboRun = run(r => ubo.matchRequest({ originURL: r.sourceUrl, url: r.url, type: r.type }) === 1);

// Ghostery
start = now();
const ghostery = FiltersEngine.parse(listTexts.join('\n'), { loadCosmeticFilters: false });
const ghosteryBuildMs = Number(now() - start) / 1e6;
const ghosteryRun = run(r => ghostery.match(Request.fromRawDetails(
    { url: r.url, sourceUrl: r.sourceUrl, type: r.type })).match);

const agreement = run => {
    let same = 0;
    for (let i = 0; i < requests.length; ++i) same += run.blocked[i] === uboRun.blocked[i];
    return (100 * same) / requests.length;
};
const count = run => run.blocked.filter(Boolean).length;
const rows = [
    ['Vantorel', oursRun, Number(stats.build_ns) / 1e6],
    ['uBlock Origin', uboRun, uboBuildMs],
    ['Ghostery', ghosteryRun, ghosteryBuildMs],
];
// The clock readings round each request are in every time; what they cost alone, both sides.
const emptyTimes = requests.map(() => { const t = now(); return Number(now() - t); });
console.log(`${requests.length} requests; ours: cached load ${(Number(stats.load_ns) / 1e6).toFixed(1)} ms, ` +
    `matcher ${(Number(stats.mem_bytes) / 1048576).toFixed(1)} MiB; timing itself: ours ` +
    `${stats.clock_ns} ns, node ${Math.round(figures(emptyTimes).median)} ns`);
console.log('engine          median ns    p99 ns  median/ours  build ms  blocked  agrees with uBO');
for (const [name, r, buildMs] of rows) {
    console.log(`${name.padEnd(14)} ${String(Math.round(r.median)).padStart(9)} ${String(Math.round(r.p99)).padStart(9)}` +
        ` ${(r.median / oursRun.median).toFixed(2).padStart(11)}x ${buildMs.toFixed(0).padStart(8)}` +
        ` ${String(count(r)).padStart(8)} ${agreement(r).toFixed(3).padStart(15)}%`);
}

const mismatchFile = option('--mismatches');
if (mismatchFile) {
    const lines = [];
    for (let i = 0; i < requests.length; ++i) {
        if (oursRun.blocked[i] !== uboRun.blocked[i]) {
            ubo.matchRequest({ originURL: requests[i].sourceUrl, url: requests[i].url, type: requests[i].type });
            lines.push(JSON.stringify({ ...requests[i], ours: oursRun.blocked[i], ubo: uboRun.blocked[i],
                uboFilter: ubo.toLogData()?.raw }));
        }
    }
    fs.writeFileSync(mismatchFile, lines.join('\n') + '\n');
}
await StaticNetFilteringEngine.release();
