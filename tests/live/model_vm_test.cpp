// The debug model and execution control against a real OpenJDK 17 VM
// running tests/java/Stepper: breakpoints and stop points set before the VM
// starts are registered when their class loads; at the first stop the class
// registry, superclass chain, line and variable tables and the thread list
// are checked against the program's source; then the stop is moved on by
// steps into, over and out (and past library code) and by resumes to the
// stops in the late class (by line, by method name, at a code offset), the
// exception caught in another class, removed breakpoints, lines without
// code, the runtime's debug print and the end, and a second VM that
// registers the kept breakpoints again. Then suspend/resume, pauses (suspend
// at the next step) and hold/release; and stepping into library code that is
// no target (tests/java/LibUser).
#include "LiveSessionTest.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

class LiveModel : public LiveSessionTest {
protected:
    LiveModel() : LiveSessionTest("tests/java/Stepper.java") {}
    void step(JDWPStepDepth depth)
    {
        const size_t before = log->stops.size();
        ASSERT_TRUE(jvm->ResumeVMStepByStep(false, 0, depth)) << dump();
        ASSERT_TRUE(waitStop(before)) << dump();
    }
    // A step of a depth, or kResume to the next stop; then the class and the
    // marker of the line where the stop is expected.
    static constexpr int kResume = -1;
    struct Move {
        int depth;
        const char* cls;
        const char* marker;
    };
    void follow(const std::vector<Move>& moves)
    {
        for (const Move& m : moves) {
            SCOPED_TRACE(m.marker);
            if (m.depth == kResume) {
                ASSERT_TRUE(resumeToNextStop()) << dump();
            } else {
                step(static_cast<JDWPStepDepth>(m.depth));
            }
            EXPECT_EQ(lastStop().className, m.cls);
            EXPECT_EQ(lastStop().line, lineAt(m.marker)) << dump();
        }
    }
};

