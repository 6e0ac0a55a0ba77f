// A real VM killed with SIGKILL at the worst moments, over the socket and
// the shared-memory transport (our dt_shmem library): while a synchronous
// request waits for its reply, while a step is under way, and while getValue
// waits for the VM to run a property getter. Each time the host sees VMDead,
// the call that was waiting returns no later than its time-out (in fact as
// soon as the connection drops), and the same handler and session objects
// then start and run the next VM normally. Either way no shared memory
// segment is left behind.
#include <signal.h>
#include <unistd.h>

#include <filesystem>

#include "LiveSessionTest.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

constexpr int32_t kCallTimeoutMs = 4000; // the model's synchronous wait
// Whatever the pump and the scheduler add on top of a time-out.
constexpr int64_t kSlackMs = 1000;

// Kills `pid` once, from inside the next pump pass for which `when` is true
// (that is, from inside whatever call is waiting then).
struct KillDuringWait {
    KillDuringWait(pid_t pid, std::function<bool()> when)
    {
        id = MessagePump::instance().addIdle([this, pid, when] {
            if (fired || !when())
                return;
            fired = signalProcess(pid, SIGKILL);
        });
    }
    ~KillDuringWait() { MessagePump::instance().removeIdle(id); }
    bool fired = false;
    int id = 0;
};

class LiveFaults : public LiveSessionTest, public ::testing::WithParamInterface<bool> {
protected:
    bool shmem() const { return GetParam(); }
    bool start(const std::string& program)
    {
        if (!shmem())
            return launch(program);
        static int counter = 0;
        sharedName = "krvfault-" + std::to_string(::getpid()) + "-" + std::to_string(++counter);
        return launchShmem(sharedName, program);
    }
    std::string sharedName;
};

// One VM after another on the same handler and session objects, each killed
// at another moment: each is seen dead at once, and the next session starts
// and stops as the first did; the last runs from start to end with no stop
// on the way.
TEST_P(LiveFaults, KilledWhileACallOrAStepWaitsThenTheNextSessionRuns)
{
    const int slowCall = lineOf("tests/java/Soak.java", "// @soak-slow-call");
    pid_t pid = 0;
    const struct {
        const char* moment;
        std::function<void()> kill;
    } rows[] = {
        {"during a synchronous request",
         [&] {
             // Stopped, the VM cannot answer before the kill; the kill comes
             // from inside the wait.
             ASSERT_TRUE(signalProcess(pid, SIGSTOP));
             ASSERT_TRUE(pumpUntil([&] { return processStopped(pid); }, 5000));
             KillDuringWait killer(pid, [] { return true; });
             const int64_t begin = nowMs();
             EXPECT_EQ(handler->sendSync(handler->myFactory()->createGetThreadsMessage(), kCallTimeoutMs), nullptr);
             EXPECT_LT(nowMs() - begin, kCallTimeoutMs + kSlackMs);
             EXPECT_TRUE(killer.fired);
         }},
        {"during a step over a call that sleeps for a minute",
         [&] {
             const size_t stops = log->stops.size();
             ASSERT_TRUE(jvm->ResumeVMStepByStep(false, 0, SD_OVER)) << dump();
             ASSERT_TRUE(pumpUntil([&] { return jvm->JVMState() == VMRunning; }, 5000));
             ASSERT_TRUE(signalProcess(pid, SIGKILL));
             EXPECT_FALSE(waitStop(stops)) << "the step never ended";
         }},
        {"while getValue runs a minute-long getter",
         [&] {
             // Killed once the invocation has gone out.
             KillDuringWait killer(pid, [this] {
                 const auto lines = handler->history().lines();
                 return std::any_of(lines.rbegin(), lines.rend(), [](const std::string& l) {
                     return l.rfind("->", 0) == 0 && l.find(" 9/6 ") != std::string::npos;
                 });
             });
             const int64_t begin = nowMs();
             const std::string value = jvm->getValue("slow.title");
             EXPECT_LT(nowMs() - begin, kCallTimeoutMs + kSlackMs);
             EXPECT_TRUE(killer.fired) << dump();
             EXPECT_EQ(value.find("late"), std::string::npos) << value;
         }},
    };
    jvm->setTargetClassName({"Soak", "Slow", "TestHello"});
    jvm->addBreakpoint("Soak", slowCall);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.moment);
        // Stopped before the minute-long call.
        const size_t stops = log->stops.size();
        ASSERT_TRUE(start("Soak 3")) << dump();
        ASSERT_TRUE(waitStop(stops, 20000)) << dump();
        ASSERT_EQ(lastStop().line, slowCall);
        pid = handler->getProcessID();
        ASSERT_GT(pid, 0);
        ASSERT_NO_FATAL_FAILURE(row.kill());
        EXPECT_TRUE(pumpUntil([&] { return jvm->JVMState() == VMDead && !handler->isConnected(); }, 5000)) << dump();
        EXPECT_EQ(handler->pendingSyncCount(), 0u);
        EXPECT_FALSE(shmem() && std::filesystem::exists("/dev/shm/krvdbg-" + sharedName));
    }

    jvm->removeBreakpoint("Soak", slowCall);
    jvm->VMName.clear();
    log->console.clear();
    const size_t stops = log->stops.size();
    ASSERT_TRUE(start("TestHello")) << dump();
    EXPECT_TRUE(pumpUntil([&] { return jvm->JVMState() == VMDead && !log->console.empty(); }, 20000)) << dump();
    EXPECT_FALSE(shmem() && std::filesystem::exists("/dev/shm/krvdbg-" + sharedName));
    EXPECT_NE(jvm->VMName.find("OpenJDK"), std::string::npos) << dump();
    EXPECT_NE(log->console.find("Hello from the debuggee"), std::string::npos) << log->console;
    EXPECT_EQ(log->stops.size(), stops);
}

INSTANTIATE_TEST_SUITE_P(Transports, LiveFaults, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "SharedMemory" : "Socket"; });

} // namespace
