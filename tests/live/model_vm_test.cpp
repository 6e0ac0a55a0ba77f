// The debug model against a real OpenJDK 17 VM running tests/java/Stepper:
// breakpoints set before the VM starts are registered when their class
// loads; at the stop the class registry, superclass chain, line and variable
// tables and the thread list are checked against the program's source; then
// a step, a breakpoint in a late class and a stop point by method name.
#include <gtest/gtest.h>

#include <cmath>

#include "LiveVM.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

const char* const kSource = "tests/java/Stepper.java";

class LiveModel : public ::testing::Test {
protected:
    void SetUp() override
    {
        handler = JDWPHandler::create();
        log = std::make_shared<EventLog>();
        jvm()->setEvents(log);
        // Stops are reported for the program's own classes only.
        jvm()->setTargetClassName({"Stepper", "Late", "Thrower"});
    }
    void TearDown() override
    {
        handler->Disconnect();
        handler.reset();
        setCurrentHandler(nullptr);
    }
    std::shared_ptr<JXMachine> jvm() { return handler->myJVM(); }

    bool launch()
    {
        const int port = freeTcpPort();
        return handler->startVM(javaPath(), socketAgent(port) + " -cp " + testsClassPath() + " Stepper", "", false,
                                true, 0, "127.0.0.1", std::to_string(port), true);
    }
    // Waits for the next stop and answers its line (0 on time-out). The
    // state is not waited for: the reply to the resume that let the program
    // run may arrive after the stop event and report VMRunning again.
    int nextStop(size_t stopsBefore)
    {
        if (!pumpUntil([&] { return log->stops.size() > stopsBefore; }, 20000))
            return 0;
        return log->stops.back().line;
    }

    std::string stopsSeen() const
    {
        std::string out = "stops:";
        for (const auto& stop : log->stops)
            out += " " + stop.className + ":" + std::to_string(stop.line) + "+" + std::to_string(stop.offset);
        return out + "\n";
    }

    std::shared_ptr<JDWPHandler> handler;
    std::shared_ptr<EventLog> log;
};

