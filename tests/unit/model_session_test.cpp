// The session object against a scripted VM: the state machine and its
// thread and frame bookkeeping, the argument rules of the Breakpoint event,
// the retry rule of HoldEvents, the guards of an evaluation, cutting before
// escaping a value, which names are numbers, local reads with
// stale frames and their errors, frame 0's predicted id, the window of an
// evaluation's call (also one that never returns), and setting values: the
// typed text against the variable's type, and the commands that set a local,
// a field, a static and a string.
// The tables of byte literals keep their hand layout:
// clang-format off
#include <set>

#include "unit_fixtures.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace jdwpkrvdbg::testing {
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
    EXPECT_EQ(log->stopTexts(), (std::vector<std::string>{"pkg/A:10+0", "pkg/A:12+2", "pkg/A:12+0"}));
    EXPECT_EQ(m->currentLine(), 12.5);
}

TEST_F(ModelSession, HoldEventsRetriesErrorsTwelveTimesButNotATimeOut)
{
    vm->onPayload(1, 15, "", 113);
    jvm()->HoldEvents();
    EXPECT_EQ(vm->commandsOf(1, 15).size(), 12u);
    jvm()->ReleaseEvents(); // never answered: one attempt
    EXPECT_EQ(vm->commandsOf(1, 16).size(), 1u);
}

// A class pkg/A whose static method run has locals `a` (an object), `s` (a
// string), `nan`, `inf`, `infinity` and `k` (ints; pkg/A also has a static
// field k), stopped in thread 1, frame 9. The object is of class pkg/B with
// an int field `b`, a final int field `c` and a getter `label`.
class ModelValues : public ModelTest {
protected:
    static constexpr uint64_t kRun = 0x55cecbfa2550;
    static constexpr uint64_t kOther = 0x55cecbfa2990;
    struct Answer {
        uint16_t error;
        std::string value;
    };
    // StackFrame.GetValues answers by slot, and the method of the top frame
    // at each frame query: in turn, the last one repeating.
    std::map<uint32_t, std::vector<Answer>> locals;
    std::vector<uint64_t> frameMethods{kRun};
    std::map<uint32_t, size_t> localTurns;
    size_t frameTurn = 0;
    // Frame 0's id, and whether GetValues refuses any other (as HotSpot's
    // agent does for a stale generation: INVALID_FRAMEID).
    uint64_t frameID = 9;
    bool checkFrames = false;

    template <class T>
    static const T& inTurn(const std::vector<T>& answers, size_t& turn)
    {
        return answers[std::min(turn++, answers.size() - 1)];
    }
    static std::string intValue(uint32_t v) { return "I" + be32(v); }

