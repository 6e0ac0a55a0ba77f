// Composite event packets built byte by byte and decoded against a scripted
// VM: which host events are raised, which commands go back to the VM (the
// resume rules by suspend policy), the deliberate cursor rules between the
// events of one composite, class preparation, breakpoints, steps and
// exceptions. Packets cut short or made of garbage are the fuzz target's
// (fuzz/corpus/events/hostile-*).
#include <algorithm>

#include "unit_fixtures.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace jdwpkrvdbg {
namespace {

using namespace std::string_literals;
using testing::be32;
using testing::be64;
using testing::jstr;
using testing::SentCommand;

std::string location(uint64_t classID, uint64_t methodID, uint64_t index)
{
    return u8(1) + be64(classID) + be64(methodID) + be64(index);
}

std::string composite(int policy, const std::vector<std::string>& events)
{
    std::string out = u8(policy) + be32(static_cast<uint32_t>(events.size()));
    for (const auto& e : events)
        out += e;
    return out;
}

std::string threadEvent(int kind, uint64_t thread)
{
    return u8(kind) + be32(3) + be64(thread);
}

std::string locatedEvent(int kind, uint64_t thread, const std::string& where)
{
    return u8(kind) + be32(4) + be64(thread) + where;
}

std::string breakpoint(uint64_t thread, const std::string& where)
{
    return locatedEvent(EK_BREAKPOINT, thread, where);
}

std::string exceptionEvent(const std::string& thrown, const std::string& caught)
{
    return locatedEvent(EK_EXCEPTION, 0x77, thrown) + "L" + be64(0x66) + caught;
}

std::string prepareEvent(uint64_t typeID, const std::string& signature)
{
    return threadEvent(EK_CLASS_PREPARE, 1) + u8(1) + be64(typeID) + jstr(signature) + be32(7);
}

class EventDecoders : public ModelTest {
protected:
    void SetUp() override
    {
        ModelTest::SetUp();
        fresh();
    }

