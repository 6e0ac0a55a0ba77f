// Execution control against a real VM: breakpoints set before their class
// loads, stop points, stepping into, over and out (and past library code),
// the runtime's debug print, exceptions caught in another class and in the
// same class, removing breakpoints, suspend/resume, hold/release, the end.
#include <gtest/gtest.h>

#include "LiveVM.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

const char* const kSource = "tests/java/Stepper.java";

int line(const std::string& marker)
{
    return lineOf(kSource, "// " + marker);
}

class LiveBreakpoints : public ::testing::Test {
protected:
    void SetUp() override
    {
        handler = JDWPHandler::create();
        log = std::make_shared<EventLog>();
        jvm = handler->myJVM();
        jvm->setEvents(log);
        jvm->setTargetClassName({"Stepper", "Late", "Thrower"});
    }
    void TearDown() override
    {
        handler->Disconnect();
        jvm.reset();
        handler.reset();
        setCurrentHandler(nullptr);
    }
    void launch(const std::string& mainClass = "Stepper")
    {
        const int port = freeTcpPort();
        ASSERT_TRUE(handler->startVM(javaPath(), socketAgent(port) + " -cp " + testsClassPath() + " " + mainClass, "",
                                     false, true, 0, "127.0.0.1", std::to_string(port), true));
    }
    // Waits for the next stop after `count` stops were seen.
    bool waitStop(size_t count, int timeoutMs = 15000)
    {
        return pumpUntil([&] { return log->stops.size() > count || jvm->JVMState() == VMDead; }, timeoutMs) &&
               log->stops.size() > count;
    }
    bool waitDead() { return pumpUntil([&] { return jvm->JVMState() == VMDead; }, 20000); }
    // Resumes past other stops until one at `lineNr`.
    bool waitStopAt(int lineNr)
    {
        size_t seen = log->stops.size();
        for (int guard = 0; guard < 10; ++guard) {
            if (!waitStop(seen))
                return false;
            seen = log->stops.size();
            if (lastStop().line == lineNr)
                return true;
            resumePastInvocationWindow();
        }
        return false;
    }
    // Resumes from every further stop until the program ends; returns the
    // number of stops on the way.
    int runToEnd()
    {
        int stops = 0;
        resumePastInvocationWindow();
        for (;;) {
            const size_t seen = log->stops.size();
            if (!pumpUntil([&] { return jvm->JVMState() == VMDead || log->stops.size() > seen; }, 20000))
                return -1;
            if (jvm->JVMState() == VMDead)
                return stops;
            ++stops;
            resumePastInvocationWindow();
        }
    }
    const EventLog::Stop& lastStop() const { return log->stops.back(); }
    void step(JDWPStepDepth depth)
    {
        const size_t before = log->stops.size();
        ASSERT_TRUE(jvm->ResumeVMStepByStep(false, 0, depth))
            << "stepInProcess=" << jvm->myStepInProcess << " evaluating=" << jvm->evaluating()
            << " thread=" << jvm->currentThreadID() << "\n"
            << handler->history().dump();
        ASSERT_TRUE(waitStop(before)) << [&] {
            std::string all;
            for (const auto& l : log->lines)
                all += l + "\n";
            return all;
        }();
    }

    // An exception stop renders its text by invoking toString in the VM;
    // events within 2 s of an invocation are resumed unreported (by design),
    // so the tests move the clock past that window before resuming.
    void resumePastInvocationWindow()
    {
        clock.advance(2000);
        jvm->ResumeVM(true);
    }

    std::shared_ptr<JDWPHandler> handler;
    std::shared_ptr<EventLog> log;
    std::shared_ptr<JXMachine> jvm;
    TickShift clock;
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
    EXPECT_TRUE(log->sawDebug("Hello debug")) << [&] {
        std::string all;
        for (const auto& l : log->lines)
            all += l + "\n";
        return all + handler->history().dump();
    }();
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
