// krvdbg-dap driven as an editor drives it, against real VMs: a whole
// session over each transport (with the requests refused while stopped),
// values and the questions asked for them, setting them, breakpoints in
// classes other than the file's own with an exception stop, the exit code
// and the output streams, conditions, hit counts, logpoints and function
// breakpoints.
'use strict';

const assert = require('node:assert/strict');
const { test } = require('node:test');
const { lineOf, session } = require('./kit');

for (const transport of ['socket', 'shmem']) {
    test(`launch, inspect, step and run to the end over ${transport}`, async t => {
        const dc = await session(t);
        const at = marker => lineOf('Stepper.java', `// @${marker}`);
        await dc.begin('launch', dc.launchArgs('Stepper', { transport }),
            { 'Stepper.java': [at('main-a'), at('main-call')] });

        const s = await dc.stopped('breakpoint');
        assert.equal(s.top.line, at('main-a'));
        assert.match(s.top.source.path, /Stepper\.java$/);
        assert.equal(s.body.allThreadsStopped, true);
        const { threads } = await dc.ok('threads');
        assert.ok(threads.some(th => th.id === s.threadId), JSON.stringify(threads));
        assert.ok(dc.events.some(e => e.event === 'thread' && e.body.reason === 'started' &&
            e.body.threadId === s.threadId), 'no thread event for the stopped thread');
        // References and ids that do not exist, and a second launch or attach,
        // fail in words and leave the stop as it was.
        for (const [command, args] of [
            ['variables', { variablesReference: 987654 }],
            ['scopes', { frameId: 987654 }],
            ['stackTrace', { threadId: 987654 }],
            ['evaluate', { expression: 'no.such.thing', frameId: s.top.id, context: 'watch' }],
            ['launch', dc.launchArgs('Stepper')],
            ['attach', { hostName: '127.0.0.1', port: 1 }],
        ])
            await dc.fails(command, args);
        const locals = await dc.locals(s.top.id);
        assert.ok(locals.args && !locals.a, `before a is set: ${Object.keys(locals)}`);

        await dc.ok('continue', { threadId: s.threadId });
        const call = await dc.stopped('breakpoint');
        assert.equal(call.top.line, at('main-call'));
        assert.equal((await dc.locals(call.top.id)).a.value, '2');
        for (const context of ['repl', 'watch', 'hover'])
            assert.equal((await dc.ok('evaluate', { expression: 'a', frameId: call.top.id, context })).result, '2');

        // Each step: the request, where it must stop, the top frame's name.
        // The step out ends on main-call's line, which has a breakpoint, but
        // not at the breakpoint: it is a step.
        const steps = [
            ['stepIn', 'twice-body', /twice/],
            ['stepOut', 'main-call', /main/],
            ['next', 'main-after', /main/],
            ['next', 'main-lib', /main/],
            // String.valueOf is JDK code: stepped through, not entered.
            ['stepIn', 'main-print', /main/],
        ];
        let threadId = call.threadId;
        for (const [request, marker, name] of steps) {
            await dc.ok(request, { threadId });
            const step = await dc.stopped('step', `${request} to @${marker}`);
            assert.deepEqual([step.top.line, name.test(step.top.name)], [at(marker), true],
                `${request} stopped in ${step.top.name}:${step.top.line}`);
            if (request === 'stepIn' && marker === 'twice-body') {
                // The caller's frame alone, through startFrame and levels.
                const page = await dc.ok('stackTrace', { threadId: step.threadId, startFrame: 1, levels: 1 });
                assert.deepEqual(page.stackFrames.map(f => [/main/.test(f.name), f.line]), [[true, at('main-call')]]);
            }
            threadId = step.threadId;
        }

        await dc.ok('continue', { threadId });
        // The VM reports its death before it exits; its own status is the one shown.
        assert.equal((await dc.event('exited')).body.exitCode, 0);
        await dc.event('terminated');
        await dc.outputContaining('stdout', 'stepper end');
        assert.match(dc.output('stdout'), /stepper start[^]*total 6/);
        // The runtime's debug print is the debugger's to show.
        await dc.outputContaining('console', 'Hello debug');
    });
}