TEST_F(LiveModel, RegistryLineTablesThreadsBreakpointsStepsAndExceptions)
{
    // Stops are reported for the program's own classes only.
    jvm->setTargetClassName({"Stepper", "Late", "Thrower"});
    const int lineA = lineAt("@main-a"), lineCall = lineAt("@main-call"), lineTwice = lineAt("@twice-body");
    const int noCode = lineOf("tests/java/Stepper.java", "static int total;");
    // Set before the VM exists: all wait for their class.
    for (const char* marker : {"@main-a", "@main-self", "@main-loop"})
        EXPECT_TRUE(jvm->addBreakpoint("Stepper", lineAt(marker)));
    EXPECT_TRUE(jvm->addBreakpoint("Stepper", noCode));
    EXPECT_TRUE(jvm->addBreakpoint("LLate;", lineTwice));
    EXPECT_TRUE(jvm->addStopPoint("Late", "DEEPER", 0));
    jvm->addBreakpoint("Stepper", lineAt("@main-loop"));
    EXPECT_EQ(jvm->breakpoints().size(), 6u) << "the same class and line twice keep one entry";
    for (const auto& bp : jvm->breakpoints())
        EXPECT_FALSE(bp->UsedByVM);

    ASSERT_TRUE(launch("Stepper")) << dump();
    ASSERT_TRUE(waitStop(0)) << dump();
    ASSERT_EQ(lastStop().line, lineA);
    EXPECT_TRUE(log->sawDebug(" *** Load Stepper"));
    EXPECT_TRUE(jvm->breakpoints()[0]->UsedByVM);

    // --- classes (the lookups by other name forms are unit-tested) ---
    auto stepper = jvm->getClassByName("Stepper");
    ASSERT_NE(stepper, nullptr);
    EXPECT_EQ(stepper->ClassSignature, "LStepper;");
    auto object = stepper->SuperClass();
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->ClassName(), "java/lang/Object");
    EXPECT_EQ(object->SuperClass(), nullptr);
    EXPECT_EQ(jvm->getClassByName("Ljava/lang/Object;", true), object);
    auto string = jvm->getClassByName("Ljava/lang/String;", true);
    ASSERT_NE(string, nullptr) << "a loaded library class is found by signature";
    EXPECT_EQ(string->ClassName(), "java/lang/String");

    auto main = stepper->JMethodWithoutParams("MAIN");
    ASSERT_NE(main, nullptr);
    EXPECT_EQ(std::tuple(main->MethodName, main->MethodSignature, main->isStatic()),
              std::tuple("main", "([Ljava/lang/String;)V", true));
    // A 64-bit VM hands out method ids that are addresses, far above 2^31;
    // the line table below was fetched with that id.
    EXPECT_GT(main->MethodID, 2147483648.0);
    auto hashCode = stepper->JMethodWithoutParams("hashcode");
    ASSERT_NE(hashCode, nullptr) << "found in the superclass";
    EXPECT_EQ(hashCode->ClassID, object->ClassID);
    auto total = stepper->JField("TOTAL");
    ASSERT_NE(total, nullptr);
    EXPECT_EQ(std::tuple(total->FieldName, total->FieldSignature, total->isStatic()), std::tuple("total", "I", true));

    // --- line tables ---
    JDWPJLocation at, call;
    ASSERT_TRUE(stepper->SrcLineToLocation(lineA, at));
    EXPECT_EQ(at.MethodID, main->MethodID);
    EXPECT_EQ(at.ClassID, stepper->ClassID);
    double srcLine = 0;
    ASSERT_TRUE(main->LocationToSrcLine(at, srcLine));
    EXPECT_EQ(srcLine, lineA);
    ASSERT_TRUE(stepper->SrcLineToLocation(lineCall, call));
    EXPECT_GT(call.Index, at.Index);
    JDWPJLocation between = at;
    between.Index = call.Index - 1;
    ASSERT_TRUE(main->LocationToSrcLine(between, srcLine));
    EXPECT_EQ(srcLine, lineA) << "an index between entries maps to the earlier line";
    EXPECT_FALSE(stepper->SrcLineToLocation(1, at)) << "the comment on line 1 has no code";
    EXPECT_FALSE(stepper->SrcLineToLocation(lineTwice, at)) << "that line belongs to another class";

    // --- variables ---
    EXPECT_EQ(main->getVarSlot("args").vt_signature, "[Ljava/lang/String;");
    EXPECT_EQ(main->getVarSlot("args").vt_slot, 0);
    EXPECT_EQ(main->getVarSlot("a").vt_signature, "I");
    EXPECT_EQ(main->getVarSlot("s").vt_signature, "Ljava/lang/String;");

    // --- threads ---
    auto threads = handler->getAllThreads();
    ASSERT_NE(threads, nullptr);
    std::shared_ptr<JXThread> mainThread, systemThread;
    for (int32_t i = 1; i <= threads->Count(); ++i) {
        auto t = threads->Item(i);
        if (t->ThreadName() == "main")
            mainThread = t;
        if (t->ThreadGroupName() == "system" && !systemThread)
            systemThread = t;
    }
    ASSERT_NE(mainThread, nullptr);
    ASSERT_NE(systemThread, nullptr);
    EXPECT_EQ(mainThread->threadID, lastStop().threadID);
    EXPECT_EQ(jvm->currentThreadID(), lastStop().threadID);
    EXPECT_EQ(threads->find(mainThread->threadID), mainThread);
    EXPECT_EQ(std::tuple(mainThread->ThreadGroupName(), mainThread->CanSuspend(), mainThread->ThreadSuspended(),
                         mainThread->ThreadState()),
              std::tuple("main", true, true, THREAD_STATE_RUNNING));
    EXPECT_FALSE(systemThread->CanSuspend());
    EXPECT_GT(systemThread->threadGroupID(), 0);
    EXPECT_EQ(mainThread->parentThreadGroupID(), 0);

    // Out of main and back, past library code, into the late class and to
    // its breakpoint and its stop point, which waited for the class.
    follow({{SD_OVER, "Stepper", "@main-call"},
            {kResume, "Late", "@twice-body"},
            {SD_OUT, "Stepper", "@main-call"},
            {SD_OVER, "Stepper", "@main-after"},
            {SD_OVER, "Stepper", "@main-lib"},
            // Into a library call: java.* is excluded, so the step comes
            // back to user code on the next line.
            {SD_INTO, "Stepper", "@main-print"},
            // Over a line whose string concatenation loads library classes:
            // the class-prepare events on the way do not withdraw the step.
            {SD_OVER, "Stepper", "@main-deep"},
            {SD_INTO, "Late", "@deep-body"},
            {kResume, "Late", "@deeper-body"}});
    EXPECT_EQ(jvm->myLastStepEvent, nullptr) << "the step request ends with its stop";
    EXPECT_EQ(jvm->JVMState(), VMSuspend);
    EXPECT_TRUE(log->sawDebug(" *** Load Late"));
    ASSERT_NE(jvm->getBreakPoint("LLate;", lineTwice), nullptr);
    EXPECT_TRUE(jvm->getBreakPoint("LLate;", lineTwice)->UsedByVM);
    EXPECT_TRUE(jvm->removeBreakpoint("LLate;", lineTwice));

    // A stop point at a code offset past the start of a loaded class's method.
    auto deepest = jvm->getClassByName("Late", true)->JMethodWithoutParams("deepest");
    ASSERT_NE(deepest, nullptr);
    const auto table = deepest->lineTable();
    ASSERT_GE(table.size(), 2u);
    const double offset = table[1].first;
    ASSERT_GT(offset, 0);
    EXPECT_TRUE(jvm->addStopPoint("Late", "deepest", offset));
    ASSERT_TRUE(resumeToNextStop()) << dump();
    EXPECT_EQ(lastStop().line, static_cast<int>(table[1].second));
    EXPECT_EQ(lastStop().offset, static_cast<int32_t>(offset));
    EXPECT_TRUE(jvm->removeStopPoint("Late", "deeper", 0));
    EXPECT_TRUE(jvm->removeStopPoint("Late", "deepest", offset));

    // The exception caught in another class stops; two do not: the one
    // caught where it was thrown, and the one thrown on its method's last
    // line, whose code index lies after the last line-table entry and so
    // maps to no source line (kept as designed). Over a line whose call
    // throws and catches in one class, and over the runtime's debug print:
    // the exception and the print's silent stop on the way do not withdraw
    // the step.
    follow({{kResume, "Thrower", "@fail-throw"},
            {kResume, "Stepper", "@main-self"},
            {SD_OVER, "Stepper", "@main-debug"},
            {SD_OVER, "Stepper", "@main-for"}});
    ASSERT_TRUE(pumpUntil([&] { return !log->exceptions.empty(); }, 5000));
    EXPECT_EQ(log->exceptions[0], "java/lang/IllegalStateException\r\njava.lang.IllegalStateException: boom");
    EXPECT_TRUE(jvm->removeBreakpoint("Stepper", lineAt("@main-self")));

    ASSERT_TRUE(resumeToStopAt(lineAt("@main-loop"))) << dump();
    auto waiting = jvm->getBreakPoint("Stepper", noCode);
    ASSERT_NE(waiting, nullptr);
    EXPECT_EQ(waiting->RequestEventID, 0) << "a line without code is kept but never registered";
    EXPECT_TRUE(jvm->removeBreakpoint("Stepper", lineAt("@main-loop")));
    EXPECT_EQ(runToEnd(), 0) << "the loop ran on past the removed breakpoint\n" << dump();
    EXPECT_NE(log->console.find("caught quiet"), std::string::npos);
    // The runtime's debug print is shown without a visible stop.
    EXPECT_TRUE(log->sawDebug("Hello debug")) << dump();
    EXPECT_NE(log->console.find("print: \"Hello debug\""), std::string::npos);
    EXPECT_NE(log->console.find("stepper end"), std::string::npos) << log->console;

    // The entries kept on the session object are registered again in the next
    // VM; then only the exception caught in another class stops.
    const size_t stops = log->stops.size();
    ASSERT_TRUE(launch("Stepper")) << dump();
    ASSERT_TRUE(waitStop(stops)) << dump();
    EXPECT_EQ(lastStop().line, lineA);
    EXPECT_TRUE(jvm->removeBreakpoint("Stepper", noCode));
    EXPECT_EQ(runToEnd(), 1) << dump();
    EXPECT_EQ(std::tuple(lastStop().className, lastStop().line), std::tuple("Thrower", lineAt("@fail-throw")));
    // Removed once its VM has ended: its request went with the VM, and the
    // entry must not come back in the next run.
    EXPECT_TRUE(jvm->removeBreakpoint("Stepper", lineA));
    EXPECT_TRUE(jvm->breakpoints().empty());
}