    void SetUp() override
    {
        ModelTest::SetUp();
        auto a = registerClass(0x100, "Lpkg/A;");
        auto b = registerClass(0x200, "Lpkg/B;");
        auto run = addMethod(a, kRun, "run", "()V", {{0, 10}});
        addMethod(b, 0x61, "label", "()Ljava/lang/String;");
        a->SuperClassID = b->SuperClassID = 0;
        JDWPJVariableTable vars;
        vars.Slot = {{0, "a", "Lpkg/B;", 100, 1}, {0, "s", "Ljava/lang/String;", 100, 2}, {0, "nan", "I", 100, 3},
                     {0, "inf", "I", 100, 4},     {0, "infinity", "I", 100, 5},          {0, "k", "I", 100, 6}};
        vars.slotsCount = static_cast<double>(vars.Slot.size());
        run->SetVariableTable(vars);
        b->addField(std::make_shared<JXField>(JXField{0x31, "b", "I", 0}));
        b->addField(std::make_shared<JXField>(JXField{0x32, "c", "I", 0x10})); // final
        a->addField(std::make_shared<JXField>(JXField{0x41, "k", "I", 8}));    // static
        locals = {{1, {{0, "L" + be64(0x77)}}}, {2, {{0, "s" + be64(0x78)}}}, {3, {{0, intValue(3)}}},
                  {4, {{0, intValue(4)}}},      {5, {{0, intValue(5)}}},      {6, {{0, intValue(6)}}}};
        vm->on(11, 6, [this](const SentCommand&, std::string& out, uint16_t&) {
            out = be32(1) + be64(frameID) + u8(1) + be64(0x100) + be64(inTurn(frameMethods, frameTurn)) + be64(0);
            return true;
        });
        vm->onPayload(16, 3, std::string("L") + be64(0)); // a static method: no this
        vm->on(16, 1, [this](const SentCommand& c, std::string& out, uint16_t& error) {
            const uint32_t slot = (static_cast<unsigned char>(c.payload[c.payload.size() - 2]));
            if (checkFrames && c.payload.substr(8, 8) != be64(frameID)) {
                error = 30;
                return true;
            }
            const Answer& answer = inTurn(locals[slot], localTurns[slot]);
            error = answer.error;
            out = error ? std::string() : be32(1) + answer.value;
            return true;
        });
        vm->onPayload(9, 1, std::string("\x01", 1) + be64(0x200));
        vm->onPayload(9, 2, be32(1) + "I" + be32(5));
        vm->onPayload(2, 6, be32(1) + "I" + be32(1000));
        vm->onPayload(10, 1, jstr(std::string(20, 'x') + "#y"));
        for (int cmd : {4, 5}) // no further fields or methods
            vm->onPayload(2, cmd, be32(0));
        vm->onPayload(3, 1, be64(0));
        jvm()->GoVMStateChange(VMSuspend, 1);
        jvm()->GoBreakpoint(0, 1, "pkg/A", 0x100, kRun, 10, 0);
        vm->clearCommands();
    }
    // The commands sent, as "set/cmd payload", of the given kinds only (all
    // when none are given).
    std::vector<std::string> sent(const std::set<std::pair<int, int>>& only = {}) const
    {
        std::vector<std::string> out;
        for (const auto& c : vm->commands())
            if (only.empty() || only.count({c.set, c.cmd}))
                out.push_back(std::to_string(c.set) + "/" + std::to_string(c.cmd) + " " + c.payload);
        return out;
    }
    // A new suspension in thread 1: the frame is asked for again.
    void newStop()
    {
        jvm()->GoVMStateChange(VMRunning, -1);
        jvm()->noteSuspension(); // as the stop's event does
        jvm()->GoVMStateChange(VMSuspend, 1);
    }
    // The program's own breakpoint in pkg/A.run, as the VM reports it.
    void breakpointEvent()
    {
        vm->event(u8(2) + be32(1) + u8(EK_BREAKPOINT) + be32(4) + be64(1) + u8(1) + be64(0x100) + be64(kRun) +
                  be64(0));
    }
};

// Only what is written as a number is one; what else the C library would
// read as a number (nan, inf, infinity, hexadecimal) is a name.
TEST_F(ModelValues, NumbersAreWrittenAsNumbers)
{
    const struct { const char* expr; std::string expected; } rows[] = {
        {"12", ""},          {"-1.5", ""},         {"+.5e-3", ""},         {" 7 ", ""},
        {"1E5", ""},         {"", ""},             {"a:b", ""},            {"x=1", ""},
        {"\"quoted", ""},    {"nan", "nan: #3#"},  {"NaN", "NaN: #3#"},    {"inf", "inf: #4#"},
        {"infinity", "infinity: #5#"},             {"INFINITY", "INFINITY: #5#"},
    };
    for (const auto& r : rows) {
        vm->clearCommands();
        EXPECT_EQ(jvm()->getValue(r.expr), r.expected) << r.expr;
        if (r.expected.empty()) {
            EXPECT_TRUE(vm->commands().empty()) << r.expr << ": no name, nothing is sent";
        }
    }
}

