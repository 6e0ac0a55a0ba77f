// A real VM killed with SIGKILL at the worst moments, over the socket and
// the shared-memory transport: while a synchronous request waits for its
// reply, while a step is under way, and while getValue waits for the VM to
// run a property getter. Each time the host sees VMDead, the call that was
// waiting returns no later than its time-out (in fact as soon as the
// connection drops), and the same handler and session objects then start
// and run the next VM normally.
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <fstream>

#include "LiveVM.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

constexpr int32_t kCallTimeoutMs = 4000; // the model's synchronous wait
// Whatever the pump and the scheduler add on top of a time-out.
constexpr int64_t kSlackMs = 1000;

int64_t realMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

// True once the process is in the stopped state (SIGSTOP took effect on
// all of it).
bool processStopped(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string stat;
    std::getline(in, stat);
    const size_t close = stat.rfind(')');
    return close != std::string::npos && close + 2 < stat.size() && stat[close + 2] == 'T';
}

int soakLine(const std::string& marker)
{
    return lineOf("tests/java/Soak.java", "// " + marker);
}

// Runs `action` once, from inside the next pump pass for which `when` is
// true (that is, from inside whatever call is waiting then).
class DuringWait {
public:
    DuringWait(std::function<bool()> when, std::function<void()> action)
        : when_(std::move(when)), action_(std::move(action))
    {
        id_ = MessagePump::instance().addIdle([this] {
            if (fired_ || !when_())
                return;
            fired_ = true;
            action_();
        });
    }
    ~DuringWait() { MessagePump::instance().removeIdle(id_); }
    bool fired() const { return fired_; }

private:
    std::function<bool()> when_;
    std::function<void()> action_;
    bool fired_ = false;
    int id_ = 0;
};

class LiveFaults : public ::testing::TestWithParam<bool> {
protected:
    bool shmem() const { return GetParam(); }

    void SetUp() override
    {
        handler = JDWPHandler::create();
        log = std::make_shared<EventLog>();
        jvm = handler->myJVM();
        jvm->setEvents(log);
        jvm->setTargetClassName({"Soak", "Slow", "TestHello"});
        handler->bRemoteConnection = !shmem();
    }
    void TearDown() override
    {
        handler->Disconnect();
        jvm->setEvents(nullptr);
        jvm.reset();
        handler.reset();
        setCurrentHandler(nullptr);
    }

    bool launch(const std::string& program)
    {
        if (shmem()) {
            static int counter = 0;
            const std::string name =
                "krvfault-" + std::to_string(::getpid()) + "-" + std::to_string(++counter);
            return handler->startVM(javaPath(),
                                    "-agentlib:jdwp=transport=dt_shmem,address=%SharedName%,server=y,suspend=y -cp " +
                                        testsClassPath() + " " + program,
                                    name, false, true);
        }
        const int port = freeTcpPort();
        return handler->startVM(javaPath(), socketAgent(port) + " -cp " + testsClassPath() + " " + program, "", false,
                                true, 0, "127.0.0.1", std::to_string(port), true);
    }

    // Launches Soak and waits for the stop before the minute-long call.
    void stopBeforeSlowCall()
    {
        jvm->addBreakpoint("Soak", soakLine("@soak-slow-call"));
        ASSERT_TRUE(launch("Soak 3")) << handler->history().dump();
        ASSERT_TRUE(pumpUntil([&] { return !log->stops.empty(); }, 20000)) << handler->history().dump();
        ASSERT_EQ(log->stops.back().line, soakLine("@soak-slow-call"));
        pid = handler->getProcessID();
        ASSERT_GT(pid, 0);
    }

    void expectDeadSoon()
    {
        const int64_t start = realMs();
        EXPECT_TRUE(pumpUntil([&] { return jvm->JVMState() == VMDead && !handler->isConnected(); }, 10000))
            << handler->history().dump();
        EXPECT_LT(realMs() - start, 5000);
        EXPECT_EQ(handler->pendingSyncCount(), 0u);
    }

    // The same handler and session objects run the next VM from start to end.
    void expectNextSessionWorks()
    {
        jvm->removeBreakpoint("Soak", soakLine("@soak-slow-call"));
        jvm->VMName.clear();
        log->console.clear();
        const size_t stops = log->stops.size();
        ASSERT_TRUE(launch("TestHello")) << handler->history().dump();
        EXPECT_TRUE(pumpUntil([&] { return jvm->JVMState() == VMDead && !log->console.empty(); }, 20000))
            << handler->history().dump();
        EXPECT_NE(jvm->VMName.find("OpenJDK"), std::string::npos) << handler->history().dump();
        EXPECT_NE(log->console.find("Hello from the debuggee"), std::string::npos) << log->console;
        EXPECT_EQ(log->stops.size(), stops);
    }

    std::shared_ptr<JDWPHandler> handler;
    std::shared_ptr<EventLog> log;
    std::shared_ptr<JXMachine> jvm;
    pid_t pid = 0;
};

TEST_P(LiveFaults, KilledDuringASynchronousRequest)
{
    stopBeforeSlowCall();
    // Stopped, the VM cannot answer before the kill; the kill comes from
    // inside the wait.
    ::kill(pid, SIGSTOP);
    ASSERT_TRUE(pumpUntil([&] { return processStopped(pid); }, 5000));
    DuringWait killer([] { return true; }, [this] { ::kill(pid, SIGKILL); });
    const int64_t start = realMs();
    auto reply = handler->sendSync(handler->myFactory()->createGetThreadsMessage(), kCallTimeoutMs);
    const int64_t taken = realMs() - start;
    EXPECT_TRUE(killer.fired());
    EXPECT_EQ(reply, nullptr);
    EXPECT_LT(taken, kCallTimeoutMs + kSlackMs);
    expectDeadSoon();
    expectNextSessionWorks();
}

TEST_P(LiveFaults, KilledDuringAStep)
{
    stopBeforeSlowCall();
    const size_t stops = log->stops.size();
    // Over a call that sleeps for a minute: the step cannot end by itself.
    ASSERT_TRUE(jvm->ResumeVMStepByStep(false, 0, SD_OVER)) << handler->history().dump();
    ASSERT_TRUE(pumpUntil([&] { return jvm->JVMState() == VMRunning; }, 5000));
    ::kill(pid, SIGKILL);
    expectDeadSoon();
    EXPECT_EQ(log->stops.size(), stops);
    expectNextSessionWorks();
}

TEST_P(LiveFaults, KilledWhileGetValueRunsAGetter)
{
    stopBeforeSlowCall();
    // Killed once the invocation of the minute-long getter has gone out.
    auto invoking = [this] {
        const auto lines = handler->history().lines();
        for (auto it = lines.rbegin(); it != lines.rend(); ++it)
            if (it->rfind("->", 0) == 0 && it->find(" 9/6 ") != std::string::npos)
                return true;
        return false;
    };
    DuringWait killer(invoking, [this] { ::kill(pid, SIGKILL); });
    const int64_t start = realMs();
    const std::string value = jvm->getValue("slow.title");
    const int64_t taken = realMs() - start;
    EXPECT_TRUE(killer.fired()) << handler->history().dump();
    EXPECT_EQ(value.find("late"), std::string::npos) << value;
    EXPECT_LT(taken, kCallTimeoutMs + kSlackMs) << value;
    expectDeadSoon();
    expectNextSessionWorks();
}

INSTANTIATE_TEST_SUITE_P(Transports, LiveFaults, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return info.param ? std::string("SharedMemory") : std::string("Socket");
                         });

} // namespace
