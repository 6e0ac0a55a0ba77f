// The session object against a scripted VM: the state machine and its
// thread and frame bookkeeping, the argument rules of the Breakpoint event,
// the invocation window, the retry rule of HoldEvents, the guards of an
// evaluation, and the text layout of getValue over a dotted path.
#include "model_test_support.h"

namespace jdwpkrvdbg::model_test {
namespace {

using ModelSession = ModelTest;

TEST_F(ModelSession, StateMachineFiltersRepeatsAndTracksThreadAndFrame)
{
    auto m = jvm();
    m->GoVMStateChange(VMRunning, -1);
    const struct { VMState state; double thread; bool event; double currentThread; } steps[] = {
        {VMSuspend, 0, true, 0},   // a thread of 0 is not recorded
        {VMSuspend, 7, false, 0},  // a repeat raises nothing and records nothing
        {VMRunning, -1, true, 0},
        {VMSuspend, 7, true, 7},
        {VMDead, -1, true, 7}};
    for (const auto& s : steps) {
        const size_t before = log->states.size();
        m->GoVMStateChange(s.state, s.thread);
        EXPECT_EQ(log->states.size() > before, s.event) << s.state << " " << s.thread;
        EXPECT_EQ(m->currentThreadID(), s.currentThread);
    }
    EXPECT_FALSE(m->frameValid()) << "a suspension with a thread invalidates the frame";
}

TEST_F(ModelSession, BreakpointEventRoundsHalfToEvenAndReportsOffsetsOfStopPointsOnly)
{
    auto m = jvm();
    m->addStopPoint("pkg/Nowhere", "run", 3);
    auto stopPoint = m->getStopPoint("pkg/Nowhere", "run", 3);
    ASSERT_NE(stopPoint, nullptr);
    stopPoint->RequestEventID = 5;
    m->GoBreakpoint(99, 1, "pkg/A", 1, 2, 10.5, 3);  // unknown request: offset 0
    m->GoBreakpoint(5, 1, "pkg/A", 1, 2, 11.5, 2.5); // stop point: its offset, rounded to even
    m->GoSingleStep(5, 1, "pkg/A", 1, 2, 12.5, 7);   // a step never has an offset
    EXPECT_EQ(log->stops, (std::vector<std::string>{"pkg/A:10+0", "pkg/A:12+2", "pkg/A:12+0"}));
    EXPECT_EQ(m->currentLine(), 12.5);
}

TEST_F(ModelSession, InvocationWindowLastsBelowTwoSeconds)
{
    uint32_t now = 50000;
    setTickSource([&] { return now; });
    const struct { uint32_t started, now; bool inProcess; } rows[] = {
        {0, 50000, false}, {50000, 51999, true}, {50000, 52000, false}};
    for (const auto& r : rows) {
        jvm()->myInvokeInProcessMsg = r.started;
        now = r.now;
        EXPECT_EQ(jvm()->isInvokeInProcess(), r.inProcess) << r.started << " at " << r.now;
    }
}

TEST_F(ModelSession, HoldEventsRetriesErrorsTwelveTimesButNotATimeOut)
{
    vm->onPayload(1, 15, "", 113);
    jvm()->HoldEvents();
    EXPECT_EQ(vm->commandsOf(1, 15).size(), 12u);
    jvm()->ReleaseEvents(); // never answered: one attempt
    EXPECT_EQ(vm->commandsOf(1, 16).size(), 1u);
}

// A class pkg/A whose method run has locals `a` (an object) and `s` (a
// string), stopped in thread 1, frame 9; the object is of class pkg/B with
// an int field `b`.
class ModelValues : public ModelTest {
protected:
    void SetUp() override
    {
        ModelTest::SetUp();
        auto a = registerClass(0x100, "Lpkg/A;");
        auto b = registerClass(0x200, "Lpkg/B;");
        auto run = addMethod(a, 0x55cecbfa2550, "run", "()V", {{0, 10}});
        a->SuperClassID = b->SuperClassID = 0;
        JDWPJVariableTable vars;
        vars.Slot = {{0, "a", "Lpkg/B;", 100, 1}, {0, "s", "Ljava/lang/String;", 100, 2}};
        vars.slotsCount = 2;
        run->SetVariableTable(vars);
        auto field = std::make_shared<JXField>();
        field->FieldID = 0x31;
        field->FieldName = "b";
        field->FieldSignature = "I";
        b->addField(field);
        vm->onPayload(11, 6, be32(1) + be64(9) + std::string("\x01", 1) + be64(0x100) + be64(0x55cecbfa2550) + be64(0));
        vm->onPayload(16, 3, std::string("L") + be64(0)); // a static method: no this
        vm->on(16, 1, [](const SentCommand& c, std::string& out, uint16_t&) {
            const bool first = c.payload.substr(c.payload.size() - 5, 4) == be32(1);
            out = be32(1) + (first ? std::string("L") + be64(0x77) : std::string("s") + be64(0x78));
            return true;
        });
        vm->onPayload(9, 1, std::string("\x01", 1) + be64(0x200));
        vm->onPayload(9, 2, be32(1) + "I" + be32(5));
        vm->onPayload(10, 1, jstr(std::string(20, 'x') + "#y"));
        for (int cmd : {4, 5}) // no further fields or methods
            vm->onPayload(2, cmd, be32(0));
        vm->onPayload(3, 1, be64(0));
        jvm()->GoVMStateChange(VMSuspend, 1);
        jvm()->GoBreakpoint(0, 1, "pkg/A", 0x100, 0x55cecbfa2550, 10, 0);
        vm->clearCommands();
    }
};

// A dotted path puts the last element first; only the last element is cut
// and escaped.
TEST_F(ModelValues, GetValueTextLayouts)
{
    const struct { const char* expr; int32_t maxSize; std::string expected; } rows[] = {
        {"a.b", 512, "#a.b: 5#\r\na: Type: pkg/B - ObjID: 119"},
        {"a.zz", 512, "a.zz - Not available!\r\na: Type: pkg/B - ObjID: 119"},
        {"zz", 512, ""}, // a single unknown name gives nothing
        {"s", 22, "s: #xxxxxxxxxxxxxxxxxxxx{~}y#"},
        {"s", 4, "s: #xxxx#"},
    };
    for (const auto& r : rows) {
        jvm()->setMaxValueSize(r.maxSize);
        EXPECT_EQ(jvm()->getValue(r.expr), r.expected) << r.expr;
    }
    EXPECT_FALSE(jvm()->evaluating());
    EXPECT_FALSE(jvm()->muteStateEvents());
    vm->clearCommands();
    for (const char* expr : {"", "a:b", "x=1", "12", "\"quoted", "1.5"})
        EXPECT_EQ(jvm()->getValue(expr), "") << expr;
    EXPECT_TRUE(vm->commands().empty()) << "expressions that are no names send nothing";
}

TEST_F(ModelValues, ResumeDuringAnEvaluationSendsNothing)
{
    vm->on(9, 2, [this](const SentCommand&, std::string& out, uint16_t&) {
        jvm()->ResumeVM(true); // a host handler calling back in the middle
        EXPECT_FALSE(jvm()->ResumeVMStepByStep());
        out = be32(1) + "I" + be32(5);
        return true;
    });
    EXPECT_EQ(jvm()->getValue("a.b").substr(0, 9), "#a.b: 5#\r");
    EXPECT_TRUE(vm->commandsOf(1, 9).empty());
    EXPECT_TRUE(vm->commandsOf(15, 1).empty());
}

} // namespace
} // namespace jdwpkrvdbg::model_test
