// How a krvdbg-dap session begins and ends: attaching to a VM that listens
// (a stop, a pause, a detach that leaves it running), the adapter served on
// a port (bad input gets an error response and leaves it serving), every way
// of ending that must take a launched VM along, and launches that cannot
// work.
'use strict';

const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { test } = require('node:test');
const { Client, JavaProcess, env, lineOf, alive, until, kEventMs, session } = require('./kit');

test('attach to a listening VM, stop in it, pause it where it runs, and detach: it runs on', async t => {
    // Sleeper under an agent that listens on a port of its own choosing.
    const vm = new JavaProcess(['-agentlib:jdwp=transport=dt_socket,server=y,suspend=n,address=127.0.0.1:0',
        '-cp', env.testsCp, 'Sleeper']);
    t.after(() => vm.kill());
    const port = Number((await vm.line(/Listening for transport dt_socket at address: (\d+)/))[1]);
    await vm.line(/sleeper ready/);
    const dc = await session(t);
    const loop = lineOf('Sleeper.java', '// @sleeper-loop');
    await dc.begin('attach', { hostName: '127.0.0.1', port, sourcePaths: [env.testsSrc] }, { 'Sleeper.java': [loop] });
    const s = await dc.stopped('breakpoint');
    assert.equal(s.top.line, loop);
    assert.match((await dc.locals(s.top.id)).round.value, /^\d+$/);
    const source = { path: s.top.source.path };
    await dc.ok('setBreakpoints', { source, breakpoints: [] });
    await dc.ok('continue', { threadId: s.threadId });
    await vm.line(/sleeper round \d+/, vm.out.length);

    await dc.ok('pause', { threadId: s.threadId });
    const { frames } = await dc.stopped('pause');
    assert.ok(frames.some(f => /main/.test(f.name) && f.source && /Sleeper\.java$/.test(f.source.path)),
        JSON.stringify(frames.map(f => f.name)));
    // The JDK's frames (Thread.sleep) have no source here: no frame names a file that is not there.
    assert.ok(frames.length > 1);
    for (const f of frames.filter(f => f.source && f.source.path))
        assert.ok(fs.existsSync(f.source.path), `${f.name}: ${f.source.path}`);

    await dc.ok('setBreakpoints', { source, breakpoints: [{ line: loop }] });
    await dc.ok('disconnect', { terminateDebuggee: false });
    const from = vm.out.length;
    // Running on, held neither by the pause nor by the breakpoint it had.
    await vm.line(/sleeper round \d+[^]*sleeper round \d+/, from);
    await dc.closeInput();
    assert.ok(alive(vm.proc.pid), 'the attached VM ended with the adapter');
});

// Bytes that are no request, in the header and in the body (the unit tests
// of the channel have every kind).
const badFrames = [
    ['a body that is not JSON', 'Content-Length: 9\r\n\r\n{"seq":1,'],
    ['a length that is no number', 'Content-Length: many\r\n\r\n'],
];
test('served on a TCP port (--port): malformed input gets error responses, then a session with stopOnEntry; ' +
    'the adapter ends when its client goes', async t => {
    const dc = new Client();
    await dc.startServed();
    t.after(() => dc.end());
    for (const [what, bytes] of badFrames) {
        dc._socket.write(bytes);
        const r = await dc.message(m => m.type === 'response', kEventMs, `a response to ${what}`);
        assert.equal(r.success, false, what);
        assert.ok(r.message && r.message.length > 3, `${what}: ${JSON.stringify(r)}`);
    }
    // The adapter serves on as if nothing had come; the program does not run before its first stop.
    await dc.begin('launch', dc.launchArgs('TestHello', { stopOnEntry: true }));
    const s = await dc.stopped('entry');
    assert.ok(!dc.output('stdout').includes('Hello'), dc.output('stdout'));
    await dc.ok('continue', { threadId: s.threadId });
    await dc.event('terminated');
    await dc.outputContaining('stdout', 'Hello from the debuggee\nBye\n');
    await dc.closeInput();
});

// Each way a launched session ends; the VM's process must be gone after it.
const endings = [
    ['disconnect terminating the debuggee', dc => dc.ok('disconnect', { terminateDebuggee: true })],
    ['disconnect without arguments', dc => dc.ok('disconnect', {})],
    ['terminate', dc => dc.ok('terminate', {}).then(() => dc.event('terminated'))],
    ['the client closing the adapter\'s input', dc => dc.closeInput()],
];
for (const [how, end] of endings) {
    test(`a launched VM ends with the session: ${how}`, async t => {
        const dc = await session(t);
        await dc.begin('launch', dc.launchArgs('Sleeper'));
        await dc.outputContaining('stdout', 'sleeper ready');
        const pid = Number(/sleeper ready pid=(\d+)/.exec(dc.output('stdout'))[1]);
        assert.ok(alive(pid));
        await end(dc);
        await until(() => !alive(pid), kEventMs, () => `VM ${pid} still running after ${how}`);
    });
}

function scriptThatNeverListens(t) {
    const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'krvdbg-dap-'));
    t.after(() => fs.rmSync(dir, { recursive: true, force: true }));
    const script = path.join(dir, 'java');
    fs.writeFileSync(script, '#!/bin/sh\nexec sleep 600\n', { mode: 0o755 });
    return script;
}

// Launches that cannot work: each fails with a message naming the cause
// (a pattern), in bounded time, and the adapter serves on.
const badLaunches = [
    ['a class path that does not exist', () => ({ classPaths: ['/no/such/classes'] }), /no\/such\/classes/],
    ['no main class', () => ({ mainClass: '' }), /main/i],
    ['a java that is not there', () => ({ javaExec: '/no/such/java' }), /no\/such\/java/],
    ['a VM that never comes up', t => ({ javaExec: scriptThatNeverListens(t) }), /./],
    ['a main class that is not on the class path', () => ({ mainClass: 'NoSuchMain' }), /NoSuchMain|exit|ended/i],
    ['an unknown transport', () => ({ transport: 'pigeon' }), /pigeon|transport/i],
];
for (const [what, args, cause] of badLaunches) {
    test(`launch fails readably: ${what}`, async t => {
        const dc = await session(t);
        await dc.initialize();
        const launch = dc.raw('launch', dc.launchArgs('TestHello', args(t)), kEventMs);
        // An adapter may ask for the configuration before it starts the VM.
        const first = await Promise.race([launch, dc.event('initialized').then(() => null)]);
        if (first === null)
            await dc.raw('configurationDone', {});
        const r = await launch;
        if (r.success) {
            // A VM that starts and ends at once may be reported by its end.
            assert.match(what, /not on the class path/);
            await dc.event('terminated');
            await dc.outputContaining('stderr', 'NoSuchMain');
            return;
        }
        assert.match(r.message || '', cause, `${what}: ${JSON.stringify(r)}`);
        // Still serving.
        assert.match(await dc.fails('frobnicate', {}), /frobnicate/);
    });
}
