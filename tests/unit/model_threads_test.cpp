// Threads against the scripted VM: the list's positions and ids, the cached
// name and group, the live state, the odd parent-group property, and the
// arming of every non-system thread for suspend-at-next-step.
#include <algorithm>
#include <functional>
#include <map>
#include <tuple>

#include "unit_fixtures.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

// Threads 1 and 2 in "system" (group 0x100), 3 and 4 in "main" (0x200);
// thread 5's group cannot be read.
class ModelThreads : public ModelTest {
public:
    void SetUp() override
    {
        ModelTest::SetUp();
        vm->on(11, 5, [](const SentCommand& c, std::string& out, uint16_t& err) {
            static const std::map<std::string, uint64_t> groups{
                {be64(1), 0x100}, {be64(2), 0x100}, {be64(3), 0x200}, {be64(4), 0x200}};
            auto it = groups.find(c.payload);
            err = it == groups.end() ? 10 /* INVALID_THREAD */ : 0;
            out = err ? "" : be64(it->second);
            return true;
        });
        vm->on(12, 1, [](const SentCommand& c, std::string& out, uint16_t&) {
            out = jstr(c.payload == be64(0x100) ? "system" : "main");
            return true;
        });
    }

    // The thread ids inside the Step modifiers of every step request sent.
    std::vector<std::string> steppedThreads() const
    {
        std::vector<std::string> out;
        for (const auto& c : vm->commandsOf(15, 1))
            if (c.payload.size() >= 15 && c.payload[0] == 1 && c.payload[6] == 10)
                out.push_back(c.payload.substr(7, 8));
        return out;
    }
};

// Thread 3's name and group are asked once, its state on every access;
// thread 5, whose group cannot be read, counts as suspendable and its group
// is asked again. The parent group is never asked: it is always 0.
TEST_F(ModelThreads, NameAndGroupAreCachedStateIsLiveAndARefusedStopRequestIsTriedAgain)
{
    vm->onPayload(11, 1, jstr("main"));
    vm->onPayload(11, 4, be32(THREAD_STATE_SLEEPING) + be32(1));
    JXThread t, unknown;
    t.threadID = 3;
    unknown.threadID = 5;
    EXPECT_EQ(unknown.parentThreadGroupID(), 0);
    EXPECT_TRUE(vm->commands().empty()) << "the parent group is never asked";
    for (int twice = 0; twice < 2; ++twice) {
        EXPECT_EQ(t.ThreadName(), "main");
        EXPECT_EQ(t.ThreadGroupName(), "main");
        EXPECT_EQ(unknown.ThreadGroupName(), "");
    }
    EXPECT_EQ(std::tuple(t.threadGroupID(), unknown.threadGroupID()), std::tuple(0x200, -1));
    EXPECT_TRUE(t.CanSuspend());
    EXPECT_TRUE(unknown.CanSuspend());
    EXPECT_EQ(t.ThreadState(), THREAD_STATE_SLEEPING);
    EXPECT_TRUE(t.ThreadSuspended());
    const std::tuple<int, int, size_t> counts[] = {{11, 1, 1}, {12, 1, 1}, {11, 4, 2}};
    for (auto [set, cmd, n] : counts)
        EXPECT_EQ(countOf(set, cmd), n) << set << "/" << cmd;
    const auto groupQueries = payloadsOf(11, 5);
    EXPECT_EQ(std::count(groupQueries.begin(), groupQueries.end(), be64(3)), 1);
    EXPECT_GE(std::count(groupQueries.begin(), groupQueries.end(), be64(5)), 2) << "a failed query is asked again";

    vm->onPayload(11, 4, be32(THREAD_STATE_RUNNING) + be32(0));
    EXPECT_FALSE(t.ThreadSuspended());
    EXPECT_EQ(t.ThreadState(), THREAD_STATE_RUNNING);

    // A stop request the VM refused placed nothing to clear, and is tried
    // again; a placed one is not placed twice.
    vm->onPayload(15, 1, "", 10);
    t.RegisterStopMe();
    t.UnregisterStopMe();
    EXPECT_EQ(std::pair(countOf(15, 1), countOf(15, 2)), std::pair(size_t{1}, size_t{0}));
    vm->onPayload(15, 1, be32(7));
    t.RegisterStopMe();
    t.RegisterStopMe();
    EXPECT_EQ(countOf(15, 1), 2u);
}