size_t rounds(const std::string& console)
{
    size_t n = 0;
    for (size_t at = console.find("sleeper round"); at != std::string::npos; at = console.find("sleeper round", at + 1))
        ++n;
    return n;
}

TEST_F(LiveModel, SuspendResumePausesAndHoldReleaseRoundTrip)
{
    jvm->setTargetClassName({"Sleeper"});
    ASSERT_TRUE(launch("Sleeper"));
    ASSERT_TRUE(pumpUntil([&] { return log->console.find("sleeper ready") != std::string::npos; }));
    ASSERT_TRUE(pumpUntil([&] { return jvm->JVMState() == VMRunning; }));
    jvm->SuspendVM();
    ASSERT_TRUE(pumpUntil([&] { return jvm->JVMState() == VMSuspend; }));
    jvm->ResumeVM();
    ASSERT_TRUE(pumpUntil([&] { return jvm->JVMState() == VMRunning; }));

    // A pause stops the running program once, at its next line; after a
    // continue it runs on (two more rounds reported, no stop). Paused twice
    // before that stop (the VM held meanwhile, so that the stop cannot come
    // in between), the first pause's requests are withdrawn by the second.
    for (int pauses : {1, 2}) {
        SCOPED_TRACE(pauses);
        const size_t stops = log->stops.size();
        if (pauses == 2) {
            jvm->SuspendVM();
            ASSERT_TRUE(pumpUntil([&] { return jvm->JVMState() == VMSuspend; }));
        }
        for (int i = 0; i < pauses; ++i)
            EXPECT_TRUE(jvm->SuspendNextStep());
        if (pauses == 2)
            jvm->ResumeVM(true);
        ASSERT_TRUE(waitStop(stops)) << dump();
        EXPECT_EQ(lastStop().className, "Sleeper");
        EXPECT_EQ(jvm->JVMState(), VMSuspend);
        const size_t printed = rounds(log->console);
        jvm->ResumeVM(true);
        ASSERT_TRUE(pumpUntil([&] {
            return rounds(log->console) >= printed + 2 || log->stops.size() > stops + 1 || jvm->JVMState() == VMDead;
        })) << dump();
        EXPECT_EQ(log->stops.size(), stops + 1) << "stopped again at " << lastStop().line << "\n" << dump();
        EXPECT_EQ(jvm->JVMState(), VMRunning);
    }

    handler->history().clear();
    jvm->HoldEvents();
    jvm->ReleaseEvents();
    int replies = 0;
    for (const auto& l : handler->history().lines())
        replies += l.find("reply err=0") != std::string::npos;
    EXPECT_EQ(replies, 2) << dump();
    handler->exitVM();
    ASSERT_TRUE(waitDead());
}

} // namespace