// A local read that fails: error codes arrive byte-swapped over the wire
// framing and are still told apart. Only "not in scope here" lets the field
// of the same name stand in; a stale frame is asked for again and read
// there, unless the stop has moved to another method (a popped frame, a
// pause), whose slots are not this method's.
TEST_F(ModelValues, LocalReadsWithStaleFramesAndErrors)
{
    const std::function<void()> none;
    const std::function<void()> pop = [this] { EXPECT_TRUE(jvm()->PopFrame()); };
    const std::function<void()> pause = [this] { jvm()->SuspendVM(); };
    vm->onPayload(16, 4, "");
    const struct {
        const char* name;
        const std::function<void()>& before;
        std::vector<Answer> k;
        std::vector<uint64_t> frames;
        std::string expected;
        size_t kReads, fieldReads;
    } rows[] = {
        {"not in scope here", none, {{35, ""}}, {kRun}, "k: #1000#", 1, 1},
        {"a stale frame", none, {{30, ""}, {0, intValue(5)}}, {kRun}, "k: #5#", 2, 0},
        {"stale, then not in scope", none, {{30, ""}, {35, ""}}, {kRun}, "k: #1000#", 2, 1},
        {"another error", none, {{34, ""}}, {kRun}, "", 1, 0},
        {"stale, and moved to another method", none, {{30, ""}}, {kRun, kOther}, "", 1, 0},
        {"after PopFrame", pop, {{30, ""}}, {kRun, kOther}, "", 0, 0},
        {"after SuspendVM", pause, {{30, ""}}, {kRun, kOther}, "", 0, 0},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        locals[6] = r.k;
        localTurns.clear();
        frameMethods = r.frames;
        frameTurn = 0;
        newStop();
        if (r.before) {
            EXPECT_EQ(jvm()->getValue("nan"), "nan: #3#");
            r.before();
        }
        vm->clearCommands();
        EXPECT_EQ(jvm()->getValue("k"), r.expected);
        EXPECT_EQ(localTurns[6], r.kReads);
        EXPECT_EQ(countOf(2, 6), r.fieldReads);
    }
}

// Frame 0's id at a stop of the thread that made the previous stop is its
// id there plus the step seen between two such stops: no Frames request.
// The VM refuses a stale one; the frame is then asked for and the read sent
// once more with the id it gives, and the step learned again.
TEST_F(ModelValues, FrameZeroIsPredictedAndARefusedPredictionIsAskedFor)
{
    checkFrames = true;
    frameID = 0x50000;
    const std::string thread = be64(1);
    auto get = [&](uint64_t frame) { return "16/1 " + thread + be64(frame) + be32(1) + be32(6) + "I"; };
    const std::string frames = "11/6 " + thread + be32(0) + be32(1);
    const struct { uint64_t generations; std::vector<std::string> sent; } stops[] = {
        {1, {frames, get(0x60000)}},                            // nothing seen yet
        {1, {frames, get(0x70000)}},                            // the step is learned
        {1, {get(0x80000)}},                                    // predicted
        {3, {get(0x90000), frames, get(0xB0000)}},              // refused: asked, read again
        {1, {get(0xE0000), frames, get(0xC0000)}},              // the step of three, refused
        {1, {get(0xD0000)}},                                    // relearned
    };
    for (size_t i = 0; i < std::size(stops); ++i) {
        SCOPED_TRACE("stop " + std::to_string(i));
        newStop();
        frameID += stops[i].generations * 0x10000;
        vm->clearCommands();
        EXPECT_EQ(jvm()->getValue("k"), "k: #6#");
        EXPECT_EQ(sent(), stops[i].sent);
        EXPECT_EQ(jvm()->currentFrameID(), static_cast<double>(frameID));
    }
    // A call made before the stop's first refresh (an exception's text is
    // read so) resumes the thread once more: the refresh after it asks.
    vm->on(9, 6, [&](const SentCommand&, std::string& out, uint16_t&) {
        frameID += 0x10000;
        out = "s" + be64(0x78) + "L" + be64(0);
        return true;
    });
    newStop();
    frameID += 0x10000;
    jvm()->getValueFromMethodCall(0x77, 0x200, 0x61, false);
    vm->clearCommands();
    EXPECT_EQ(jvm()->getValue("k"), "k: #6#");
    EXPECT_EQ(vm->commandsOf(16, 1).size(), 1u) << "a stale id was tried";
    // So does a second refresh at the same stop (a popped frame).
    vm->clearCommands();
    jvm()->refreshFrameID();
    EXPECT_EQ(countOf(11, 6), 1u);
}

// A resume asked for during an evaluation sends nothing, and the
// evaluation's guards are down after it. The cut comes before the escaping:
// a `#` inside the limit is written as its three-character escape and does
// not count against it.
TEST_F(ModelValues, AResumeDuringAnEvaluationSendsNothingAndValuesAreCutThenEscaped)
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
    EXPECT_FALSE(jvm()->evaluating());
    EXPECT_FALSE(jvm()->muteStateEvents());
    jvm()->setMaxValueSize(22);
    EXPECT_EQ(jvm()->getValue("s"), "s: #xxxxxxxxxxxxxxxxxxxx{~}y#");
}

