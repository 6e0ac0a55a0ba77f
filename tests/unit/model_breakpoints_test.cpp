// Breakpoints, stop points and step requests against the scripted VM: the
// exact EventRequest bytes, the collection's bookkeeping (duplicates,
// waiting entries registered at class load, removal that keeps an entry whose
// clear failed), and the step flow's guards.
// The tables of byte literals keep their hand layout:
// clang-format off
#include "unit_fixtures.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

constexpr uint64_t kMethod = 0x00007f3a9c012345;

class ModelBreakpoints : public ModelTest {
protected:
    // pkg/Name with run() at lines 10..12 and a stop-point target Work().
    std::shared_ptr<JXClass> loadTarget(bool printInfo = true, const std::string& signature = "Lpkg/Name;")
    {
        auto cls = std::make_shared<JXClass>();
        cls->ClassID = 0x40;
        cls->ClassSignature = signature;
        addMethod(cls, static_cast<double>(kMethod), "run", "()V", {{0, 10}, {4, 11}, {9, 12}});
        addMethod(cls, 7, "Work", "(I)V", {{0, 20}});
        jvm()->addClass(cls, printInfo);
        return cls;
    }
};

TEST_F(ModelBreakpoints, RequestBytes)
{
    jvm()->setEvents(nullptr);
    loadTarget(false);
    uint32_t nextID = 41; // event requests get ids 41, 42, ... from here on
    vm->on(15, 1, [&nextID](const SentCommand&, std::string& out, uint16_t&) { out = be32(nextID++); return true; });
    auto step = [](JDWPStepDepth depth, double count) {
        auto s = std::make_shared<JXBreakpoint>();
        s->TargetThreadID = 0x1234;
        s->StepCount = count;
        s->registerStepEvent(depth);
    };
    const std::string location = u8(1) + be64(0x40) + be64(kMethod);
    std::string defaultExcludes;
    for (const char* p : {"java.*", "javax.*", "sun.*", "com.sun.*", "VBA.*", "Form"})
        defaultExcludes += u8(6) + jstr(p);
    // The step rows end with the session's default class exclusions.
    const struct { const char* what; std::function<void()> act; int cmd; std::string payload; } rows[] = {
        {"line breakpoint", [&] { jvm()->addBreakpoint("pkg/Name", 11); }, 1,
         "\x02\x02" + be32(1) + u8(7) + location + be64(4)},
        {"same line in signature form", [&] { jvm()->addBreakpoint("Lpkg/Name;", 12); }, 1,
         "\x02\x02" + be32(1) + u8(7) + location + be64(9)},
        {"stop point, method name in any case", [&] { jvm()->addStopPoint("pkg/Name", "work", 3); }, 1,
         "\x02\x02" + be32(1) + u8(7) + u8(1) + be64(0x40) + be64(7) + be64(3)},
        {"clear of a breakpoint, by the id the scripted VM handed out",
         [&] { jvm()->removeBreakpoint("pkg/Name", 11); }, 2, u8(2) + be32(41)},
        {"step, count 0", [&] { step(SD_OVER, 0); }, 1,
         "\x01\x02" + be32(7) + u8(10) + be64(0x1234) + be32(1) + be32(1) + defaultExcludes},
        {"step, count 3", [&] { step(SD_OUT, 3); }, 1,
         "\x01\x02" + be32(8) + u8(10) + be64(0x1234) + be32(1) + be32(2) + u8(1) + be32(3) + defaultExcludes},
        {"clear of an entry without a class goes out as a step clear (intended)",
         [] { JXBreakpoint b; b.RequestEventID = 9; b.unregisterBreakPoint(); }, 2, u8(1) + be32(9)},
        {"asynchronous step clear",
         [] { JXBreakpoint b; b.RequestEventID = 12; EXPECT_FALSE(b.unregisterStepEvent(true)); }, 2, u8(1) + be32(12)},
    };
    for (const auto& row : rows) {
        vm->clearCommands();
        row.act();
        ASSERT_EQ(vm->commands().size(), 1u) << row.what;
        const SentCommand& c = vm->commands()[0];
        EXPECT_EQ(std::tuple(c.set, c.cmd, c.payload), std::tuple(15, row.cmd, row.payload)) << row.what;
    }
}

