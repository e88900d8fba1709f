// Runs Tovren's benchmarks and the same calls against a reference MCP server over stdio, then
// prints a table and one JSON line per figure (min, median and max over the runs).
//
//   node bench/driver.mjs --build DIR [--runs N] [--years N] [--skip-peer]
//
// DIR is a build tree holding src/tovren, bench/journal_generator, bench/store_bench and
// bench/export_bench.
import { spawn, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';
import readline from 'node:readline';
import { fileURLToPath } from 'node:url';

const here = path.dirname(fileURLToPath(import.meta.url));
const options = { build: null, runs: 3, years: 10, skipPeer: false, seed: 20240601 };
for (let i = 2; i < process.argv.length; ++i) {
    const arg = process.argv[i];
    if (arg === '--build') options.build = path.resolve(process.argv[++i]);
    else if (arg === '--runs') options.runs = Number(process.argv[++i]);
    else if (arg === '--years') options.years = Number(process.argv[++i]);
    else if (arg === '--skip-peer') options.skipPeer = true;
    else {
        console.error(`unknown argument ${arg}`);
        process.exit(2);
    }
}
if (!options.build) {
    console.error('usage: node bench/driver.mjs --build DIR [--runs N] [--years N] [--skip-peer]');
    process.exit(2);
}
const tovren = path.join(options.build, 'src', 'tovren');
const generator = path.join(options.build, 'bench', 'journal_generator');
const storeBench = path.join(options.build, 'bench', 'store_bench');
const exportBench = path.join(options.build, 'bench', 'export_bench');

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
const now = () => Number(process.hrtime.bigint()) / 1e6;

// ---- figures ---------------------------------------------------------------------------

const figures = [];
function quantile(sorted, q) {
    if (sorted.length === 0) return NaN;
    return sorted[Math.min(sorted.length - 1, Math.max(0, Math.ceil(q * sorted.length) - 1))];
}
function summary(samples) {
    const sorted = [...samples].sort((a, b) => a - b);
    const mid = sorted.length / 2;
    const median = sorted.length % 2 ? sorted[Math.floor(mid)] : (sorted[mid - 1] + sorted[mid]) / 2;
    return { runs: sorted.length, min: sorted[0], median, max: sorted[sorted.length - 1] };
}
function record(figure, unit, samples, extra = {}) {
    const entry = { figure, unit, ...summary(samples), ...extra };
    figures.push(entry);
    console.log(JSON.stringify(entry));
    return entry;
}
function unavailable(figure, reason) {
    const entry = { figure, unit: '', runs: 0, unavailable: reason };
    figures.push(entry);
    console.log(JSON.stringify(entry));
}

// ---- the ten-year store ----------------------------------------------------------------

function journal() {
    const folder = path.join(options.build, 'bench-data');
    fs.mkdirSync(folder, { recursive: true });
    // The generator's version is part of the name, so that a journal of an older one is made
    // afresh (v2: reviews, and the search index built as the journal is written).
    const store = path.join(folder, `journal-v2-${options.years}y-${options.seed}.store`);
    const pages = `${store}.pages.jsonl`;
    if (!fs.existsSync(store) || !fs.existsSync(pages)) {
        for (const file of [store, `${store}-wal`, `${store}-shm`, pages]) fs.rmSync(file, { force: true });
        console.error(`generating ${options.years} years of journal in ${store}`);
        const made = spawnSync(generator, [store, '--years', String(options.years), '--seed',
            String(options.seed), '--pages-out', pages], { stdio: 'inherit' });
        if (made.status !== 0) throw new Error('journal_generator failed');
    }
    return { store, pages };
}

// A data root holding a copy of the journal, and a config folder with the listener switched on.
function sandbox(store) {
    const root = fs.mkdtempSync(path.join(os.tmpdir(), 'tovren-bench-'));
    const data = path.join(root, 'data');
    const config = path.join(root, 'config');
    fs.mkdirSync(data);
    fs.mkdirSync(config);
    if (store) {
        // On disk before the clock starts, as a user's journal is: otherwise the first write
        // Tovren makes waits for the whole copy to be flushed.
        const copy = path.join(data, 'default.store');
        fs.copyFileSync(store, copy);
        const handle = fs.openSync(copy, 'r+');
        fs.fsyncSync(handle);
        fs.closeSync(handle);
    }
    fs.writeFileSync(path.join(config, 'preferences.json'), JSON.stringify({ mcpServerEnabled: true }));
    return { root, data, config, remove: () => fs.rmSync(root, { recursive: true, force: true }) };
}

async function freePort() {
    return new Promise((resolve) => {
        const server = net.createServer();
        server.listen(0, '127.0.0.1', () => {
            const { port } = server.address();
            server.close(() => resolve(port));
        });
    });
}

function startTovren(box, args, env = {}) {
    return spawn(tovren, args, {
        env: { ...process.env, TOVREN_DATA_DIR: box.data, TOVREN_CONFIG_DIR: box.config,
            QT_QPA_PLATFORM: 'offscreen', ...env },
        stdio: ['ignore', 'pipe', 'pipe'],
    });
}

async function stopTovren(child) {
    if (child.exitCode !== null || child.signalCode !== null) return;
    const ended = new Promise((resolve) => child.once('exit', resolve));
    child.kill('SIGTERM');
    const timer = setTimeout(() => child.kill('SIGKILL'), 10000);
    await ended;
    clearTimeout(timer);
}

function tryConnect(port) {
    return new Promise((resolve) => {
        const socket = net.connect(port, '127.0.0.1');
        socket.once('connect', () => resolve(socket));
        socket.once('error', () => resolve(null));
    });
}

async function waitListening(child, port, timeoutMs = 30000) {
    const deadline = now() + timeoutMs;
    while (now() < deadline && child.exitCode === null) {
        const socket = await tryConnect(port);
        if (socket) return socket;
        await sleep(1);
    }
    return null;
}

function residentMiB(pid) {
    const status = fs.readFileSync(`/proc/${pid}/status`, 'utf8');
    return Number(/VmRSS:\s+(\d+)/.exec(status)[1]) / 1024;
}

// ---- a line client over a socket or a child's stdio ----------------------------------------

class LineClient {
    constructor(input, output) {
        this.output = output;
        this.waiting = new Map();
        readline.createInterface({ input }).on('line', (line) => {
            if (!line.trim()) return;
            let message;
            try { message = JSON.parse(line); } catch { return; }
            const resolve = this.waiting.get(message.id);
            if (resolve) {
                this.waiting.delete(message.id);
                resolve(message);
            }
        });
        this.next = 1;
    }
    request(method, params) {
        const id = this.next++;
        const answer = new Promise((resolve) => this.waiting.set(id, resolve));
        const message = { jsonrpc: '2.0', id, method };
        if (params !== undefined) message.params = params;
        this.output.write(`${JSON.stringify(message)}\n`);
        return answer;
    }
    notify(method) {
        this.output.write(`${JSON.stringify({ jsonrpc: '2.0', method })}\n`);
    }
    call(name, args) {
        return this.request('tools/call', { name, arguments: args });
    }
}

function checked(answer, what) {
    if (answer.error || answer.result?.isError)
        throw new Error(`${what} failed: ${JSON.stringify(answer).slice(0, 300)}`);
    return answer;
}

// Latencies of count sequential calls, in ms.
async function latencies(count, call) {
    const samples = [];
    for (let i = 0; i < count; ++i) {
        const start = now();
        await call(i);
        samples.push(now() - start);
    }
    return samples.sort((a, b) => a - b);
}

// Calls per second over about seconds, with inFlight calls outstanding on each client.
async function throughput(clients, seconds, inFlight, call) {
    let done = 0;
    const deadline = now() + seconds * 1000;
    const start = now();
    await Promise.all(clients.flatMap((client) => Array.from({ length: inFlight }, async () => {
        while (now() < deadline) {
            await call(client, done);
            ++done;
        }
    })));
    return done / ((now() - start) / 1000);
}

const isoDay = (date) => date.toISOString().slice(0, 10);
const daysAgo = (n) => isoDay(new Date(Date.now() - n * 86400000));

// ---- the workloads, the same for both servers --------------------------------------------

const workload = {
    latencyCount: 200,
    yearCount: 40,
    writeCount: 100,
    seconds: 3,
};

// Two searches from what journal_generator writes. A sentence names one of 150 people and one
// of 15 tags, so a person and a tag together come up a dozen times in ten years; a sentence
// names one of 12 pieces of work, so each is in about half of all pages, meetings and reviews.
const searchTerms = { rare: 'Ximena Novak #budget', common: 'cache invalidation' };
const hitCount = (answer) => (answer.result?.content?.[0]?.text ?? '').split('\n').filter((l) => l.startsWith('### ')).length;

async function measureCalls(label, api, results) {
    const put = (key, value) => (results[key] ??= []).push(value);
    const lat = async (key, count, call) => {
        const samples = await latencies(count, call);
        put(`${key} p50`, quantile(samples, 0.5));
        put(`${key} p99`, quantile(samples, 0.99));
    };
    await lat('initialize', workload.latencyCount, () => api.initialize());
    await lat('tools/list', workload.latencyCount, () => api.toolsList());
    await lat('get_entries 14 days', workload.latencyCount, () => api.recent());
    await lat('get_entries a year', workload.yearCount, () => api.year());
    await lat('add_journal_entry', workload.writeCount, (i) => api.add(i));
    for (const [kind, term] of Object.entries(searchTerms)) {
        (results[`search ${kind} term hits`] ??= []).push(await api.search(term).then(api.hits));
        await lat(`search ${kind} term`, workload.latencyCount, () => api.search(term));
    }
    if (api.tags) await lat('get_tags', workload.yearCount, () => api.tags());
    if (api.stats) await lat('get_stats', workload.yearCount, () => api.stats());
    put('reads/s, 1 connection, 1 in flight',
        await throughput([api.client], workload.seconds, 1, () => api.recent()));
    put('reads/s, 1 connection, 8 in flight',
        await throughput([api.client], workload.seconds, 8, () => api.recent()));
    if (api.extraClients) {
        put('reads/s, 16 connections',
            await throughput(api.extraClients, workload.seconds, 1, (client) => api.recent(client)));
        put('writes/s, 16 connections',
            await throughput(api.extraClients, workload.seconds, 1, (client, i) => api.add(100000 + i, client)));
    }
    console.error(`${label}: calls measured`);
}

// Distinct days far from the journal's own, so that writes make new pages.
const writeDay = (i) => isoDay(new Date(Date.UTC(1970, 0, 1) + (i + 1) * 86400000));

function tovrenApi(client, extraClients) {
    const recentFrom = daysAgo(14);
    const yearFrom = daysAgo(365);
    const today = daysAgo(0);
    const call = (c, name, args) => c.call(name, args).then((a) => checked(a, name));
    return {
        client,
        extraClients,
        initialize: () => client.request('initialize', { protocolVersion: '2024-11-05', capabilities: {},
            clientInfo: { name: 'bench', version: '1' } }).then((a) => checked(a, 'initialize')),
        toolsList: () => client.request('tools/list').then((a) => checked(a, 'tools/list')),
        recent: (c = client) => call(c, 'get_entries', { from: recentFrom, to: today }),
        year: (c = client) => call(c, 'get_entries', { from: yearFrom, to: today, limit: 200 }),
        add: (i, c = client) => call(c, 'add_journal_entry',
            { content: `Benchmark note ${i} #bench with @Ann Lee: wrote up the numbers.`, date: writeDay(i) }),
        search: (query) => call(client, 'search', { query }),
        hits: hitCount,
        tags: () => call(client, 'get_tags', {}),
        stats: () => call(client, 'get_stats', {}),
    };
}

function peerApi(client, pagesByDay) {
    const days = (from) => [...pagesByDay.keys()].filter((d) => d >= from);
    const recent = days(daysAgo(14));
    const year = days(daysAgo(365)).slice(-200);
    const call = (name, args) => client.call(name, args).then((a) => checked(a, name));
    return {
        client,
        initialize: () => client.request('initialize', { protocolVersion: '2024-11-05', capabilities: {},
            clientInfo: { name: 'bench', version: '1' } }).then((a) => checked(a, 'initialize')),
        toolsList: () => client.request('tools/list').then((a) => checked(a, 'tools/list')),
        recent: () => call('open_nodes', { names: recent }),
        year: () => call('open_nodes', { names: year }),
        add: (i) => call('create_entities', { entities: [{ name: `bench ${writeDay(i)} ${i}`,
            entityType: 'journal_day',
            observations: [`Benchmark note ${i} #bench with @Ann Lee: wrote up the numbers.`] }] }),
        // Its substring search over names, types and observations; it has no tag list or figures.
        search: (query) => call('search_nodes', { query }),
        hits: (answer) => {
            try {
                return JSON.parse(answer.result?.content?.[0]?.text ?? '{}').entities?.length ?? 0;
            } catch {
                return 0;
            }
        },
    };
}

// ---- Tovren -------------------------------------------------------------------------------

async function firstPage(store) {
    const samples = [];
    for (let run = 0; run < options.runs; ++run) {
        const box = sandbox(store);
        const start = now();
        const child = startTovren(box, [], { TOVREN_REPORT_FIRST_PAGE: '1' });
        const shown = await new Promise((resolve) => {
            const timer = setTimeout(() => resolve(null), 15000);
            readline.createInterface({ input: child.stdout }).on('line', (line) => {
                if (line.includes('tovren: first page shown')) {
                    clearTimeout(timer);
                    resolve(now() - start);
                }
            });
            child.once('exit', () => { clearTimeout(timer); resolve(null); });
        });
        await stopTovren(child);
        box.remove();
        if (shown === null) {
            unavailable('start to first journal page', 'not available yet: the window never ' +
                'reported its first page within 15 s (the journal screen does not call ' +
                'BenchProbe::firstPageShown yet)');
            return;
        }
        samples.push(shown);
    }
    record('start to first journal page', 'ms', samples, { target: '<= 60' });
}

async function headlessStartAndMemory(store) {
    const ready = [];
    const headlessMemory = [];
    const windowMemory = [];
    for (let run = 0; run < options.runs; ++run) {
        const box = sandbox(store);
        const port = await freePort();
        const start = now();
        const child = startTovren(box, ['--headless'], { TOVREN_MCP_PORT: String(port) });
        const socket = await waitListening(child, port);
        if (!socket) throw new Error('tovren --headless did not start listening');
        ready.push(now() - start);
        socket.destroy();
        await sleep(2000);
        headlessMemory.push(residentMiB(child.pid));
        await stopTovren(child);

        const window = startTovren(box, [], { TOVREN_MCP_PORT: String(await freePort()) });
        await sleep(3000);
        if (window.exitCode === null) windowMemory.push(residentMiB(window.pid));
        await stopTovren(window);
        box.remove();
    }
    record('tovren --headless start to listener ready', 'ms', ready, { target: '<= 20' });
    record('resident memory, headless, idle after start', 'MiB', headlessMemory, { target: '<= 30' });
    if (windowMemory.length) record('resident memory, window, idle after start', 'MiB', windowMemory, { target: '<= 60' });
}

async function tovrenCalls(store) {
    const results = {};
    for (let run = 0; run < options.runs; ++run) {
        const box = sandbox(store);
        const port = await freePort();
        const child = startTovren(box, ['--headless'], { TOVREN_MCP_PORT: String(port),
            TOVREN_REPORT_STALLS: '1' });
        let output = '';
        child.stdout.on('data', (chunk) => { output += chunk; });
        const first = await waitListening(child, port);
        if (!first) throw new Error('tovren --headless did not start listening');
        const client = new LineClient(first, first);
        const extra = [];
        for (let i = 0; i < 16; ++i) {
            const socket = await tryConnect(port);
            extra.push(new LineClient(socket, socket));
        }
        await measureCalls(`tovren run ${run + 1}`, tovrenApi(client, extra), results);
        first.destroy();
        extra.forEach((c) => c.output.destroy());
        await stopTovren(child);
        const stall = /tovren: longest stall (\d+) ms/.exec(output);
        if (stall) (results['event loop longest stall, whole run'] ??= []).push(Number(stall[1]));
        box.remove();
    }
    return results;
}

function storeFigures(store) {
    const search = Object.values(searchTerms).flatMap((term) => ['--search', term]);
    const run = spawnSync(storeBench, [store, '--runs', String(Math.max(options.runs, 3)), ...search],
        { encoding: 'utf8' });
    if (run.status !== 0) throw new Error(`store_bench failed: ${run.stderr}`);
    for (const line of run.stdout.split('\n').filter(Boolean)) {
        const entry = JSON.parse(line);
        figures.push(entry);
        console.log(JSON.stringify(entry));
    }
}

function exportFigures(store) {
    const run = spawnSync(exportBench, [store, '--runs', String(Math.max(options.runs, 3))], { encoding: 'utf8' });
    if (run.status !== 0) throw new Error(`export_bench failed: ${run.stderr}`);
    for (const line of run.stdout.split('\n').filter(Boolean)) {
        const entry = JSON.parse(line);
        figures.push(entry);
        console.log(JSON.stringify(entry));
    }
}

// ---- the peer -----------------------------------------------------------------------------

function peerEntry() {
    const folder = path.join(here, 'peer');
    const entry = path.join(folder, 'node_modules', '@modelcontextprotocol', 'server-memory', 'dist', 'index.js');
    const installed = path.join(folder, 'node_modules', '.package-lock.json');
    if (!fs.existsSync(entry) || !fs.existsSync(installed) ||
        fs.statSync(path.join(folder, 'package-lock.json')).mtimeMs > fs.statSync(installed).mtimeMs) {
        const made = spawnSync('npm', ['ci', '--no-audit', '--no-fund'], { cwd: folder, stdio: 'inherit' });
        if (made.status !== 0) throw new Error('npm ci for the peer failed');
    }
    return entry;
}

async function peerCalls(pagesFile) {
    const entry = peerEntry();
    const pages = fs.readFileSync(pagesFile, 'utf8').split('\n').filter(Boolean).map((l) => JSON.parse(l));
    const pagesByDay = new Map(pages.map((p) => [p.date, p.content]));
    const results = {};
    for (let run = 0; run < options.runs; ++run) {
        const box = sandbox(null);
        const child = spawn(process.execPath, [entry], {
            env: { ...process.env, MEMORY_FILE_PATH: path.join(box.data, 'memory.jsonl') },
            stdio: ['pipe', 'pipe', 'ignore'],
        });
        const client = new LineClient(child.stdout, child.stdin);
        checked(await client.request('initialize', { protocolVersion: '2024-11-05', capabilities: {},
            clientInfo: { name: 'bench', version: '1' } }), 'initialize');
        client.notify('notifications/initialized');
        // The same pages Tovren holds, one entity a day, written through its own tool.
        const seedStart = now();
        for (let i = 0; i < pages.length; i += 100) {
            checked(await client.call('create_entities', { entities: pages.slice(i, i + 100).map((p) => ({
                name: p.date, entityType: 'journal_day', observations: [p.content] })) }), 'seeding');
        }
        (results['seed the journal'] ??= []).push(now() - seedStart);
        await measureCalls(`peer run ${run + 1}`, peerApi(client, pagesByDay), results);
        child.stdin.end();
        child.kill('SIGTERM');
        box.remove();
    }
    return results;
}

// ---- the table ----------------------------------------------------------------------------

function printTable(tovrenResults, peerResults) {
    for (const [name, samples] of Object.entries(tovrenResults)) {
        const perSecond = name.includes('/s');
        if (name.startsWith('event loop')) {
            record(name, 'ms', samples, { target: '<= 100' });
            continue;
        }
        if (name.endsWith(' hits')) {
            const term = searchTerms[name.split(' ')[1]];
            const entry = { figure: `mcp ${name} for "${term}"`, unit: 'hits', ...summary(samples), term };
            if (peerResults?.[name]) entry.peer_median = summary(peerResults[name]).median;
            figures.push(entry);
            console.log(JSON.stringify(entry));
            continue;
        }
        const extra = { target: undefined };
        if (name === 'get_entries 14 days p99') extra.target = '<= 1';
        if (name === 'search rare term p50') extra.target = '<= 5';
        if (name === 'search common term p50') extra.target = '<= 20';
        if (name === 'reads/s, 1 connection, 1 in flight' || name === 'reads/s, 1 connection, 8 in flight')
            extra.target = '>= 10000';
        const peer = peerResults?.[name];
        if (peer) {
            const p = summary(peer).median;
            const t = summary(samples).median;
            extra.peer_median = p;
            // How many times better Tovren is: faster calls, or more of them a second.
            extra.ratio = perSecond ? t / p : p / t;
        }
        record(`mcp ${name}`, perSecond ? 'calls/s' : 'ms', samples, extra);
    }
    if (peerResults?.['seed the journal']) record('peer: seeding the pages', 'ms', peerResults['seed the journal']);

    const rows = figures.map((f) => [
        f.figure, f.unit,
        f.unavailable ? f.unavailable : [f.min, f.median, f.max].map(format).join(' / '),
        f.target ?? '', f.ratio !== undefined ? `${format(f.ratio)}x` : '',
    ]);
    const header = ['figure', 'unit', 'min / median / max', 'target', 'vs peer'];
    const widths = header.map((h, i) => Math.min(70, Math.max(h.length, ...rows.map((r) => String(r[i]).length))));
    const line = (r) => r.map((c, i) => String(c).padEnd(widths[i])).join('  ');
    console.log('');
    console.log(line(header));
    console.log(widths.map((w) => '-'.repeat(w)).join('  '));
    rows.forEach((r) => console.log(line(r)));
}

function format(value) {
    if (typeof value !== 'number' || Number.isNaN(value)) return String(value);
    if (value >= 100) return value.toFixed(0);
    if (value >= 10) return value.toFixed(1);
    return value.toFixed(3);
}

console.error(`search terms: rare "${searchTerms.rare}", common "${searchTerms.common}"`);
const { store, pages } = journal();
await firstPage(store);
await headlessStartAndMemory(store);
storeFigures(store);
exportFigures(store);
const tovrenResults = await tovrenCalls(store);
const peerResults = options.skipPeer ? null : await peerCalls(pages);
printTable(tovrenResults, peerResults);