// A call that never returns: its value says so in words and the VM is
// reported running (it runs with the call); no other call is started in
// that thread meanwhile, and the call's late reply brings the stop back.
// The events that come while a call waits for its reply are the call's own
// and are only resumed; from its reply on, the program's events are
// reported again, however soon they come (the clock stands still then); a
// late reply ends no other call's window.
TEST_F(ModelValues, TheCallsWindowEndsWithItsReplyAndACallWithoutOneLeavesTheProgramRunning)
{
    jvm()->setTargetClassName({"pkg/A"});
    uint32_t invocation = 0;
    std::function<bool(std::string&)> answer; // none: the call never returns
    vm->on(9, 6, [&](const SentCommand& c, std::string& out, uint16_t&) {
        if (answer)
            return answer(out);
        invocation = c.id;
        return false;
    });
    const std::string a = "\r\na: Type: pkg/B - ObjID: 119";
    EXPECT_EQ(jvm()->getValue("a.label"),
              "#a.label: (label did not return within 4 s: the call timed out and is still running in the VM)#" + a);
    EXPECT_EQ(jvm()->JVMState(), VMRunning);
    ASSERT_FALSE(log->states.empty());
    EXPECT_EQ(log->states.back(), VMRunning);
    EXPECT_FALSE(jvm()->isInvokeInProcess());
    EXPECT_EQ(jvm()->getValue("a.label"),
              "#a.label: (not evaluated: it needs a call of label, and an earlier call is still running in this "
              "thread)#" + a);
    EXPECT_EQ(countOf(9, 6), 1u);
    EXPECT_EQ(jvm()->getValue("a.label.b"), "a.label.b - Not available!\r\na.label: (not evaluated: it needs a call "
                                            "of label, and an earlier call is still running in this thread)" + a);
    vm->reply(invocation, "s" + be64(0x78) + "L" + be64(0));
    EXPECT_EQ(jvm()->JVMState(), VMSuspend);

    EXPECT_NE(jvm()->getValue("a.label").find("did not return"), std::string::npos);
    jvm()->GoVMStateChange(VMSuspend, 2);
    setTickSource([] { return 77000u; });
    answer = [&](std::string& out) {
        vm->reply(invocation, "s" + be64(0x78) + "L" + be64(0)); // the earlier call's, in another thread
        EXPECT_TRUE(jvm()->isInvokeInProcess());
        breakpointEvent(); // hit by this call
        out = "s" + be64(0x78) + "L" + be64(0);
        return true;
    };
    const size_t stops = log->stops.size(), resumes = countOf(1, 9);
    EXPECT_EQ(jvm()->getValue("a.label"), "#a.label: xxxxxxxxxxxxxxxxxxxx{~}y#" + a);
    EXPECT_EQ(log->stops.size(), stops) << "this call's own stop reached the host";
    EXPECT_EQ(countOf(1, 9), resumes + 1) << "this call's own stop is resumed";
    EXPECT_FALSE(jvm()->isInvokeInProcess());
    breakpointEvent();
    ASSERT_EQ(log->stops.size(), stops + 1);
    EXPECT_EQ(log->stopTexts().back(), "pkg/A:10+0");
}

