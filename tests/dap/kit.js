// What the krvdbg-dap tests share: where the adapter, java and the test
// programs are (from the environment ctest sets), a DebugClient that keeps
// every event so that none is lost between a request and the wait for its
// consequence, requests bounded in time, and the Java programs' processes.
'use strict';

const assert = require('node:assert/strict');
const cp = require('node:child_process');
const fs = require('node:fs');
const net = require('node:net');
const path = require('node:path');
const { DebugClient } = require('@vscode/debugadapter-testsupport');

const need = name => process.env[name] || assert.fail(`${name} is not set: run these tests through ctest (label dap)`);

const env = {
    adapter: need('KRVDBG_DAP'),
    java: need('KRVDBG_JAVA'),
    testsCp: need('KRVDBG_TESTS_CP'),
    testsSrc: need('KRVDBG_TESTS_SRC'),
    shmemDir: process.env.KRVDBG_SHMEM_DIR || '',
};

// Long enough for a VM start on a busy 2-core machine, short enough that a
// lost event fails the test instead of hanging the suite.
const kEventMs = 30000;
const kRequestMs = 20000;

// The 1-based line of the test program `file` (tests/java) with `marker`.
function lineOf(file, marker) {
    const lines = fs.readFileSync(path.join(env.testsSrc, file), 'utf8').split('\n');
    const at = lines.findIndex(l => l.includes(marker));
    assert.ok(at >= 0, `${marker} not in ${file}`);
    return at + 1;
}

// Polls `cond` (a message come, a process's output or end, a pid's
// liveness, which sends no event) until it holds or `ms` passed; `what` says
// what was awaited and what came instead.
async function until(cond, ms, what) {
    const deadline = Date.now() + ms;
    while (!cond()) {
        if (Date.now() > deadline)
            throw new Error(`${what()}: not within ${ms} ms`);
        await new Promise(r => setTimeout(r, 5));
    }
}

const ended = p => p.exitCode !== null || p.signalCode !== null;

class Client extends DebugClient {
    constructor(moreEnv = {}) {
        // DebugClient runs "<runtime> <executable>"; env keeps the adapter's
        // command line empty.
        const adapterEnv = { ...process.env, JDWPKRVDBG_SHMEM_DIR: env.shmemDir, ...moreEnv };
        super('/usr/bin/env', env.adapter, 'krvdbg', { env: adapterEnv });
        this.adapterEnv = adapterEnv;
        this.defaultTimeout = kEventMs;
        this.events = [];
        this.taken = new Set();
        this.stderr = '';
    }

    async start() {
        await super.start();
        this.watch(this._adapterProcess);
    }

    // The adapter serving one client on a TCP port (--port), this one.
    async startServed() {
        const port = await new Promise(resolve => {
            const probe = net.createServer().listen(0, '127.0.0.1', () => {
                const { port } = probe.address();
                probe.close(() => resolve(port));
            });
        });
        this.watch(cp.spawn(env.adapter, ['--port', String(port)], { env: this.adapterEnv }));
        await until(() => this.stderr.includes('waiting for a client'), kRequestMs, () => `listening: ${this.stderr}`);
        await super.start(port);
        this.served = true;
    }

    watch(adapterProcess) {
        this.process = adapterProcess;
        this.process.stderr.on('data', d => { this.stderr += d; });
        // An adapter that ended closes its input: a later write fails with
        // EPIPE, which is for the test's checks to notice, not a crash.
        this.process.stdin.on('error', e => { this.inputError = e; });
    }

    // Whatever the adapter writes must be JSON: anything else fails here.
    dispatch(body) {
        this.events.push(JSON.parse(body));
        super.dispatch(body);
    }

    // The first event named `name` that satisfies `pred` and no earlier wait
    // took, whether it came already or comes within `ms`.
    event(name, pred = () => true, ms = kEventMs) {
        return this.message(e => e.type === 'event' && e.event === name && pred(e.body || {}), ms, `event ${name}`);
    }