TEST_F(LiveModel, RegistryLineTablesThreadsBreakpointsAndSteps)
{
    const int lineA = lineOf(kSource, "@main-a");
    const int lineCall = lineOf(kSource, "@main-call");
    const int lineTwice = lineOf(kSource, "@twice-body");
    const int lineDeep = lineOf(kSource, "@deep-body");
    ASSERT_GT(lineA, 0);
    ASSERT_GT(lineTwice, 0);

    // Set before the VM exists: both wait for their class.
    EXPECT_TRUE(jvm()->addBreakpoint("Stepper", lineA));
    EXPECT_TRUE(jvm()->addBreakpoint("LLate;", lineTwice));
    EXPECT_TRUE(jvm()->addStopPoint("Late", "DEEP", 0));
    for (const auto& bp : jvm()->breakpoints())
        EXPECT_FALSE(bp->UsedByVM);

    ASSERT_TRUE(launch()) << handler->history().dump();
    ASSERT_EQ(nextStop(0), lineA) << handler->history().dump();
    EXPECT_TRUE(log->sawDebug(" *** Load Stepper"));
    EXPECT_TRUE(jvm()->breakpoints()[0]->UsedByVM);

    // --- classes ---
    auto stepper = jvm()->getClassByName("Stepper");
    ASSERT_NE(stepper, nullptr);
    EXPECT_EQ(jvm()->getClassByName("LStepper;"), stepper);
    EXPECT_EQ(jvm()->getClassByID(stepper->ClassID), stepper);
    EXPECT_EQ(stepper->ClassSignature, "LStepper;");
    auto object = stepper->SuperClass();
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->ClassName(), "java/lang/Object");
    EXPECT_EQ(object->SuperClass(), nullptr);
    EXPECT_EQ(jvm()->getClassByName("Ljava/lang/Object;", true), object);
    auto string = jvm()->getClassByName("Ljava/lang/String;", true);
    ASSERT_NE(string, nullptr) << "a loaded library class is found by signature";
    EXPECT_EQ(string->ClassName(), "java/lang/String");

    auto main = stepper->JMethodWithoutParams("MAIN");
    ASSERT_NE(main, nullptr);
    EXPECT_EQ(main->MethodName, "main");
    EXPECT_EQ(main->MethodSignature, "([Ljava/lang/String;)V");
    EXPECT_TRUE(main->isStatic());
    EXPECT_EQ(stepper->JMethod("main([Ljava/lang/String;)V"), main);
    EXPECT_EQ(stepper->JMethodID(main->MethodID), main);
    // A 64-bit VM hands out method ids that are addresses, far above 2^31;
    // the line table below was fetched with that id.
    EXPECT_GT(main->MethodID, 2147483648.0);
    auto hashCode = stepper->JMethodWithoutParams("hashcode");
    ASSERT_NE(hashCode, nullptr) << "found in the superclass";
    EXPECT_EQ(hashCode->ClassID, object->ClassID);
    auto total = stepper->JField("TOTAL");
    ASSERT_NE(total, nullptr);
    EXPECT_EQ(total->FieldName, "total");
    EXPECT_EQ(total->FieldSignature, "I");
    EXPECT_TRUE(total->isStatic());

    // --- line tables ---
    JDWPJLocation at;
    ASSERT_TRUE(stepper->SrcLineToLocation(lineA, at));
    EXPECT_EQ(at.MethodID, main->MethodID);
    EXPECT_EQ(at.ClassID, stepper->ClassID);
    double line = 0;
    ASSERT_TRUE(main->LocationToSrcLine(at, line));
    EXPECT_EQ(line, lineA);
    JDWPJLocation call;
    ASSERT_TRUE(stepper->SrcLineToLocation(lineCall, call));
    EXPECT_GT(call.Index, at.Index);
    JDWPJLocation between = at;
    between.Index = call.Index - 1;
    ASSERT_TRUE(main->LocationToSrcLine(between, line));
    EXPECT_EQ(line, lineA) << "an index between entries maps to the earlier line";
    EXPECT_FALSE(stepper->SrcLineToLocation(1, at)) << "the comment on line 1 has no code";
    EXPECT_FALSE(stepper->SrcLineToLocation(lineTwice, at)) << "that line belongs to another class";

    // --- variables ---
    EXPECT_EQ(main->getVarSlot("args").vt_signature, "[Ljava/lang/String;");
    EXPECT_EQ(main->getVarSlot("args").vt_slot, 0);
    EXPECT_EQ(main->getVarSlot("a").vt_signature, "I");
    EXPECT_EQ(main->getVarSlot("s").vt_signature, "Ljava/lang/String;");
    EXPECT_EQ(main->getVarSlot("nope").vt_name, "");

    // --- threads ---
    auto threads = handler->getAllThreads();
    ASSERT_NE(threads, nullptr);
    ASSERT_GT(threads->Count(), 1);
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
    EXPECT_EQ(mainThread->threadID, log->stops.back().threadID);
    EXPECT_EQ(threads->find(mainThread->threadID), mainThread);
    EXPECT_EQ(mainThread->ThreadGroupName(), "main");
    EXPECT_TRUE(mainThread->CanSuspend());
    EXPECT_TRUE(mainThread->ThreadSuspended());
    EXPECT_EQ(mainThread->ThreadState(), THREAD_STATE_RUNNING);
    EXPECT_FALSE(systemThread->CanSuspend());
    EXPECT_GT(systemThread->threadGroupID(), 0);
    EXPECT_EQ(mainThread->parentThreadGroupID(), 0);

    // --- a step over, then the waiting breakpoint in the late class ---
    size_t stops = log->stops.size();
    ASSERT_TRUE(jvm()->ResumeVMStepByStep(false, 0, SD_OVER)) << handler->history().dump();
    EXPECT_EQ(nextStop(stops), lineCall) << handler->history().dump();
    EXPECT_EQ(jvm()->myLastStepEvent, nullptr) << "the step request ends with its stop";

    stops = log->stops.size();
    jvm()->ResumeVM(true);
    EXPECT_EQ(nextStop(stops), lineTwice) << handler->history().dump();
    EXPECT_NE(log->stops.back().className.find("Late"), std::string::npos) << log->stops.back().className;
    ASSERT_NE(jvm()->getBreakPoint("LLate;", lineTwice), nullptr);
    EXPECT_TRUE(jvm()->getBreakPoint("LLate;", lineTwice)->UsedByVM);
    EXPECT_TRUE(jvm()->removeBreakpoint("LLate;", lineTwice));
    EXPECT_EQ(jvm()->getBreakPoint("LLate;", lineTwice), nullptr);

    // --- the stop point on Late.deep at offset 0 ---
    stops = log->stops.size();
    jvm()->ResumeVM(true);
    EXPECT_EQ(nextStop(stops), lineDeep) << stopsSeen() << handler->history().dump();

    // Clear everything and let the program end.
    EXPECT_TRUE(jvm()->removeBreakpoint("Stepper", lineA));
    EXPECT_TRUE(jvm()->removeStopPoint("Late", "deep", 0));
    EXPECT_TRUE(jvm()->breakpoints().empty());
    // Exceptions caught in another class still stop the program: go on
    // past each stop until the VM ends.
    stops = log->stops.size();
    jvm()->ResumeVM(true);
    EXPECT_TRUE(pumpUntil(
        [&] {
            if (log->stops.size() > stops) {
                stops = log->stops.size();
                jvm()->ResumeVM(true);
            }
            return jvm()->JVMState() == VMDead;
        },
        20000))
        << handler->history().dump();
    EXPECT_NE(log->console.find("stepper end"), std::string::npos) << log->console << handler->history().dump();
}

} // namespace