// Stepping into code of no target (tests/java/lib/Churn, 15,000 lines per
// call) goes on in the VM at full speed and stops at the first line of the
// program's own code that runs next: back in the caller, or inside a
// callback the library makes. A step that begins inside the library does the
// same. Each step takes a few events, not one per library line, and a step
// into a library met before takes one, as a step over does.
TEST_F(LiveModel, StepsIntoLibraryCodeStopAtTheNextUserLineWithoutStoppingOnEveryLibraryLine)
{
    const auto luLine = [](const char* marker) {
        return lineOf("tests/java/LibUser.java", std::string("// ") + marker);
    };
    const std::vector<std::string> targets{"LibUser", "UserListener"};
    jvm->setTargetClassName(targets);
    jvm->addBreakpoint("LibUser", luLine("@lu-plain"));
    ASSERT_TRUE(launch("LibUser")) << dump();
    ASSERT_TRUE(waitStop(0)) << dump();
    ASSERT_EQ(lastStop().line, luLine("@lu-plain"));
    size_t events = 0;
    size_t sets = 0;
    handler->history().setListener([&](const std::string& line) {
        events += line.find("Composite Event") != std::string::npos ? 1 : 0;
        sets += line.rfind("-> ", 0) == 0 && line.find(" 15/1 ") != std::string::npos ? 1 : 0;
    });

    struct Step {
        const char* what;
        JDWPStepDepth depth;
        const char* cls;
        const char* endsAt;
        bool beginInLibrary; // stopped inside lib.Churn first
        size_t most;         // events (class-prepare ones too) and requests set
    };
    const std::vector<Step> steps{
        {"into a call that returns: the caller's next line", SD_INTO, "LibUser", "@lu-plain-again", false, 100},
        {"into the same library again: skipped from the start", SD_INTO, "LibUser", "@lu-lambda", false, 1},
        {"into a call that calls a lambda back", SD_INTO, "LibUser", "@lu-lambda-body", false, 100},
        {"out of the callback, back through the library", SD_OUT, "LibUser", "@lu-lambda", false, 100},
        {"begun inside the library: into the listener it calls", SD_INTO, "UserListener", "@lu-listener-body", true,
         100},
        {"out of the listener, back to the caller's line", SD_OUT, "LibUser", "@lu-listener", false, 100},
        {"over, in the program's own code", SD_OVER, "LibUser", "@lu-end", false, 1},
    };
    for (const Step& row : steps) {
        SCOPED_TRACE(row.what);
        if (row.beginInLibrary) {
            // A stop inside the library: lib.Churn is a target for as long as
            // it takes to stop there.
            auto withLibrary = targets;
            withLibrary.push_back("lib/Churn");
            jvm->setTargetClassName(withLibrary);
            const int churnLoop = lineOf("tests/java/lib/Churn.java", "// @churn-loop");
            ASSERT_TRUE(jvm->addBreakpoint("lib/Churn", churnLoop));
            ASSERT_TRUE(resumeToNextStop()) << dump();
            ASSERT_EQ(lastStop().className, "lib/Churn");
            ASSERT_TRUE(jvm->removeBreakpoint("lib/Churn", churnLoop));
            jvm->setTargetClassName(targets);
        }
        events = 0;
        sets = 0;
        step(row.depth);
        EXPECT_EQ(lastStop().className, row.cls) << dump();
        EXPECT_EQ(lastStop().line, luLine(row.endsAt)) << dump();
        // One event per library line would make 15,000.
        EXPECT_LE(events, row.most) << dump();
        EXPECT_LE(sets, row.most) << dump();
    }
    handler->history().setListener(nullptr);
    EXPECT_EQ(jvm->myLastStepEvent, nullptr) << "the step requests end with the stop";
    EXPECT_EQ(runToEnd(), 0) << dump();
    EXPECT_NE(log->console.find("libuser end"), std::string::npos) << log->console;
}
