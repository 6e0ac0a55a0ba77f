// Execution control against a real VM: breakpoints set before their class
// loads, stop points, stepping into, over and out (and past library code),
// the runtime's debug print, exceptions caught in another class and in the
// same class, removing breakpoints, suspend/resume, hold/release, the end.
#include <gtest/gtest.h>

#include "LiveSessionTest.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

const char* const kSource = "tests/java/Stepper.java";

int line(const std::string& marker)
{
    return lineOf(kSource, "// " + marker);
}

class LiveBreakpoints : public LiveSessionTest {
protected:
    void SetUp() override
    {
        LiveSessionTest::SetUp();
        jvm->setTargetClassName({"Stepper", "Late", "Thrower"});
    }
    void launch(const std::string& mainClass = "Stepper") { ASSERT_TRUE(LiveSessionTest::launch(mainClass)); }
    void step(JDWPStepDepth depth)
    {
        const size_t before = log->stops.size();
        ASSERT_TRUE(jvm->ResumeVMStepByStep(false, 0, depth)) << handler->history().dump();
        ASSERT_TRUE(waitStop(before)) << handler->history().dump();
    }
};

TEST_F(LiveBreakpoints, ABreakpointSetBeforeItsClassLoadsStopsThere)
{
    jvm->addBreakpoint("Late", line("@twice-body"));
    launch();
    ASSERT_TRUE(waitStop(0)) << handler->history().dump();
    EXPECT_EQ(lastStop().className, "Late");
    EXPECT_EQ(lastStop().line, line("@twice-body"));
    EXPECT_GT(lastStop().threadID, 0);
    EXPECT_EQ(lastStop().offset, 0);
    EXPECT_EQ(jvm->JVMState(), VMSuspend);
    EXPECT_EQ(jvm->currentThreadID(), lastStop().threadID);
    EXPECT_TRUE(log->sawDebug(" *** Load Late"));
    EXPECT_EQ(runToEnd(), 1) << "only the exception caught in another class stops on the way";
    EXPECT_NE(log->console.find("stepper end"), std::string::npos);
}

TEST_F(LiveBreakpoints, StepsIntoOverAndOutLandOnTheSourceLines)
{
    jvm->addBreakpoint("Stepper", line("@main-a"));
    launch();
    ASSERT_TRUE(waitStop(0)) << handler->history().dump();
    ASSERT_EQ(lastStop().line, line("@main-a"));

    step(SD_OVER);
    EXPECT_EQ(lastStop().className, "Stepper");
    EXPECT_EQ(lastStop().line, line("@main-call"));

    step(SD_INTO);
    EXPECT_EQ(lastStop().className, "Late");
    EXPECT_EQ(lastStop().line, line("@twice-body"));

    step(SD_OUT);
    EXPECT_EQ(lastStop().className, "Stepper");
    EXPECT_EQ(lastStop().line, line("@main-call"));

    step(SD_OVER);
    EXPECT_EQ(lastStop().line, line("@main-after"));
    step(SD_OVER);
    EXPECT_EQ(lastStop().line, line("@main-lib"));
    // Into a library call: java.* is excluded, so the step comes back to
    // user code on the next line.
    step(SD_INTO);
    EXPECT_EQ(lastStop().className, "Stepper");
    EXPECT_EQ(lastStop().line, line("@main-print"));
    // Over a line whose string concatenation loads library classes: the
    // class-prepare events on the way do not withdraw the step.
    step(SD_OVER);
    EXPECT_EQ(lastStop().line, line("@main-deep"));
    EXPECT_GE(runToEnd(), 0);
}

TEST_F(LiveBreakpoints, AStopPointStopsAtItsCodeOffset)
{
    jvm->addBreakpoint("Stepper", line("@main-deep"));
    launch();
    ASSERT_TRUE(waitStop(0));
    auto late = jvm->getClassByName("Late", true);
    ASSERT_NE(late, nullptr);
    auto deepest = late->JMethodWithoutParams("deepest");
    ASSERT_NE(deepest, nullptr);
    const auto& table = deepest->lineTable();
    ASSERT_GE(table.size(), 2u);
    const double offset = table[1].first;
    ASSERT_GT(offset, 0);
    jvm->addStopPoint("Late", "deepest", offset);
    jvm->ResumeVM(true);
    ASSERT_TRUE(waitStop(1)) << handler->history().dump();
    EXPECT_EQ(lastStop().className, "Late");
    EXPECT_EQ(lastStop().offset, static_cast<int32_t>(offset));
    EXPECT_EQ(lastStop().line, static_cast<int32_t>(table[1].second));
    EXPECT_GE(runToEnd(), 0);
}