// The text typed for a value, against the declared type: the tag and bytes
// it is written with ("s" and the text for a string to make), or the reason
// it does not fit.
TEST(ValueLiterals, TheTypedTextFitsTheDeclaredTypeOrSaysWhy)
{
    // By declared type: the typed text, and what it is written as or "!"
    // and a part of the reason.
    using Rows = std::vector<std::pair<std::string, std::string>>;
    const std::string notWhole = "!an int takes a whole number";
    const std::pair<const char*, Rows> types[] = {
        {"I", {{"5", "I 00 00 00 05"}, {" -2147483648 ", "I 80 00 00 00"}, {"'a'", "I 00 00 00 61"},
               {"2147483648", "!from -2147483648 to 2147483647, not 2147483648"},
               {"3.5", notWhole}, {"\"x\"", notWhole}, {"5L", notWhole},
               {"x", "!x is not a value (a number, true, false"}, {"", "!no value given"}}},
        {"J", {{"-1", "J FF FF FF FF FF FF FF FF"}, {"9223372036854775807L", "J 7F FF FF FF FF FF FF FF"},
               {"-9223372036854775808", "J 80 00 00 00 00 00 00 00"},
               {"9223372036854775808", "!a long takes a whole number"},
               {"99999999999999999999999", "!a long takes a whole number"}}},
        {"B", {{"127", "B 7F"}, {"-129", "!a byte takes a whole number from -128 to 127"}, {"'a'", "!a byte takes"}}},
        {"S", {{"-300", "S FE D4"}}},
        {"C", {{"'A'", "C 00 41"}, {"'\\u00e9'", "C 00 E9"}, {"'\xc3\xa9'", "C 00 E9"}, {"'\\n'", "C 00 0A"},
               {"65535", "C FF FF"}, {"65536", "!a char takes a character"}, {"'ab'", "!is not a value"},
               {"-1", "!a char takes"}}},
        {"Z", {{"true", "Z 01"}, {"false", "Z 00"}, {"1", "!a boolean takes true or false, not 1"}}},
        {"D", {{"5", "D 40 14 00 00 00 00 00 00"}, {"2.5", "D 40 04 00 00 00 00 00 00"},
               {"-0.0", "D 80 00 00 00 00 00 00 00"}, {"1e-400", "D 00 00 00 00 00 00 00 00"},
               {"NaN", "D 7F F8 00 00 00 00 00 00"}, {"1e400", "!a double takes a number of at most"},
               {"true", "!a double takes a number"}}},
        {"F", {{"0.1", "F 3D CC CC CD"}, {"2.5f", "F 40 20 00 00"}, {"-Infinity", "F FF 80 00 00"},
               {"3.4028235E38", "F 7F 7F FF FF"}, {"3.5e38", "!a float takes a number of at most 3.4028235E38"},
               {"3.4028236e38", "!a float takes a number of at most"}}},
        {"Ljava/lang/String;", {{"\"a\\\"b\\\\\\n\"", "s \"a\"b\\\n\""},
                                {"\"\\ud83d\\ude00 #1\"", "s \"\xf0\x9f\x98\x80 #1\""}, {"\"\"", "s \"\""}, {"null", "s "},
                                {"\"a\"b\"", "!is not a value"}, {"\"\\q\"", "!is not a value"}, {"\"open", "!is not a value"},
                                {"5", "!a java.lang.String takes \"text\" or null, not 5"}}},
        {"Ljava/lang/Object;", {{"\"x\"", "s \"x\""}}},
        {"Lpkg/Point;", {{"null", "L "}, {"\"x\"", "!a pkg.Point takes only null here"}}},
        {"[I", {{"null", "[ "}}},
        {"", {{"5", "!the variable's type is not known"}}},
    };
    for (const auto& [signature, rows] : types)
        for (const auto& [text, expected] : rows) {
            JXValueLiteral literal;
            const std::string why = JXMachine::parseValueLiteral(signature, text, literal);
            const std::string got = !why.empty()       ? "!" + why
                                    : literal.isString ? "s \"" + literal.text + "\""
                                                       : std::string(1, char(literal.tag)) + " " + hex(literal.bytes);
            if (expected[0] == '!')
                EXPECT_NE(got.find(expected.substr(1)), std::string::npos) << signature << " " << text << ": " << got;
            else
                EXPECT_EQ(got, expected) << signature << " " << text;
        }
}

