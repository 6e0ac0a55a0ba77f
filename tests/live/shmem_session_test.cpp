// A whole session over the shared-memory transport: the library launches the
// VM with our dt_shmem transport library, reaches the Version reply, stops at
// a breakpoint, reads a value, captures the console and sees the end; and a
// VM killed in the middle of a request ends the session without a hang.
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <filesystem>

#include "LiveVM.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

std::string uniqueName(const char* what)
{
    static int counter = 0;
    return std::string("krvtest-") + what + "-" + std::to_string(::getpid()) + "-" + std::to_string(++counter);
}

bool shmLeftover(const std::string& name)
{
    return std::filesystem::exists("/dev/shm/krvdbg-" + name);
}

class LiveShmem : public ::testing::Test {
protected:
    void SetUp() override
    {
        handler = JDWPHandler::create();
        handler->bRemoteConnection = false;
        log = std::make_shared<EventLog>();
        jvm = handler->myJVM();
        jvm->setEvents(log);
    }
    void TearDown() override
    {
        handler->Disconnect();
        jvm.reset();
        handler.reset();
        setCurrentHandler(nullptr);
    }
    bool launch(const std::string& name, const std::string& mainClass)
    {
        return handler->startVM(javaPath(),
                                "-agentlib:jdwp=transport=dt_shmem,address=%SharedName%,server=y,suspend=y -cp " +
                                    testsClassPath() + " " + mainClass,
                                name, false, true);
    }

    std::shared_ptr<JDWPHandler> handler;
    std::shared_ptr<EventLog> log;
    std::shared_ptr<JXMachine> jvm;
};

TEST_F(LiveShmem, ASessionRunsAsOverTheSocket)
{
    const std::string name = uniqueName("session");
    jvm->setTargetClassName({"Stepper", "Late", "Thrower"});
    const int line = lineOf("tests/java/Stepper.java", "// @twice-body");
    jvm->addBreakpoint("Late", line);
    ASSERT_TRUE(launch(name, "Stepper")) << handler->history().dump();
    EXPECT_TRUE(log->sawDebug(" *** Connect [SHMem] " + name));
    ASSERT_TRUE(pumpUntil([&] { return !log->stops.empty(); })) << handler->history().dump();
    EXPECT_NE(jvm->VMName.find("OpenJDK"), std::string::npos);
    EXPECT_EQ(log->stops.back().className, "Late");
    EXPECT_EQ(log->stops.back().line, line);
    EXPECT_EQ(jvm->getValue("x"), "x: #2#");
    TickShift clock;
    // Resume past every further stop to the end.
    for (int guard = 0; guard < 10 && jvm->JVMState() != VMDead; ++guard) {
        const size_t seen = log->stops.size();
        clock.advance(2000);
        jvm->ResumeVM(true);
        pumpUntil([&] { return jvm->JVMState() == VMDead || log->stops.size() > seen; }, 20000);
    }
    EXPECT_EQ(jvm->JVMState(), VMDead);
    EXPECT_NE(log->console.find("stepper end\r\n"), std::string::npos) << log->console;
    EXPECT_FALSE(shmLeftover(name));
}

TEST_F(LiveShmem, ABadNameIsRefusedWithAClearText)
{
    EXPECT_FALSE(handler->startVM("", "", "bad/name", false, false));
    ASSERT_FALSE(log->boxes.empty());
    EXPECT_NE(log->boxes.back().find("bad/name"), std::string::npos) << log->boxes.back();
}

TEST_F(LiveShmem, KillingTheVMInTheMiddleOfARequestEndsTheSession)
{
    const std::string name = uniqueName("kill");
    ASSERT_TRUE(launch(name, "Sleeper"));
    ASSERT_TRUE(pumpUntil([&] { return log->console.find("sleeper ready") != std::string::npos; }));
    ::kill(handler->getProcessID(), SIGKILL);
    // A request that will not be answered: it returns when the channel
    // notices the dead peer, well before its time-out.
    const auto start = std::chrono::steady_clock::now();
    auto reply = handler->sendSync(handler->myFactory()->createGetVersionMessage(), 4000);
    (void)reply;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(4500));
    ASSERT_TRUE(pumpUntil([&] { return jvm->JVMState() == VMDead; }));
    EXPECT_FALSE(shmLeftover(name));
}

} // namespace