    // The user's class Module1 (a default target name) with one method whose
    // lines are (0 -> 10), (5 -> 11), (9 -> 13).
    std::shared_ptr<JXClass> userClass(double id = 0x10, const std::string& signature = "LModule1;")
    {
        auto cls = registerClass(id, signature);
        addMethod(cls, 0x31, "Main", "()V", {{0, 10}, {5, 11}, {9, 13}});
        return cls;
    }
    // The runtime's VB/Debug with Print(data) (one slot), stopped at its
    // entry in thread 0x77 and called with the string "hello".
    void debugPrintClass()
    {
        addMethod(userClass(0x90, "LVB/Debug;"), 0x91, "Print", "(Ljava/lang/String;)V")
            ->SetVariableTable({0, 1, {{0, "data", "Ljava/lang/String;", 0, 0}}});
        vm->onPayload(11, 6, be32(1) + be64(0x5) + location(0x90, 0x91, 0));
        vm->onPayload(16, 1, be32(1) + "s" + be64(0x72));
        vm->onPayload(10, 1, jstr("\"hello\""));
    }
    // A running VM with nothing recorded yet.
    void fresh()
    {
        vm->clearCommands();
        jvm()->GoVMStateChange(VMRunning, -1);
        log->clear();
    }
    void decode(const std::string& payload) { JDWPMessageData().processEventCommand(payload); }
};

TEST_F(EventDecoders, ResumeAndStopDependOnKindAndSuspendPolicy)
{
    userClass();
    userClass(0x11, "Lpkg/NotMine;");
    debugPrintClass();
    const std::string caughtWhereThrown = exceptionEvent(location(0x10, 0x31, 5), location(0x10, 0x31, 9));
    const std::string debugPrint = breakpoint(0x77, location(0x90, 0x91, 0));
    const struct {
        const char* name;
        int policy;
        std::string event; // none: a VM death routed through the handler
        size_t resumes;
        std::vector<std::string> events;
        bool stepping = false; // a step is in progress
    } cases[] = {
        {"policy 2 thread start resumes", 2, threadEvent(EK_THREAD_START, 9), 1, {}},
        {"policy 1 thread start is not resumed (intended)", 1, threadEvent(EK_THREAD_START, 9), 0, {}},
        {"policy 0 thread death", 0, threadEvent(EK_THREAD_DEATH, 9), 0, {}},
        {"policy 2 inner-class prepare resumes", 2, prepareEvent(0x21, "Lpkg/Outer$1;"), 1, {}},
        // The session's opening Resume has gone out: a start event decoded
        // after it is resumed again rather than left suspended.
        {"policy 2 VM start after the opening resume", 2, threadEvent(EK_VM_START, 1), 1, {}},
        {"policy 0 VM start reports nothing", 0, threadEvent(EK_VM_START, 1), 0, {}},
        {"policy 2 class load is a stop", 2, u8(EK_CLASS_LOAD), 0, {"State(1)"}},
        {"unknown kind", 2, u8(77), 0, {"State(1)"}},
        {"method entry never stops", 2, locatedEvent(EK_METHOD_ENTRY, 0x77, location(0x10, 0x31, 0)), 1, {}},
        {"policy 0 breakpoint does nothing", 0, breakpoint(0x77, location(0x10, 0x31, 0)), 0, {}},
        {"caught in the throwing class resumes silently", 2, caughtWhereThrown, 1, {}},
        // The runtime's debug-output class is rejected by the class filters,
        // so its hook is recognised before them.
        {"the debug-print hook prints its argument without a stop", 2, debugPrint, 1, {"Debug(hello)"}},
        {"another method of the hook's class", 2, breakpoint(0x77, location(0x90, 0x31, 0)), 1, {}},
        // A step ends at a stop; the events on its way that stop nothing are
        // resumed with the step request kept, or the step would run on like a
        // continue.
        {"stepping: the debug-print hook", 2, debugPrint, 1, {"Debug(hello)"}, true},
        {"stepping: an exception caught in the class that threw it", 2, caughtWhereThrown, 1, {}, true},
        {"stepping: a class prepared", 2, prepareEvent(0x26, "Lpkg/Way;"), 1, {"Debug( *** Load pkg#Way)"}, true},
        {"stepping: a breakpoint in a rejected class", 2, breakpoint(0x78, location(0x11, 0x31, 5)), 1, {}, true},
        {"stepping: a breakpoint on a user line",
         2,
         breakpoint(0x78, location(0x10, 0x31, 5)),
         0,
         {"Break(120,Module1,11,0)", "State(1)"},
         true},
        {"VM death", 0, u8(EK_VM_DEATH), 0, {"State(0)"}},
        {"VM disconnect", 0, u8(EK_VM_DISCONNECTED), 0, {"State(0)"}},
        {"routed death", 0, "", 0, {"State(0)"}},
    };
    auto step = std::make_shared<JXBreakpoint>();
    step->JustStepping = true;
    step->RequestEventID = 55;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        fresh();
        jvm()->myLastStepEvent = c.stepping ? step : nullptr;
        jvm()->myStepInProcess = c.stepping;
        if (c.event.empty())
            vm->event(composite(0, {u8(EK_VM_DEATH)}));
        else
            decode(composite(c.policy, {c.event}));
        EXPECT_EQ(countOf(1, 9), c.resumes);
        EXPECT_EQ(log->all, c.events);
        if (c.stepping) {
            EXPECT_EQ(countOf(15, 2), 0u) << "the step request is not withdrawn";
            EXPECT_EQ(jvm()->myLastStepEvent, step);
            EXPECT_EQ(jvm()->myStepInProcess, c.resumes > 0);
        }
    }
    EXPECT_EQ(jvm()->JVMState(), VMDead);

    // Nothing is decoded while an invocation runs: the VM is only resumed.
    fresh();
    jvm()->myInvokeInProcessMsg = static_cast<int32_t>(GetTickCount() + 100);
    decode(composite(2, {u8(EK_VM_DEATH)}));
    EXPECT_EQ(countOf(1, 9), 1u);
    EXPECT_TRUE(log->all.empty());
    EXPECT_EQ(jvm()->JVMState(), VMRunning);
}