// Setting a local, a field of an object, a static and a string: what is
// sent, in order, and the answer in words. A value that does not fit sends
// no set; one that is no value at all sends nothing. A string made for the
// set is held from the collector until it is set, and made again when it
// was collected before it could be held.
TEST_F(ModelValues, ValuesAreSetAsTheVariablesTypeTakesThemOrNotAtAll)
{
    uint16_t setError = 0;
    for (const auto& [set, cmd] : {std::pair{16, 2}, std::pair{9, 3}, std::pair{3, 2}})
        vm->on(set, cmd, [&](const SentCommand&, std::string&, uint16_t& error) {
            error = setError;
            return true;
        });
    std::vector<uint16_t> holds{0};
    size_t holdTurn = 0;
    vm->onPayload(1, 11, be64(0x90));
    vm->on(9, 7, [&](const SentCommand&, std::string&, uint16_t& error) {
        error = inTurn(holds, holdTurn);
        return true;
    });
    vm->onPayload(9, 8, "");
    // A long `k` of a later block comes first in the table: the one in
    // scope at the stop's code index is the one set.
    auto run = jvm()->getClassByID(0x100)->JMethodID(kRun);
    JDWPJVariableTable vars = run->variableTable();
    vars.Slot.insert(vars.Slot.begin(), {100, "k", "J", 50, 7});
    run->SetVariableTable(vars);
    // Making a string, holding it from the collector, the three sets, and
    // letting the string go.
    const std::set<std::pair<int, int>> setting{{1, 11}, {9, 7}, {16, 2}, {9, 3}, {3, 2}, {9, 8}};
    const std::string local = "16/2 " + be64(1) + be64(9) + be32(1), field = "9/3 " + be64(0x77) + be32(1);
    const std::string make = "1/11 " + jstr("hi"), hold = "9/7 " + be64(0x90), release = "9/8 " + be64(0x90);
    const std::string setString = local + be32(2) + "s" + be64(0x90), setStatic = "3/2 " + be64(0x100) + be32(1);
    const struct {
        const char* target;
        std::string value;
        uint16_t error;
        std::vector<uint16_t> holds;
        std::string expected; // "" or a part of the reason
        std::vector<std::string> sent;
    } rows[] = {
        {"k", "7", 0, {0}, "", {local + be32(6) + "I" + be32(7)}},
        {"K", " -1 ", 0, {0}, "", {local + be32(6) + "I" + be32(0xffffffff)}},
        {"s", "\"hi\"", 0, {0}, "", {make, hold, setString, release}},
        {"s", "\"hi\"", 0, {20, 0}, "", {make, hold, make, hold, setString, release}},
        {"s", "\"hi\"", 0, {20}, "collected before it could be set", {make, hold, make, hold}},
        {"s", "null", 0, {0}, "", {local + be32(2) + "s" + be64(0)}},
        {"a.b", "9", 0, {0}, "", {field + be64(0x31) + be32(9)}},
        {"pkg.A.k", "4", 0, {0}, "", {setStatic + be64(0x41) + be32(4)}},
        {"k", "7", 34, {0}, "k: the VM refused: the value does not fit", {local + be32(6) + "I" + be32(7)}},
        {"s", "\"hi\"", 35, {0}, "s: the VM refused: the variable is not in scope", {make, hold, setString, release}},
        {"k", "3.5", 0, {0}, "k: an int takes a whole number", {}},
        {"a.c", "1", 0, {0}, "c is final", {}},
        {"a.zz", "1", 0, {0}, "zz is not a field of pkg.B", {}},
        {"nosuch", "1", 0, {0}, "nosuch is not a local, a field of this or a static here", {}},
        {"k", "seven", 0, {0}, "seven is not a value", {}},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(std::string(r.target) + " = " + r.value);
        setError = r.error;
        holds = r.holds;
        holdTurn = 0;
        vm->clearCommands();
        const std::string why = jvm()->setValue(r.target, r.value);
        if (r.expected.empty())
            EXPECT_EQ(why, "");
        else
            EXPECT_NE(why.find(r.expected), std::string::npos) << why;
        EXPECT_EQ(sent(setting), r.sent);
        if (r.value == "seven") {
            EXPECT_TRUE(vm->commands().empty()) << "no value: nothing is asked";
        }
        EXPECT_FALSE(jvm()->evaluating());
    }
    // "in CLASS" names the class's static, though a local has the name too.
    vm->clearCommands();
    EXPECT_EQ(jvm()->setValue("k", "4", "pkg/A"), "");
    EXPECT_EQ(sent(setting), std::vector{setStatic + be64(0x41) + be32(4)});
    // A getter on the path that does not return leaves the program
    // running, and the host is told so.
    vm->on(9, 6, [](const SentCommand&, std::string&, uint16_t&) { return false; });
    EXPECT_NE(jvm()->setValue("a.label.b", "1").find("a.label is not an object"), std::string::npos);
    ASSERT_FALSE(log->states.empty());
    EXPECT_EQ(log->states.back(), VMRunning);
    vm->clearCommands();
    EXPECT_EQ(jvm()->setValue("k", "7"), "the VM is not suspended");
    EXPECT_TRUE(vm->commands().empty());
}

} // namespace
} // namespace jdwpkrvdbg::testing