TEST_F(ModelBreakpoints, WaitingEntriesAreKeptOnceAndRegisteredWhenTheirClassLoads)
{
    vm->onPayload(1, 2, be32(0)); // the classes are not loaded yet
    EXPECT_TRUE(jvm()->addBreakpoint("pkg/Name", 11));
    EXPECT_FALSE(jvm()->addBreakpoint("pkg/Name", 11));
    EXPECT_TRUE(jvm()->addBreakpoint("pkg/Other", 11));
    EXPECT_TRUE(jvm()->addStopPoint("Lpkg/Name;", "work", 2));
    EXPECT_FALSE(jvm()->addStopPoint("Lpkg/Name;", "WORK", 2));
    EXPECT_TRUE(jvm()->addStopPoint("pkg/Other", "Work", 0));
    EXPECT_TRUE(jvm()->addBreakpoint("pkg/Name", 15)); // no code on that line: never registered
    EXPECT_EQ(countOf(15, 1), 0u);

    vm->clearCommands();
    EXPECT_TRUE(jvm()->removeBreakpoint("pkg/Other", 11));
    EXPECT_TRUE(jvm()->removeStopPoint("pkg/Other", "Work", 0));
    EXPECT_FALSE(jvm()->removeBreakpoint("pkg/Other", 11));
    EXPECT_TRUE(vm->commands().empty()) << "a never-registered entry is dropped without asking the VM";

    loadTarget(true);
    EXPECT_EQ(log->debug, (std::vector<std::string>{" *** Load pkg#Name"}));
    ASSERT_EQ(countOf(15, 1), 2u);
    const auto& bps = jvm()->breakpoints();
    ASSERT_EQ(bps.size(), 3u);
    for (size_t i = 0; i < bps.size(); ++i)
        EXPECT_EQ(bps[i]->UsedByVM, i < 2) << i;
    EXPECT_EQ(bps[0]->location().Index, 4);
    EXPECT_EQ(bps[1]->location().MethodID, 7);
    EXPECT_EQ(jvm()->getBreakPointByID(bps[1]->RequestEventID), bps[1]);
    EXPECT_EQ(jvm()->getBreakPointByID(0), nullptr);
    EXPECT_EQ(jvm()->getBreakPointByID(999), nullptr);

    // A second load of the same class does not place the requests again.
    vm->clearCommands();
    loadTarget(true);
    EXPECT_EQ(countOf(15, 1), 0u);

    // A new session keeps the entries but none of the old VM's requests:
    // the class loading there registers them again.
    jvm()->cleanup();
    EXPECT_EQ(bps.size(), 3u);
    for (const auto& bp : bps)
        EXPECT_EQ(std::tuple(bp->UsedByVM, bp->RequestEventID), std::tuple(false, 0.0));
    vm->clearCommands();
    loadTarget(true);
    EXPECT_EQ(countOf(15, 1), 2u);
}

TEST_F(ModelBreakpoints, NestedAndAnonymousClassesRegisterTheirWaitingEntriesWithoutALoadLine)
{
    // Lines inside Name$1 (an anonymous class) belong to that class only.
    vm->onPayload(1, 2, be32(0));
    EXPECT_TRUE(jvm()->addBreakpoint("pkg/Name$1", 11));
    loadTarget(true, "Lpkg/Name$1;");
    EXPECT_TRUE(log->debug.empty()) << "nested classes are loaded without a line of their own";
    EXPECT_EQ(countOf(15, 1), 1u);
    EXPECT_TRUE(jvm()->breakpoints().front()->UsedByVM);
}

// Collection items are CLASS:LINE, the malformed ones reported; removal by
// class takes the entries of exactly that name and returns them; an entry
// whose clear the VM refused is kept.
TEST_F(ModelBreakpoints, CollectionItemsRemovalByClassAndAFailedClear)
{
    loadTarget(false);
    const JXBreakpointCollection items{"pkg/Name:10", " Lpkg/Name; : 12 ", "no-colon", "pkg/Name:x",
                                       ":5",          "pkg/Name:0",         "pkg/Name:10"};
    EXPECT_FALSE(jvm()->addBreakpointByCollection(items)) << "malformed items are reported";
    const auto& bps = jvm()->breakpoints();
    ASSERT_EQ(bps.size(), 2u);
    EXPECT_EQ(std::tuple(bps[0]->ClassName, bps[0]->LineNr, bps[1]->ClassName, bps[1]->LineNr),
              std::tuple("pkg/Name", 10, "Lpkg/Name;", 12));
    EXPECT_TRUE(jvm()->addBreakpointByCollection({"a/B:1"}));

    jvm()->addStopPoint("pkg/Name", "Work", 0);
    const auto removed = jvm()->removeBreakpointByClass("pkg/Name");
    ASSERT_EQ(removed.size(), 2u);
    EXPECT_FALSE(removed[0]->StopPoint);
    EXPECT_TRUE(removed[1]->StopPoint);
    ASSERT_EQ(bps.size(), 2u) << "exact name comparison";
    EXPECT_EQ(bps[0]->ClassName, "Lpkg/Name;");
    ASSERT_TRUE(bps[0]->UsedByVM);
    vm->onPayload(15, 2, "", 41 /* INVALID_EVENT_TYPE-like failure */);
    EXPECT_FALSE(jvm()->removeBreakpoint("Lpkg/Name;", 12));
    EXPECT_EQ(bps.size(), 2u);
    vm->onPayload(15, 2, "");
    EXPECT_TRUE(jvm()->removeBreakpoint("Lpkg/Name;", 12));
    EXPECT_EQ(bps.size(), 1u);
}