    // The same for any message: responses to what was not a request too.
    async message(pred, ms = kEventMs, what = 'message') {
        const find = () => this.events.find(e => !this.taken.has(e) && pred(e));
        await until(find, ms, () => `${what}; adapter stderr: ${this.stderr.slice(-2000)}`);
        const e = find();
        this.taken.add(e);
        return e;
    }

    // All output text of the `categories` so far.
    output(...categories) {
        return this.events.filter(e => e.type === 'event' && e.event === 'output' &&
            categories.includes(e.body.category)).map(e => e.body.output).join('');
    }

    // Waits until the output of `category` contains `text`.
    outputContaining(category, text) {
        return until(() => this.output(category).includes(text), kEventMs,
            () => `${category} output ${text}; so far: ${this.output(category)}`);
    }

    // The whole response, successful or not, within `ms`.
    async raw(command, args, ms = kRequestMs) {
        let response;
        this.doSend(command, args, r => { response = r; });
        await until(() => response, ms, () => `request ${command}`);
        return response;
    }

    async ok(command, args) {
        const r = await this.raw(command, args);
        assert.ok(r.success, `${command} ${JSON.stringify(args)} failed: ${r.message} ${JSON.stringify(r.body)}`);
        return r.body || {};
    }

    // A failed response with a message a person can read.
    async fails(command, args) {
        const r = await this.raw(command, args);
        assert.equal(r.success, false, `${command} ${JSON.stringify(args)} succeeded`);
        const text = r.message || (r.body && r.body.error && r.body.error.format) || '';
        assert.ok(text.length > 3, `${command}: no readable message in ${JSON.stringify(r)}`);
        return text;
    }

    // initialize; the capabilities the tests rely on must be there.
    async initialize() {
        this.caps = await this.ok('initialize',
            { adapterID: 'krvdbg', linesStartAt1: true, columnsStartAt1: true, pathFormat: 'path' });
        const needed = ['supportsConfigurationDoneRequest', 'supportsConditionalBreakpoints', 'supportsLogPoints',
            'supportsHitConditionalBreakpoints', 'supportsFunctionBreakpoints', 'supportsSetVariable'];
        assert.deepEqual(needed.filter(flag => this.caps[flag] !== true), [], 'capabilities missing');
        return this.caps;
    }

    // initialize, `command` (launch or attach), the breakpoints { file: [line
    // or { line, condition, hitCondition, logMessage }] }, the function
    // breakpoints (when given) and the exception filters once the adapter is
    // initialized, then configurationDone; answers the breakpoints as set
    // (those of the functions under "functions").
    async begin(command, args, breakpoints = {}, filters = null, functions = null) {
        if (!this.caps)
            await this.initialize();
        const started = this.raw(command, args, kEventMs);
        await this.event('initialized');
        const verified = {};
        for (const [file, lines] of Object.entries(breakpoints)) {
            const body = await this.ok('setBreakpoints', {
                source: { path: path.join(env.testsSrc, file) },
                breakpoints: lines.map(line => (typeof line === 'number' ? { line } : line)),
            });
            assert.equal(body.breakpoints.length, lines.length);
            verified[file] = body.breakpoints;
        }
        if (functions) {
            verified.functions = (await this.ok('setFunctionBreakpoints', { breakpoints: functions })).breakpoints;
            assert.equal(verified.functions.length, functions.length);
        }
        // As an editor does: always, so that no stop comes from a default.
        await this.ok('setExceptionBreakpoints', { filters: filters || [] });
        await this.ok('configurationDone', {});
        const r = await started;
        assert.ok(r.success, `${command} failed: ${r.message}`);
        return verified;
    }

    launchArgs(mainClass, more = {}) {
        return { mainClass, classPaths: [env.testsCp], sourcePaths: [env.testsSrc], javaExec: env.java, ...more };
    }