TEST_F(ModelThreads, TheListIsKeyedByIdAndArmsEveryThreadOutsideTheSystemGroupOnce)
{
    JXThreadList list;
    for (double id : {4.0, 3.0, 1.0, 2.0, 5.0, 9007199254740991.0})
        list.addThread(id);
    list.addThread(3); // refused by the collection: ids are keys
    EXPECT_EQ(list.Count(), 6);
    EXPECT_EQ(list.Item(6)->threadID, 9007199254740991.0);
    EXPECT_EQ(list.Item(0), nullptr);
    EXPECT_EQ(list.Item(7), nullptr);
    EXPECT_EQ(list.find(3), list.Item(2));
    EXPECT_EQ(list.find(8), nullptr);
    EXPECT_TRUE(vm->commands().empty());

    list.registerSuspend();
    EXPECT_EQ(steppedThreads(), (std::vector<std::string>{be64(4), be64(3), be64(5), be64(9007199254740991)}));
    for (const auto& c : vm->commandsOf(15, 1))
        EXPECT_EQ(c.payload.substr(15, 8), be32(1) + be32(SD_INTO)) << "line steps into";

    list.registerSuspend();
    EXPECT_EQ(countOf(15, 1), 4u) << "an armed thread is not armed twice";

    list.unRegisterSuspend();
    EXPECT_EQ(countOf(15, 2), 4u);
    for (const auto& payload : payloadsOf(15, 2))
        EXPECT_EQ(payload[0], 1) << "cleared as step requests";
    list.unRegisterSuspend();
    EXPECT_EQ(countOf(15, 2), 4u) << "nothing left to clear";

    list.registerSuspend();
    EXPECT_EQ(countOf(15, 1), 8u) << "disarmed threads can be armed again";
}

TEST_F(ModelThreads, SuspendNextStepArmsAllThreadsQuietly)
{
    vm->onPayload(1, 4, be32(3) + be64(1) + be64(3) + be64(4));
    EXPECT_TRUE(jvm()->SuspendNextStep());
    auto order = wire(); // without the thread and group queries
    std::erase_if(order, [](const auto& sc) { return sc.first == 11 || sc.first == 12; });
    // AllThreads, Suspend, one step request per user thread, Resume.
    EXPECT_EQ(order, (Wire{{1, 4}, {1, 8}, {15, 1}, {15, 1}, {1, 9}}));
    EXPECT_EQ(steppedThreads(), (std::vector<std::string>{be64(3), be64(4)}));
    EXPECT_FALSE(jvm()->muteStateEvents()) << "restored";
    EXPECT_TRUE(log->states.empty()) << "no state change reaches the host";
    EXPECT_EQ(jvm()->myLastStepEvent, nullptr) << "the threads' requests are not the session's step";

    vm->clearCommands();
    vm->on(1, 4, [](const SentCommand&, std::string&, uint16_t&) { return false; }); // never answered
    EXPECT_FALSE(jvm()->SuspendNextStep()) << "no list, nothing suspended";
    EXPECT_EQ(countOf(1, 8), 0u);
}

// Every request a pause places is cleared once, by the next pause or by the
// stop that ends it, and never sent to the VM of a later session.
TEST_F(ModelThreads, APausesRequestsAreClearedOnceAndOnlyInTheirOwnVM)
{
    vm->onPayload(1, 4, be32(2) + be64(3) + be64(4));
    uint32_t nextId = 101;
    vm->on(15, 1, [&](const SentCommand&, std::string& out, uint16_t&) {
        out = be32(nextId++);
        return true;
    });
    const auto clear = [](uint32_t id) { return u8(EK_SINGLE_STEP) + be32(id); };
    const auto pause = [&] { EXPECT_TRUE(jvm()->SuspendNextStep()); };
    const struct {
        const char* name;
        std::function<void()> act;
        std::vector<std::string> clears; // the Clear payloads sent by `act`
    } steps[] = {
        {"the first pause", pause, {}},
        {"a second pause before any stop", pause, {clear(101), clear(102)}},
        {"a full resume before the stop", [&] { jvm()->ResumeVM(true); }, {}},
        {"the pause's stop, a step event of one thread",
         [&] { jvm()->GoSingleStep(103, 3, "Module1", 0x10, 0x31, 10, 0); },
         {clear(103), clear(104)}},
        {"a breakpoint stop after it", [&] { jvm()->GoBreakpoint(9, 3, "Module1", 0x10, 0x31, 11, 0); }, {}},
        {"a pause in a session that is about to end", pause, {}},
        {"the end of that session", [&] { jvm()->cleanup(); }, {}},
        {"a stop in the next session", [&] { jvm()->GoBreakpoint(9, 3, "Module1", 0x10, 0x31, 11, 0); }, {}},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.name);
        vm->clearCommands();
        step.act();
        EXPECT_EQ(payloadsOf(15, 2), step.clears);
    }

    // A stop decoded while the pause is being withdrawn (each Clear waits
    // for its reply) leaves the list to the withdrawal under way.
    pause(); // 107, 108
    vm->clearCommands();
    size_t clearsSeenByTheNestedStop = 0;
    int idle = 0;
    vm->on(15, 2, [&](const SentCommand&, std::string&, uint16_t&) {
        if (!idle && countOf(15, 2) == 1)
            idle = MessagePump::instance().addIdle([&] {
                MessagePump::instance().removeIdle(idle);
                jvm()->GoBreakpoint(9, 4, "Module1", 0x10, 0x31, 11, 0);
                clearsSeenByTheNestedStop = countOf(15, 2);
            });
        return true;
    });
    jvm()->GoBreakpoint(9, 3, "Module1", 0x10, 0x31, 11, 0);
    ASSERT_NE(idle, 0);
    EXPECT_EQ(clearsSeenByTheNestedStop, 1u);
    EXPECT_EQ(payloadsOf(15, 2), (std::vector{clear(107), clear(108)}));
}

} // namespace