TEST_F(ModelBreakpoints, AStepRegistersThenResumesTheNextClearsItAndARefusedOneReleasesTheGuard)
{
    EXPECT_TRUE(jvm()->ResumeVMStepByStep(false, 0x99, SD_OVER));
    EXPECT_EQ(wire(), (Wire{{15, 1}, {1, 9}})) << "a step request, then a plain resume";
    EXPECT_EQ(vm->commands()[0].payload.substr(6, 1 + 8 + 4 + 4), u8(10) + be64(0x99) + be32(1) + be32(1));
    ASSERT_NE(jvm()->myLastStepEvent, nullptr);
    const double stepID = jvm()->myLastStepEvent->RequestEventID;
    EXPECT_TRUE(jvm()->myStepInProcess);

    EXPECT_FALSE(jvm()->ResumeVMStepByStep(false, 0x99)) << "a step is under way";
    jvm()->myStepInProcess = false; // as the next event does
    vm->clearCommands();
    EXPECT_TRUE(jvm()->ResumeVMStepByStep(false, 0x99));
    EXPECT_EQ(wire(), (Wire{{15, 2}, {15, 1}, {1, 9}}));
    EXPECT_EQ(vm->commands()[0].payload, u8(1) + be32(static_cast<uint32_t>(stepID)));

    vm->clearCommands();
    jvm()->unregisterLastStepEvent();
    EXPECT_EQ(jvm()->myLastStepEvent, nullptr);
    jvm()->unregisterLastStepEvent();
    EXPECT_EQ(countOf(15, 2), 1u) << "the second call has nothing left to clear";

    // A refused step releases the guard and does not resume.
    jvm()->myStepInProcess = false;
    vm->clearCommands();
    vm->onPayload(15, 1, "", 10 /* INVALID_THREAD */);
    EXPECT_FALSE(jvm()->ResumeVMStepByStep(false, 0x99));
    EXPECT_FALSE(jvm()->myStepInProcess);
    EXPECT_EQ(countOf(1, 9), 0u) << "no resume without a step request";
    EXPECT_EQ(jvm()->myLastStepEvent, nullptr);

    // Without a thread nothing is sent, and further steps stay blocked.
    vm->clearCommands();
    EXPECT_FALSE(jvm()->ResumeVMStepByStep());
    EXPECT_TRUE(jvm()->myStepInProcess);
    EXPECT_FALSE(jvm()->ResumeVMStepByStep(false, 5));
    EXPECT_TRUE(vm->commands().empty());
}

TEST_F(ModelBreakpoints, AStepSkipsTheBroadestPackageOfNoTargetAndNeverATarget)
{
    // targets, class the step landed in, pattern it may skip ("" = none)
    const struct { std::vector<std::string> targets; const char* landed; const char* skip; } rows[] = {
        {{"App"}, "org/h2/jdbc/JdbcPreparedStatement", "org.*"},
        {{"App", "org/acme/Main"}, "org/h2/jdbc/JdbcPreparedStatement", "org.h2.*"},
        {{"com/acme/app/Main"}, "com/acme/lib/Util", "com.acme.lib.*"},
        {{"com/acme/app/Main"}, "Lcom/acme/lib/Util;", "com.acme.lib.*"},
        {{"com/acme/Main"}, "com/acme/Helper$1", "com.acme.Helper*"},
        {{"App"}, "Lib$Inner", "Lib*"},
        // The pattern would take in a target class.
        {{"com/acme/HelperMain"}, "com/acme/Helper", ""},
        {{"Ap"}, "A", ""},
        // A target given as a pattern is kept out whatever its form.
        {{"com.acme.*"}, "com/acme/lib/Util", ""},
        {{"com.acme.*"}, "org/h2/Driver", "org.*"},
        {{"*Main"}, "org/h2/Driver", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.landed);
        jvm()->setTargetClassName(row.targets);
        EXPECT_EQ(jvm()->stepSkipPattern(row.landed), row.skip);
    }
}

} // namespace