    // The next stop, for `reason`: its event and the top frames of its
    // thread; `what` names the stop awaited when another or none comes.
    async stopped(reason, what = reason) {
        const e = await this.message(m => m.type === 'event' && m.event === 'stopped', kEventMs, `stop: ${what}`);
        assert.equal(e.body.reason, reason, `${what}: stopped for ${JSON.stringify(e.body)}`);
        const st = await this.ok('stackTrace', { threadId: e.body.threadId });
        assert.ok(st.stackFrames.length > 0);
        return { threadId: e.body.threadId, body: e.body, frames: st.stackFrames, top: st.stackFrames[0] };
    }

    // A breakpoint as the adapter last described it: its answer, updated by
    // the breakpoint events about it.
    breakpointState(bp) {
        const changes = this.events.filter(e => e.event === 'breakpoint' && bp.id !== undefined &&
            e.body.breakpoint.id === bp.id);
        return changes.length ? { ...bp, ...changes[changes.length - 1].body.breakpoint } : bp;
    }

    // Continues from every stop until the program ends; each stop as [reason,
    // line, value of the expression `watch` names for that line].
    async stopsToTheEnd(watch = {}) {
        const stops = [];
        for (;;) {
            const e = await this.message(m => m.type === 'event' && ['stopped', 'exited'].includes(m.event),
                kEventMs, 'a stop or the end');
            if (e.event === 'exited')
                return stops;
            const top = (await this.ok('stackTrace', { threadId: e.body.threadId, levels: 1 })).stackFrames[0];
            const expression = watch[top.line];
            const value = expression &&
                (await this.ok('evaluate', { expression, frameId: top.id, context: 'watch' })).result;
            stops.push([e.body.reason, top.line, value]);
            await this.ok('continue', { threadId: e.body.threadId });
        }
    }

    // The variables reference of each scope of `frameId` by its name (Locals, Statics).
    async scopes(frameId) {
        const { scopes } = await this.ok('scopes', { frameId });
        return Object.fromEntries(scopes.map(s => [s.name, s.variablesReference]));
    }

    // name -> variable of the locals of `frameId`.
    async locals(frameId) {
        return this.children((await this.scopes(frameId)).Locals);
    }

    async children(variablesReference, more = {}) {
        const { variables } = await this.ok('variables', { variablesReference, ...more });
        return Object.fromEntries(variables.map(v => [v.name, v]));
    }

    // Closes the adapter's input: it must end, within bounded time.
    async closeInput() {
        (this.served ? this._socket : this.process.stdin).end();
        return until(() => ended(this.process), kRequestMs, () => 'adapter exit after its input closed');
    }

    // Ends the session whatever state it is in; the adapter must be gone too.
    async end() {
        if (!this.process || ended(this.process))
            return;
        await this.raw('disconnect', { terminateDebuggee: true }).catch(() => {});
        return this.closeInput().catch(e => {
            this.process.kill('SIGKILL');
            throw e;
        });
    }
}

// A started client (its adapter's environment with `moreEnv`) that ends with the test.
async function session(t, moreEnv = {}) {
    const dc = new Client(moreEnv);
    await dc.start();
    t.after(() => dc.end());
    return dc;
}

function alive(pid) {
    try {
        process.kill(pid, 0);
        return true;
    } catch (e) {
        return e.code === 'EPERM';
    }
}

// A Java test program started by the test itself (to be attached to), with
// its output kept and waited on line by line.
class JavaProcess {
    constructor(args) {
        this.out = '';
        this.proc = cp.spawn(env.java, args);
        this.proc.stdout.on('data', d => { this.out += d; });
        this.proc.stderr.on('data', d => { this.out += d; });
    }

    // The first match of `re` in the output from `from` on.
    async line(re, from = 0, ms = kEventMs) {
        await until(() => re.test(this.out.slice(from)), ms, () => `output ${re}; so far: ${this.out.slice(-1000)}`);
        return re.exec(this.out.slice(from));
    }

    kill() {
        if (!ended(this.proc))
            this.proc.kill('SIGKILL');
        return until(() => ended(this.proc), kRequestMs, () => 'java exit after SIGKILL');
    }
}

module.exports = { Client, JavaProcess, env, lineOf, alive, until, kEventMs, session };