TEST_F(LiveBreakpoints, DebugPrintIsShownWithoutAVisibleStop)
{
    launch();
    ASSERT_TRUE(pumpUntil([&] { return !log->stops.empty(); }));
    EXPECT_EQ(runToEnd(), 0) << handler->history().dump();
    EXPECT_TRUE(log->sawDebug("Hello debug")) << handler->history().dump();
    for (const auto& stop : log->stops)
        EXPECT_NE(stop.className, "VB/Debug");
    EXPECT_NE(log->console.find("print: \"Hello debug\""), std::string::npos);
}

TEST_F(LiveBreakpoints, AnExceptionCaughtInAnotherClassStopsOneCaughtInItsOwnClassDoesNot)
{
    launch();
    ASSERT_TRUE(waitStop(0)) << handler->history().dump();
    EXPECT_EQ(lastStop().className, "Thrower");
    EXPECT_EQ(lastStop().line, line("@fail-throw"));
    ASSERT_TRUE(pumpUntil([&] { return !log->exceptions.empty(); }, 5000));
    EXPECT_EQ(log->exceptions[0], "java/lang/IllegalStateException\r\njava.lang.IllegalStateException: boom");
    jvm->ResumeVM(true);
    ASSERT_TRUE(waitDead());
    // Two exceptions do not stop: the one caught where it was thrown, and the
    // one thrown on its method's last line, whose code index lies after the
    // last line-table entry and so maps to no source line (kept as designed).
    EXPECT_EQ(log->stops.size(), 1u);
    EXPECT_NE(log->console.find("caught quiet"), std::string::npos);
}

TEST_F(LiveBreakpoints, RemovedBreakpointsNoLongerStopAndLinesWithoutCodeWait)
{
    jvm->addBreakpoint("Stepper", line("@main-loop"));
    const int noCode = lineOf(kSource, "static int total;");
    jvm->addBreakpoint("Stepper", noCode);
    jvm->addBreakpoint("Stepper", line("@main-loop"));
    EXPECT_EQ(jvm->breakpoints().size(), 2u) << "the same class and line twice keep one entry";
    launch();
    ASSERT_TRUE(waitStopAt(line("@main-loop")));
    auto waiting = jvm->getBreakPoint("Stepper", noCode);
    ASSERT_NE(waiting, nullptr);
    EXPECT_EQ(waiting->RequestEventID, 0) << "a line without code is kept but never registered";
    EXPECT_TRUE(jvm->removeBreakpoint("Stepper", line("@main-loop")));
    EXPECT_EQ(jvm->getBreakPoint("Stepper", line("@main-loop")), nullptr);
    EXPECT_EQ(runToEnd(), 0) << "the loop ran on past the removed breakpoint";
}

TEST_F(LiveBreakpoints, SuspendResumeAndHoldReleaseRoundTrip)
{
    launch("Sleeper");
    ASSERT_TRUE(pumpUntil([&] { return log->console.find("sleeper ready") != std::string::npos; }));
    ASSERT_TRUE(pumpUntil([&] { return jvm->JVMState() == VMRunning; }));
    jvm->SuspendVM();
    ASSERT_TRUE(pumpUntil([&] { return jvm->JVMState() == VMSuspend; }));
    jvm->ResumeVM();
    ASSERT_TRUE(pumpUntil([&] { return jvm->JVMState() == VMRunning; }));
    handler->history().clear();
    jvm->HoldEvents();
    jvm->ReleaseEvents();
    int replies = 0;
    for (const auto& l : handler->history().lines())
        if (l.find("reply err=0") != std::string::npos)
            ++replies;
    EXPECT_EQ(replies, 2) << handler->history().dump();
    handler->exitVM();
    ASSERT_TRUE(waitDead());
}

} // namespace