TEST_F(EventDecoders, BreakpointsAndStepsStopAtTheUserLineOrStepOn)
{
    userClass();
    userClass(0x11, "Lpkg/NotMine;");
    enum Then { Stops, StepsInto, RunsPastIt };
    const std::tuple<const char*, std::string, Then> steps[] = {
        {"on a line", location(0x10, 0x31, 9), Stops},
        {"after the last line entry", location(0x10, 0x31, 12), StepsInto},
        {"in an unknown method", location(0x10, 0x99, 5), StepsInto},
        // The VM runs that code at full speed: a step out of its frame and a
        // method entry request for the thread, both skipping its package.
        {"in a class the filters reject", location(0x11, 0x31, 5), RunsPastIt},
    };
    uint32_t nextID = 0;
    vm->on(15, 1, [&nextID](const SentCommand&, std::string& out, uint16_t&) {
        out = be32(nextID++);
        return true;
    });
    for (const auto& [name, where, then] : steps) {
        SCOPED_TRACE(name);
        fresh();
        jvm()->unregisterLastStepEvent();
        nextID = 50; // the step out gets 50, the method entry request 51
        jvm()->myStepInProcess = true;
        decode(composite(2, {locatedEvent(EK_SINGLE_STEP, 0x77, where)}));
        if (then == Stops) {
            EXPECT_EQ(log->all, (std::vector<std::string>{"Break(119,Module1,13,0)", "State(1)"}));
            EXPECT_TRUE(vm->commands().empty());
            continue;
        }
        EXPECT_TRUE(log->all.empty()) << ::testing::PrintToString(log->all);
        EXPECT_EQ(countOf(1, 9), 1u) << "resumed once";
        const auto sets = vm->commandsOf(15, 1);
        const std::string skipPackage = u8(MK_ClassExclude) + jstr("pkg.*");
        if (then == StepsInto) {
            // Continued with a step into: thread id, size, depth 0.
            ASSERT_EQ(sets.size(), 1u);
            EXPECT_EQ(sets[0].payload[0], EK_SINGLE_STEP);
            EXPECT_NE(sets[0].payload.find(be64(0x77) + be32(1) + be32(SD_INTO)), std::string::npos);
            EXPECT_EQ(sets[0].payload.find(skipPackage), std::string::npos);
            continue;
        }
        ASSERT_EQ(sets.size(), 2u);
        EXPECT_EQ(sets[0].payload[0], EK_SINGLE_STEP);
        EXPECT_NE(sets[0].payload.find(u8(MK_Step) + be64(0x77) + be32(1) + be32(SD_OUT) + skipPackage),
                  std::string::npos);
        EXPECT_EQ(sets[1].payload[0], EK_METHOD_ENTRY);
        EXPECT_NE(sets[1].payload.find(u8(MK_ThreadOnly) + be64(0x77) + skipPackage), std::string::npos);

        // The method entry into the user's code stops the step there, and
        // both requests go.
        // The two requests went out without waiting; their replies come
        // in before any event they cause.
        pumpScripted([&] { return handler->pendingSentCount() == 0; });
        fresh();
        decode(composite(2, {u8(EK_METHOD_ENTRY) + be32(51) + be64(0x77) + location(0x10, 0x31, 0)}));
        EXPECT_EQ(log->all, (std::vector<std::string>{"Break(119,Module1,10,0)", "State(1)"}));
        EXPECT_EQ(countOf(15, 2), 2u);
        EXPECT_EQ(countOf(1, 9), 0u);
        EXPECT_EQ(jvm()->myLastStepEvent, nullptr);
    }
}

// Hosts read values and resume from inside their Breakpoint handler (a
// logpoint, a conditional breakpoint): the stop's thread, frame and state are
// there before the event, and the state follows the resume.
TEST_F(EventDecoders, AHandlerSeesItsStopAndMayResumeFromIt)
{
    userClass();
    const std::string breakAt11 = breakpoint(0x77, location(0x10, 0x31, 7));
    const std::string stepAt11 = locatedEvent(EK_SINGLE_STEP, 0x77, location(0x10, 0x31, 7));
    enum Handler { Reads, Resumes, ResumesAndWaits };
    const std::vector<std::string> resumed{"Break(119,Module1,11,0)", "State(1)", "State(2)"};
    const struct {
        const char* name;
        Handler handler;
        std::vector<std::string> payload; // the events of one composite
        std::vector<std::string> events;  // until the Resume reply has been handled
    } rows[] = {
        {"reads only", Reads, {breakAt11}, {"Break(119,Module1,11,0)", "State(1)"}},
        {"resumes", Resumes, {breakAt11}, resumed},
        // The VM's "running" is read inside the handler: the stop is told first.
        {"resumes and waits for the reply", ResumesAndWaits, {breakAt11}, resumed},
        // The step event beside the breakpoint is the same stop, left behind.
        {"resumes at the first of two events", Resumes, {breakAt11, stepAt11}, resumed},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        fresh();
        std::vector<std::tuple<VMState, double, bool>> seen; // state, thread, frame valid
        log->onBreak = [&, handler = row.handler] {
            seen.emplace_back(jvm()->JVMState(), jvm()->currentThreadID(), jvm()->frameValid());
            if (handler == Reads)
                return;
            jvm()->ResumeVM(true);
            if (handler == ResumesAndWaits)
                pumpScripted([&] { return jvm()->JVMState() != VMSuspend; });
        };
        decode(composite(2, row.payload));
        pumpScripted([&] { return jvm()->JVMState() != VMSuspend; });
        log->onBreak = nullptr;
        EXPECT_EQ(log->all, row.events);
        EXPECT_EQ(seen, (std::vector<std::tuple<VMState, double, bool>>{{VMSuspend, 0x77, false}}));
        EXPECT_EQ(jvm()->JVMState(), row.handler == Reads ? VMSuspend : VMRunning);
    }

    // The next stop may come before the reply to the Resume that led there:
    // that stop takes its thread, and the late reply leaves it standing.
    fresh();
    decode(composite(2, {breakAt11}));
    jvm()->ResumeVM(true);
    decode(composite(2, {breakpoint(0x78, location(0x10, 0x31, 9))}));
    pumpScripted([&] { return handler->pendingSentCount() == 0; });
    EXPECT_EQ(handler->pendingSentCount(), 0u) << "the Resume's reply came in";
    EXPECT_EQ(log->all, (std::vector<std::string>{"Break(119,Module1,11,0)", "State(1)", "Break(120,Module1,13,0)"}));
    EXPECT_EQ(jvm()->JVMState(), VMSuspend);
    EXPECT_EQ(jvm()->currentThreadID(), 0x78);
}

