// The shared-memory transport end to end: a real VM loads libdt_shmem.so
// (transport=dt_shmem), the test attaches with ShmemChannel, shakes hands
// and exchanges packets in the shared-memory framing; a VM that ends or is
// killed must be noticed at once and leave nothing in /dev/shm.
// The tables of byte literals keep their hand layout:
// clang-format off
#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "../../platform/ShmemChannel.h"
#include "LiveVM.h"

namespace {

using jdwpkrvdbg::ShmemChannel;
using namespace jdwpkrvdbg::testing;
using Clock = std::chrono::steady_clock;

constexpr int kStartFailsafeMs = 30000;
constexpr int kReplyFailsafeMs = 10000;

// id LE, flags, set, cmd, payload length LE: the shared-memory framing of a command.
std::string shmemCommand(uint32_t id, uint8_t set, uint8_t cmd)
{
    return std::string{char(id), char(id >> 8), char(id >> 16), char(id >> 24), 0, char(set), char(cmd), 0, 0, 0, 0};
}

std::string uniqueName(const std::string& tag) { return "live-" + std::to_string(getpid()) + "-" + tag; }

bool objectExists(const std::string& name) { return access(("/dev/shm/krvdbg-" + name).c_str(), F_OK) == 0; }

// TestHello under a suspended dt_shmem agent on `name`, once it listens.
std::unique_ptr<ChildProcess> startVm(const std::string& name)
{
    const char* old = std::getenv("LD_LIBRARY_PATH");
    auto vm = std::make_unique<ChildProcess>(
        std::vector<std::string>{javaPath(), "-agentlib:jdwp=transport=dt_shmem,address=" + name + ",server=y,suspend=y",
                                 "-cp", testsClassPath(), "TestHello"},
        std::vector<std::string>{"LD_LIBRARY_PATH=" + shmemLibraryDir() + (old && *old ? std::string(":") + old : "")});
    const std::string line = vm->waitForLine("Listening for transport dt_shmem at address: ", kStartFailsafeMs);
    EXPECT_EQ(line, "Listening for transport dt_shmem at address: " + name) << vm->output();
    return vm;
}

// The program ran to its end, and an orderly exit took the name away.
void expectRanToItsEnd(ChildProcess& vm, const std::string& name)
{
    vm.waitForLine("Bye", kStartFailsafeMs);
    // The agent's next "Listening" line may come between the program's own.
    EXPECT_NE(vm.output().find("Bye\n", vm.output().find("Hello from the debuggee\n")), std::string::npos)
        << vm.output();
    EXPECT_EQ(vm.wait(kStartFailsafeMs), 0);
    EXPECT_FALSE(objectExists(name));
}

// A debugger's channel and the records from the VM in arrival order,
// fetched the way the pump does: wait for the descriptor, then take
// everything readRecords has.
struct Inbox {
    bool next(std::string& record)
    {
        while (queue.empty()) {
            pollfd p{channel.notifyFd(), POLLIN, 0};
            std::vector<std::string> got;
            if (poll(&p, 1, kReplyFailsafeMs) != 1 || !channel.readRecords(got))
                return false;
            queue.insert(queue.end(), got.begin(), got.end());
        }
        record = std::move(queue.front());
        queue.pop_front();
        return true;
    }
    // Reads until the channel says the VM is gone (the notification may still
    // carry a wake-up for records already taken); answers what came meanwhile.
    std::vector<std::string> untilGone()
    {
        // A verdict that never comes shows as the time it took.
        pollfd p{channel.notifyFd(), POLLIN, 0};
        std::vector<std::string> got;
        while (channel.readRecords(got) && poll(&p, 1, kReplyFailsafeMs) == 1) {
        }
        return got;
    }
    // Attaches to `name`, shakes hands and reads the VM's first record (a
    // suspended VM's VM_START).
    bool attach(const std::string& name, std::string& vmStart)
    {
        std::string error, answer;
        EXPECT_TRUE(channel.attach(name, error)) << error;
        return channel.writeRecord("JDWP-Handshake") && next(answer) && answer == "JDWP-Handshake" && next(vmStart);
    }
    ShmemChannel channel;
    std::deque<std::string> queue;
};

// The VM either runs to its death or is killed (and then not reaped before
// the check: a zombie must count as dead); either way the channel says so
// within a second.
TEST(ShmemVm, HandshakeCommandsAndVmDeath)
{
    for (bool killed : {false, true}) {
        SCOPED_TRACE(killed ? "killed" : "runs to its end");
        const std::string name = uniqueName(killed ? "kill" : "hello");
        auto vm = startVm(name);
        Inbox inbox;
        std::string record;
        ASSERT_TRUE(inbox.attach(name, record));
        EXPECT_FALSE(objectExists(name));

        // suspend=y: the VM announces itself with VM_START (90), policy all, request 0, and its thread.
        ASSERT_EQ(record.size(), 29u);
        EXPECT_EQ(record.substr(4, 14), std::string("\x00" "\x40\x64" "\x12\x00\x00\x00"
                                                    "\x02" "\x00\x00\x00\x01" "\x5a", 14));
        ASSERT_TRUE(inbox.channel.writeRecord(shmemCommand(1, 1, 7)));
        ASSERT_TRUE(inbox.next(record));
        EXPECT_EQ(record, std::string("\x01\x00\x00\x00" "\x80" "\x00\x00" "\x14\x00\x00\x00"
                                      "\x00\x00\x00\x08" "\x00\x00\x00\x08" "\x00\x00\x00\x08"
                                      "\x00\x00\x00\x08" "\x00\x00\x00\x08", 31));

        auto noticedWithinASecond = [&] {
            auto start = Clock::now();
            EXPECT_TRUE(inbox.untilGone().empty());
            EXPECT_LT(Clock::now() - start, std::chrono::seconds(1));
        };
        if (killed) {
            ASSERT_TRUE(vm->signal(SIGKILL));
            noticedWithinASecond();
            EXPECT_FALSE(inbox.channel.writeRecord(shmemCommand(2, 1, 1)));
            EXPECT_TRUE(inbox.channel.waitReadable(kReplyFailsafeMs));
            vm->wait(kStartFailsafeMs);
            EXPECT_FALSE(objectExists(name));
            continue;
        }
        // Resume: its reply and the VM's death come from different agent threads, in either order.
        ASSERT_TRUE(inbox.channel.writeRecord(shmemCommand(2, 1, 9)));
        std::string first, second;
        ASSERT_TRUE(inbox.next(first));
        ASSERT_TRUE(inbox.next(second));
        if (first.substr(4, 1) != "\x80") // the reply goes first
            std::swap(first, second);
        EXPECT_EQ(first, std::string("\x02\x00\x00\x00" "\x80" "\x00\x00" "\x00\x00\x00\x00", 11));
        // Composite event (64/100), any id; suspend policy none, one event:
        // VM_DEATH (99) of request 0.
        ASSERT_EQ(second.size(), 21u);
        EXPECT_EQ(second.substr(4), std::string("\x00" "\x40\x64" "\x0a\x00\x00\x00"
                                                "\x00" "\x00\x00\x00\x01" "\x63" "\x00\x00\x00\x00",
                                                17));
        EXPECT_TRUE(inbox.queue.empty());
        noticedWithinASecond();
        inbox.channel.close();
        expectRanToItsEnd(*vm, name);
    }
}

// However the debugger leaves, the VM's reader must notice, so the agent
// drops the session, listens again and lets main run; the name it listens
// on then must go away with the VM's orderly exit.
TEST(ShmemVm, TheVmFinishesWhenTheDebuggerLeaves)
{
    const struct {
        const char* how;
        std::function<int(const std::string&)> debugger; // 0 when it did its part
    } cases[] = {
        // Once the VM has stopped for it (VM_START read): a debugger gone
        // before that races the agent's own start-up suspension, which the
        // agent's reset then never lifts.
        {"dies after the handshake without a word",
         [](const std::string& name) {
             pid_t child = fork();
             if (child == 0) {
                 Inbox inbox;
                 std::string vmStart;
                 _exit(inbox.attach(name, vmStart) ? 0 : 3);
             }
             int status = -1;
             return child > 0 && waitpid(child, &status, 0) == child ? status : -1;
         }},
        {"resumes and closes at once",
         [](const std::string& name) {
             Inbox inbox;
             std::string vmStart;
             return inbox.attach(name, vmStart) && inbox.channel.writeRecord(shmemCommand(1, 1, 9)) ? 0 : 1;
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.how);
        const std::string name = uniqueName("leave");
        auto vm = startVm(name);
        ASSERT_EQ(c.debugger(name), 0);
        expectRanToItsEnd(*vm, name);
    }
}

TEST(ShmemVm, AVmStillListeningLeavesNothingBehindWhenItEnds)
{
    const std::string name = uniqueName("idle");
    auto vm = startVm(name);
    EXPECT_TRUE(objectExists(name));
    ASSERT_TRUE(vm->signal(SIGTERM)); // an orderly exit of the VM, no debugger ever came
    vm->wait(kStartFailsafeMs);
    EXPECT_FALSE(objectExists(name));
}

} // namespace
