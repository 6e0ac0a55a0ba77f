// Tests of the message pump: watches, idle callbacks, timers on an injected
// tick source, and the re-entrancy rules (nested passes, callbacks that
// remove themselves or others, events narrowed during a pass).
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "jdwpkrvdbg/platform/Clock.h"
#include "jdwpkrvdbg/platform/MessagePump.h"

namespace jdwpkrvdbg {
namespace {

struct Pipe {
    int r = -1;
    int w = -1;
    Pipe()
    {
        int fds[2];
        if (::pipe(fds) == 0)
            r = fds[0], w = fds[1];
    }
    ~Pipe() { ::close(r), ::close(w); }
    void put() { ASSERT_EQ(::write(w, "x", 1), 1); }
    void take()
    {
        char c;
        ASSERT_EQ(::read(r, &c, 1), 1);
    }
};

class PumpTest : public ::testing::Test {
protected:
    void SetUp() override { baseline_ = pump().sourceCount(); }
    void TearDown() override
    {
        setTickSource({});
        EXPECT_EQ(pump().sourceCount(), baseline_) << "a test left sources registered";
    }
    static MessagePump& pump() { return MessagePump::instance(); }
    size_t baseline_ = 0;
};

// A pass runs the idles (one added during a pass from the next pass on),
// which keep it from blocking, and the watches whose descriptors are ready,
// also in a nested pass while they stay ready.
TEST_F(PumpTest, APassRunsIdlesAndReadyWatchesAlsoNested)
{
    Pipe p;
    std::vector<std::string> log;
    int depth = 0, added = 0;
    int idle = pump().addIdle([&] {
        log.push_back("idle@" + std::to_string(depth));
        if (added == 0)
            added = pump().addIdle([&] { log.push_back("added"); });
    });
    int watch = pump().addWatch(p.r, POLLIN, [&](short revents) {
        log.push_back("watch@" + std::to_string(depth) + (revents == POLLIN ? "" : " with other events"));
        if (depth == 0) {
            // Still readable: the nested pass must run this watch again.
            ++depth;
            int ran = pump().pumpOnce(0);
            --depth;
            log.push_back("nested ran " + std::to_string(ran));
        } else {
            p.take();
        }
    });
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(pump().pumpOnce(60000), 1); // not ready yet
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30)) << "a blocking pass takes a minute";
    p.put();
    EXPECT_EQ(pump().pumpOnce(0), 3);
    // Done is asked before each pass: one more pass.
    EXPECT_TRUE(pump().pumpUntil([&] { return log.size() >= 10; }, 1000000));
    EXPECT_EQ(log, (std::vector<std::string>{"idle@0", "watch@0", "watch@1", "idle@1", "added", "nested ran 3",
                                             "idle@0", "added", "idle@0", "added"}));
    pump().removeWatch(watch);
    pump().removeWatch(watch); // unknown ids are ignored
    pump().removeIdle(idle);
    pump().removeIdle(added);
    EXPECT_EQ(pump().pumpOnce(0), 0);
}

// A callback removes (itself and) or narrows the events of another watch
// that is ready in the same pass, or runs a nested pass that runs the other
// watch and then removes it: the outer pass, which has it ready in its
// snapshot, must not run it (again).
TEST_F(PumpTest, AWatchRemovedOrNarrowedDuringAPassDoesNotRunInIt)
{
    const std::string payload(200, 'p'); // heap-held capture: freed too early would show
    enum How { Removes, Narrows, NestedPassRemoves };
    for (const How how : {Removes, Narrows, NestedPassRemoves}) {
        SCOPED_TRACE(how);
        Pipe a, b;
        int idA = 0, idB = 0, bRuns = 0;
        std::string afterRemoval;
        idA = pump().addWatch(a.r, POLLIN, [&, payload, how](short) {
            a.take();
            if (how == Narrows)
                return pump().setWatchEvents(idB, POLLOUT); // a read end never becomes writable
            if (how == NestedPassRemoves) {
                // Watches run before idles: B runs in the nested pass, then the idle removes it.
                int idle = 0;
                idle = pump().addIdle([&] {
                    pump().removeWatch(idB);
                    pump().removeIdle(idle);
                });
                return (void)pump().pumpOnce(0);
            }
            pump().removeWatch(idA);
            pump().removeWatch(idB);
            afterRemoval = payload; // captures still alive after removing itself
        });
        idB = pump().addWatch(b.r, POLLIN, [&](short) { ++bRuns; });
        a.put();
        b.put();
        EXPECT_EQ(pump().pumpOnce(0), 1);
        EXPECT_EQ(pump().pumpOnce(0), 0);
        EXPECT_EQ(bRuns, how == NestedPassRemoves ? 1 : 0);
        EXPECT_EQ(afterRemoval, how == Removes ? payload : "");
        pump().removeWatch(idA);
        pump().removeWatch(idB);
    }
}

TEST_F(PumpTest, TimersAndPumpUntilFollowInjectedTicks)
{
    // Start just below the wrap of the 32-bit tick counter.
    uint32_t now = 0xffffffc0u;
    setTickSource([&] { return now; });
    std::vector<uint32_t> fired;
    int id = 0;
    id = pump().addTimer(100, [&] {
        fired.push_back(now);
        if (fired.size() == 4) // a timer may remove itself
            pump().removeTimer(id);
    });

    const std::pair<uint32_t, size_t> steps[] = {
        // ticks to advance, runs after the pass
        {0, 0},              // not due
        {99, 0},             // one tick short (across the wrap)
        {1, 1},              // due
        {50, 1},             // re-armed from the firing time
        {50, 2},             // due again
        {1000, 3},           // late: fires once, no burst of missed ticks
        {0, 3},    {100, 4}, // re-armed from the late firing
    };
    for (const auto& [advance, runs] : steps) {
        now += advance;
        pump().pumpOnce(0);
        EXPECT_EQ(fired.size(), runs) << "after advancing " << advance;
    }
    now += 1000;
    pump().pumpOnce(0);
    EXPECT_EQ(fired.size(), 4u);

    // pumpUntil gives up once its time-out has passed on the same clock,
    // across the wrap too (10 ticks a reading; done counts the polls).
    setTickSource([&] { return now += 10; });
    int polls = 0;
    EXPECT_FALSE(pump().pumpUntil([&] { return ++polls == 0; }, 100));
    EXPECT_GT(polls, 1);
    EXPECT_LE(polls, 12);
}

} // namespace
} // namespace jdwpkrvdbg