TEST_F(EventDecoders, ExceptionCaughtElsewhereStopsAndReportsTheObject)
{
    userClass();
    vm->onPayload(9, 1, u8(1) + be64(0x50));
    vm->on(2, 1, [](const SentCommand& c, std::string& out, uint16_t& err) {
        if (BytesToNumber(c.payload, 1, 8) == 0x50)
            out = jstr("Ljava/lang/IllegalStateException;");
        else
            err = ERR_INVALID_CLASS;
        return true;
    });
    vm->onPayload(3, 1, "", ERR_INVALID_CLASS);
    vm->onPayload(2, 5, be32(1) + be64(0x60) + jstr("toString") + jstr("()Ljava/lang/String;") + be32(1));
    vm->onPayload(9, 6, "s" + be64(0x70) + "L" + be64(0));
    vm->onPayload(10, 1, jstr("boom"));
    vm->onPayload(11, 6, be32(0));

    std::string event = exceptionEvent(location(0x10, 0x31, 5), location(0, 0, 0));
    JDWPMessageData data;
    data.processEventCommand(composite(1, {event}));
    EXPECT_EQ(data.RequestObjectID, 0x66);
    EXPECT_EQ(log->all, (std::vector<std::string>{"Break(119,Module1,11,0)", "State(1)",
                                                  "Exception(java/lang/IllegalStateException\r\nboom)"}));
    EXPECT_EQ(countOf(1, 9), 0u);

    // An exception value other than an object (its tag follows the throw
    // location) is not reported.
    log->clear();
    event[1 + 4 + 8 + 25] = 's';
    JDWPMessageData other;
    other.processEventCommand(composite(1, {event}));
    EXPECT_EQ(other.RequestObjectID, 0);
    EXPECT_FALSE(log->hasPrefix("Exception("));
}

TEST_F(EventDecoders, ClassPrepareRegistersTheClassAndAsksForItsExceptions)
{
    decode(composite(1, {prepareEvent(0x22, "Lpkg/Name;")}));
    auto cls = jvm()->getClassByID(0x22);
    ASSERT_TRUE(cls);
    EXPECT_EQ(std::tuple(cls->ClassName(), cls->ClassStatus, cls->ClassTypeTag), std::tuple("pkg/Name"s, 7.0, 1.0));
    ASSERT_EQ(countOf(15, 1), 1u);
    EXPECT_EQ(vm->commandsOf(15, 1)[0].payload[0], EK_EXCEPTION);
    // The VM matches class patterns in dotted form only.
    EXPECT_NE(vm->commandsOf(15, 1)[0].payload.find(u8(MK_ClassMatch) + jstr("pkg.Name")), std::string::npos);

    vm->clearCommands();
    decode(composite(1, {prepareEvent(0x23, "Lpkg/Name$Inner;")}));
    EXPECT_TRUE(jvm()->getClassByID(0x23));
    EXPECT_EQ(countOf(15, 1), 0u) << "inner classes ask for nothing";
}

TEST_F(EventDecoders, CursorRulesOfCompositesAreDeliberate)
{
    userClass();
    // After a breakpoint the cursor is right, so a second breakpoint is seen.
    decode(composite(1, {breakpoint(0x77, location(0x10, 0x31, 0)), breakpoint(0x78, location(0x10, 0x31, 9))}));
    EXPECT_TRUE(log->has("Break(119,Module1,10,0)") && log->has("Break(120,Module1,13,0)"));
    fresh();
    decode(composite(0, {breakpoint(0x77, location(0x10, 0x31, 0)), u8(EK_VM_DEATH)}));
    EXPECT_TRUE(log->has("State(0)"));

    // Thread start and death end the composite; class prepare and exception
    // add the returned cursor to the advanced one: a VM death behind any of
    // them is never read.
    for (const auto& leader :
         {threadEvent(EK_THREAD_START, 9), threadEvent(EK_THREAD_DEATH, 9), prepareEvent(0x25, "Lpkg/Lead$1;"),
          exceptionEvent(location(0x10, 0x31, 5), location(0x10, 0x31, 9))}) {
        fresh();
        decode(composite(1, {leader, u8(EK_VM_DEATH)}));
        EXPECT_FALSE(log->has("State(0)")) << int(leader[0]);
    }
}

} // namespace
} // namespace jdwpkrvdbg