test('values of every kind, each read with one question per fact the adapter cannot know; a new thread announced',
    async t => {
        const dc = await session(t, { KRVDBG_DAP_TRACE: '1' });
        await dc.begin('launch', dc.launchArgs('Values'), { 'Values.java': [lineOf('Values.java', '// @values-stop')] },
            null, [{ name: 'Worker.run' }]);
        const s = await dc.stopped('breakpoint');
        const scopes = await dc.scopes(s.top.id);
        const from = dc.stderr.length;
        const locals = await dc.children(scopes.Locals);
        const sent = dc.stderr.slice(from).split('\n').filter(l => l.startsWith('-> '));
        // The values in one read; the text of the three strings; the class of
        // the six objects, args (a String[]) among them, but not of arr, an
        // int[] as declared; the signature of String[] alone, whose class is
        // not known from a prepare event; the length of the two arrays.
        const commands = ['Get Stack-Value', 'Resolve UTF8', 'Get Reference-Type', 'Get Signature', 'Get Array-Length'];
        const asked = command => sent.filter(l => l.endsWith(command)).length;
        assert.deepEqual(commands.map(asked), [1, 3, 6, 1, 2], sent.join('\n'));

        // name, value pattern, expandable
        const expected = [
            ['i', /^-7$/, false],
            ['l', /^1234567890123L?$/, false],
            ['d', /^2\.5$/, false],
            ['z', /^true$/, false],
            ['c', /^'A'$/, false],
            ['str', /^"Grüße 😀"$/, false],
            ['longText', /^"(0123456789){10}/, false],
            ['nothing', /null/i, false],
            ['p', /Point/, true],
            ['arr', /int\[3\]/, true],
        ];
        for (const [name, value, expandable] of expected) {
            assert.ok(locals[name], `no local ${name} in ${Object.keys(locals)}`);
            assert.match(locals[name].value, value, name);
            assert.equal(locals[name].variablesReference > 0, expandable, name);
        }
        const p = await dc.children(locals.p.variablesReference);
        assert.deepEqual([p.x.value, p.y.value, p.name.value], ['3', '4', '"pt"']);
        const arr = await dc.children(locals.arr.variablesReference);
        assert.deepEqual(Object.values(arr).map(v => v.value), ['1', '2', '3']);
        const page = await dc.children(locals.arr.variablesReference, { start: 1, count: 1 });
        assert.deepEqual(Object.values(page).map(v => v.value), ['2']);

        const statics = await dc.children(scopes.Statics);
        assert.deepEqual([statics.counter.value, statics.label.value], ['42', '"static label"']);
        assert.equal((await dc.ok('evaluate', { expression: 'p.x', frameId: s.top.id, context: 'hover' })).result, '3');

        // Worker starts after the launch: its thread event comes as it starts,
        // and another as it ends, without the editor asking.
        await dc.ok('continue', { threadId: s.threadId });
        const w = await dc.stopped('function breakpoint');
        await dc.event('thread', b => b.reason === 'started' && b.threadId === w.threadId);
        await dc.ok('continue', { threadId: w.threadId });
        await dc.event('thread', b => b.reason === 'exited' && b.threadId === w.threadId);
        await dc.event('terminated');
    });

test('setVariable gives locals, fields and statics values the program then prints', async t => {
    const dc = await session(t, { KRVDBG_DAP_TRACE: '1' });
    await dc.begin('launch', dc.launchArgs('SetValues'),
        { 'SetValues.java': [lineOf('SetValues.java', '// @set-stop')] });
    const s = await dc.stopped('breakpoint');
    const { Locals: locals, Statics: statics } = await dc.scopes(s.top.id);
    const g = (await dc.children(locals)).g.variablesReference;
    const set = (variablesReference, name, value) => dc.ok('setVariable', { variablesReference, name, value });
    // reference, name, value typed (and shown as typed), type
    const rows = [
        [locals, 'i', '41', 'int'],
        [locals, 'flag', 'true', 'boolean'],
        [locals, 'c', '\'q\'', 'char'],
        [locals, 'text', '"dap #1"', 'java.lang.String'],
        [g, 'level', '12', 'int'],
        [g, 'name', 'null', 'java.lang.String'],
        [g, 'level (Dial)', '5', 'int'],
        [statics, 'total', '8', 'int'],
    ];
    for (const [ref, name, value, type] of rows)
        assert.deepEqual(await set(ref, name, value), { value, type, variablesReference: 0 }, name);
    assert.equal((await dc.children(locals)).i.value, '41');

    // Refused in words, and no set reaches the VM.
    const sets = () => dc.stderr.split('\n').filter(l => l.startsWith('-> ') && /Set .*Value|Create String/.test(l)).length;
    const before = sets();
    const refused = [
        [locals, 'i', '2.5', /int takes a whole number/],
        [locals, 'text', '5', /String takes "text" or null/],
        [g, 'id', '8', /final/],
        [statics, 'LIMIT', '11', /final/],
        [locals, 'this', '1', /not a local|cannot be set/],
        [locals, 'nosuch', '1', /not a local variable/],
    ];
    for (const [ref, name, value, why] of refused)
        assert.match(await dc.fails('setVariable', { variablesReference: ref, name, value }), why, name);
    assert.equal(sets(), before);

    await dc.ok('continue', {});
    await dc.event('terminated');
    for (const text of ['locals i=41 ', 'flag=true c=q', 'text=dap #1', 'fields level=12 ', 'name=null', 'base=5',
        'statics total=8 title=before LIMIT=10'])
        assert.ok(dc.output('stdout', 'stderr').includes(text), `${text} in ${dc.output('stdout', 'stderr')}`);
});

// Nested, ended by an exception nothing catches: a stop for it, then the VM
// reports its death before it exits; its own status is the one shown.
test('breakpoints in nested, inner and anonymous classes and a lambda; an uncaught exception; output by stream',
    async t => {
        const dc = await session(t);
        const filters = (await dc.initialize()).exceptionBreakpointFilters || [];
        assert.ok(filters.length > 0 && filters.every(f => f.filter && f.label), JSON.stringify(filters));
        // The filter that stops on an exception nothing catches, whatever else it stops on.
        const uncaught = filters.find(f => /uncaught/i.test(`${f.filter} ${f.label} ${f.description || ''}`));
        assert.ok(uncaught, JSON.stringify(filters));
        const at = marker => lineOf('Nested.java', `// @${marker}`);
        const markers = ['nested-add', 'inner-twice', 'anonymous-run', 'lambda-body'];
        // Line 1 is a comment: no code there.
        const lines = [...markers.map(at), 1];
        const set = await dc.begin('launch', dc.launchArgs('Nested', { transport: 'shmem', args: ['throw'] }),
            { 'Nested.java': lines }, [uncaught.filter]);
        for (const marker of markers) {
            const s = await dc.stopped('breakpoint');
            assert.equal(s.top.line, at(marker), `expected a stop at ${marker}, got ${s.top.name}:${s.top.line}`);
            assert.match(s.top.source.path, /Nested\.java$/);
            await dc.ok('continue', { threadId: s.threadId });
        }
        const x = await dc.stopped('exception');
        assert.match(`${x.body.description} ${x.body.text}`, /nobody catches 16/);
        assert.equal(x.top.line, at('uncaught'));
        await dc.ok('continue', { threadId: x.threadId });
        assert.equal((await dc.event('exited')).body.exitCode, 1);

        // Where each breakpoint ended up: its answer, then its breakpoint events.
        const final = set['Nested.java'].map(bp => dc.breakpointState(bp));
        for (const [k, bp] of final.slice(0, markers.length).entries())
            assert.equal(bp.verified, true, `${markers[k]}: ${JSON.stringify(bp)}`);
        const noCode = final[markers.length];
        assert.equal(noCode.verified, false, JSON.stringify(noCode));
        assert.ok(noCode.message, `no reason given for line 1: ${JSON.stringify(noCode)}`);

        // The program's streams as such, the adapter's own lines as console.
        await dc.event('terminated');
        await dc.outputContaining('stdout', 'anonymous runs\nsquare 16\n');
        await dc.outputContaining('stderr', 'nested to stderr\n');
        await dc.outputContaining('stderr', 'IllegalStateException: nobody catches 16');
        assert.ok(!dc.output('stdout').includes('nested to stderr'));
        const own = dc.output('console');
        assert.match(own, /\S/);
        assert.ok(!own.includes('square'));
        // A line for every class the VM loads would bury the rest.
        assert.ok(!own.includes('*** Load'), own);
    });

// Loops.java: a loop (1,000 rounds unless its argument says otherwise) that
// calls Loops$Counter.add(int) each round, then add(String) once.
const loops = marker => lineOf('Loops.java', `// @${marker}`);

test('conditions and hit conditions stop where they hold; an edited one from there on, the others counting on',
    async t => {
        const dc = await session(t);
        const [add, addInt, sum] = ['loops-add', 'counter-add-int', 'counter-sum'].map(loops);
        // The Nth hit of a condition, from the Nth hit on, every Nth hit.
        const others = [{ line: addInt, hitCondition: '>= 999' }, { line: sum, hitCondition: '% 400' }];
        await dc.begin('launch', dc.launchArgs('Loops'),
            { 'Loops.java': [{ line: add, condition: 'i >= 100', hitCondition: '3' }, ...others] });
        const s = await dc.stopped('breakpoint');
        assert.equal((await dc.ok('evaluate', { expression: 'i', frameId: s.top.id, context: 'watch' })).result, '102');
        // Edited while stopped, as an editor sends it, the file's other
        // breakpoints with it: they keep their counts.
        await dc.ok('setBreakpoints',
            { source: { path: s.top.source.path }, breakpoints: [{ line: add, condition: 'i == 700' }, ...others] });
        await dc.ok('continue', { threadId: s.threadId });
        assert.deepEqual(await dc.stopsToTheEnd({ [add]: 'i', [addInt]: 'n', [sum]: 'n' }), [
            ['breakpoint', sum, '399'],
            ['breakpoint', add, '700'],
            ['breakpoint', sum, '799'],
            ['breakpoint', addInt, '998'],
            ['breakpoint', addInt, '999'],
        ]);
        await dc.outputContaining('stdout', 'loops end 1004 499500');
    });

test('a function breakpoint stops in every overload of its method, verified once its class is loaded', async t => {
    const dc = await session(t);
    const [addInt, addText] = ['counter-add-int', 'counter-add-text'].map(loops);
    const set = await dc.begin('launch', dc.launchArgs('Loops', { args: ['3'] }), {}, null,
        [{ name: 'Loops$Counter.add' }]);
    assert.equal(set.functions[0].verified, false);
    assert.deepEqual(await dc.stopsToTheEnd({ [addInt]: 'n', [addText]: 'text' }),
        [[addInt, '0'], [addInt, '1'], [addInt, '2'], [addText, '"done"']].map(s => ['function breakpoint', ...s]));
    assert.equal(dc.breakpointState(set.functions[0]).verified, true);
});

// The function breakpoints: one overload, a name that is no CLASS.METHOD,
// a method the class does not have; the message of each that cannot be
// verified (null: verified once its class is loaded).
const functions = [
    ['Loops$Counter.add(java.lang.String)', null],
    ['add', /CLASS\.METHOD/],
    ['Loops$Counter.nosuch', /no method nosuch/],
];
test('a condition that does not parse is refused with the reason; one that fails at a hit says why, then stops; ' +
    'a logpoint writes a line with its place each round and never stops; a function breakpoint on one overload',
async t => {
    const dc = await session(t);
    const [add, addText, sum, counterText] = ['loops-add', 'loops-add-text', 'counter-sum', 'counter-add-text'].map(loops);
    const set = await dc.begin('launch', dc.launchArgs('Loops', { args: ['100'] }), { 'Loops.java': [
        { line: add, condition: 'i >' },
        { line: addText, condition: 'nosuch > 1' },
        { line: sum, logMessage: 'round {n} of {{100}}' },
    ] }, null, functions.map(([name]) => ({ name })));
    const refused = set['Loops.java'][0];
    assert.equal(refused.verified, false);
    assert.match(refused.message, /condition/);
    assert.deepEqual(set.functions.map(f => f.verified), [false, false, false]);
    assert.deepEqual(await dc.stopsToTheEnd({ [counterText]: 'text' }),
        [['breakpoint', addText, undefined], ['function breakpoint', counterText, '"done"']]);
    for (const [k, bp] of set.functions.map(f => dc.breakpointState(f)).entries()) {
        const [name, message] = functions[k];
        assert.equal(bp.verified, message === null, `${name}: ${JSON.stringify(bp)}`);
        if (message)
            assert.match(bp.message, message, name);
    }
    const why = dc.events.filter(e => e.event === 'output' && /nosuch/.test(e.body.output));
    assert.deepEqual(why.map(e => e.body.category), ['console'], JSON.stringify(why));
    assert.ok(dc.events.indexOf(why[0]) < dc.events.findIndex(e => e.event === 'stopped'), 'said after the stop');
    assert.equal(dc.breakpointState(refused).verified, false);

    const logged = dc.events.filter(e => e.event === 'output' && /^round /.test(e.body.output));
    assert.deepEqual(logged.map(e => e.body.output), Array.from({ length: 100 }, (_, i) => `round ${i} of {100}\n`));
    for (const e of logged)
        assert.deepEqual([e.body.category, e.body.line, /Loops\.java$/.test(e.body.source.path)], ['console', sum, true]);
});
