// Breakpoints with options against a real OpenJDK 17 VM running
// tests/java/Hits (a loop of 1,000 turns): conditions over a local, a field
// and a String; each hit-count form with and without a condition; a
// condition that cannot be evaluated; a logpoint; and method breakpoints on
// an overloaded method of a class that loads late. Which hits stop is told
// by the loop variable read at each stop.
#include "LiveSessionTest.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

const char* const kSource = "tests/java/Hits.java";

int line(const std::string& marker)
{
    return lineOf(kSource, "// " + marker);
}

class LiveConditions : public LiveSessionTest {
protected:
    // The value of `name` at the current stop, as getValue shows it after
    // "name: ".
    std::string value(const std::string& name)
    {
        const std::string text = jvm->getValue(name);
        const std::string head = name + ": #";
        if (text.compare(0, head.size(), head) != 0 || text.size() < head.size() + 1)
            return "?" + text;
        return text.substr(head.size(), text.size() - head.size() - 1);
    }
};

TEST_F(LiveConditions, WhichHitsStopAtALineBreakpointWithOptions)
{
    struct Case {
        const char* condition;
        const char* hits;
        std::vector<std::string> stopsAt; // i at each stop
        bool countedByVM;
    };
    const Case cases[] = {
        {"i == 500", "", {"500"}, false},
        // A field through a local, and Strings by content.
        {"h.name == \"half\"", "", {"500"}, false},
        {"word == \"w7\" && i > 990 || h.seen == -1", "", {"997"}, false},
        {"!(i < 998) && word != null", "", {"998", "999"}, false},
        {"", "3", {"2"}, true},
        {"", ">= 998", {"997", "998", "999"}, true},
        {"", "% 250", {"249", "499", "749", "999"}, true},
        // Hits are counted where the condition holds: w3 at 3, 13, 23...
        {"word == \"w3\"", "2", {"13"}, false},
        {"word == \"w3\"", ">= 99", {"983", "993"}, false},
        {"word == \"w3\"", "% 40", {"393", "793"}, false},
    };
    const int loopLine = line("@loop-body");
    ASSERT_GT(loopLine, 0);
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.condition) + " | " + c.hits);
        TearDown();
        SetUp();
        jvm->setTargetClassName({"Hits"});
        JXBreakpointOptions options;
        options.Condition = c.condition;
        options.HitCondition = c.hits;
        ASSERT_TRUE(jvm->addBreakpoint("Hits", loopLine, options));
        ASSERT_EQ(jvm->breakpoints().size(), 1u);
        const auto bp = jvm->breakpoints().front();
        EXPECT_EQ(bp->HitCountedByVM, c.countedByVM);
        ASSERT_TRUE(launch("Hits")) << dump();
        std::vector<std::string> seen;
        uint32_t serialBefore = 0;
        ASSERT_EQ(stopsUntilEnd([&] {
                      // A hit that did not stop left no trace in the stop
                      // count: from one stop to the next it counts one.
                      if (!seen.empty()) {
                          EXPECT_EQ(jvm->stopSerial(), serialBefore + 1);
                      }
                      serialBefore = jvm->stopSerial();
                      seen.push_back(value("i"));
                  }),
                  static_cast<int>(c.stopsAt.size()))
            << dump();
        EXPECT_EQ(seen, c.stopsAt);
        EXPECT_FALSE(log->hasPrefix("ConditionFailed"));
        // No state change for a hit that did not stop: at most a suspension
        // and a resume per stop, besides the start and the end. (A stop whose event
        // overtakes the reply to the Resume before it has no state event.)
        size_t states = 0;
        for (const std::string& entry : log->all)
            states += entry.rfind("State(", 0) == 0 ? 1 : 0;
        EXPECT_LE(states, 2 * c.stopsAt.size() + 4) << dump();
    }
}

TEST_F(LiveConditions, ANewVMCountsHitsFromTheStart)
{
    jvm->setTargetClassName({"Hits"});
    JXBreakpointOptions options;
    options.HitCondition = ">= 999";
    ASSERT_TRUE(jvm->addBreakpoint("Hits", line("@loop-body"), options));
    for (int run = 0; run < 2; ++run) {
        SCOPED_TRACE(run);
        ASSERT_TRUE(launch("Hits")) << dump();
        std::vector<std::string> seen;
        ASSERT_EQ(stopsUntilEnd([&] { seen.push_back(value("i")); }), 2) << dump();
        EXPECT_EQ(seen, (std::vector<std::string>{"998", "999"}));
        EXPECT_EQ(jvm->breakpoints().front()->HitCount, 1000u);
        log->stops.clear();
    }
}

TEST_F(LiveConditions, AConditionThatCannotBeEvaluatedStopsAndSaysWhy)
{
    struct Case {
        const char* condition;
        const char* reason;
    };
    const Case cases[] = {
        {"word > 3", "cannot compare word (String) > int"},
        {"nosuch == 1", "nosuch is not available here"},
        {"h.nosuch == 1", "h.nosuch is not available here"},
        {"i", "i is int, not boolean"},
    };
    const int loopLine = line("@loop-body");
    for (const Case& c : cases) {
        SCOPED_TRACE(c.condition);
        TearDown();
        SetUp();
        jvm->setTargetClassName({"Hits"});
        JXBreakpointOptions options;
        options.Condition = c.condition;
        ASSERT_TRUE(jvm->addBreakpoint("Hits", loopLine, options));
        ASSERT_TRUE(launch("Hits")) << dump();
        ASSERT_TRUE(waitStop(0)) << dump();
        EXPECT_EQ(value("i"), "0");
        // The reason first, then the stop, then the state.
        const std::string failed =
            "ConditionFailed(Hits," + std::to_string(loopLine) + "," + c.condition + "," + c.reason + ")";
        const auto at = std::find(log->all.begin(), log->all.end(), failed);
        ASSERT_NE(at, log->all.end()) << dump();
        ASSERT_LT(at + 2, log->all.end());
        EXPECT_EQ(at[1].rfind("Break(", 0), 0u) << dump();
        EXPECT_EQ(at[2], "State(" + std::to_string(VMSuspend) + ")") << dump();
        ASSERT_TRUE(jvm->removeBreakpoint("Hits", loopLine));
        EXPECT_EQ(runToEnd(), 0) << dump();
    }
}

TEST_F(LiveConditions, ALogpointPrintsEveryValueAndNeverStops)
{
    jvm->setTargetClassName({"Hits"});
    JXBreakpointOptions options;
    options.LogMessage = "i={i} {{w}}={word} {h.seen}";
    ASSERT_TRUE(jvm->addBreakpoint("Hits", line("@loop-body"), options));
    ASSERT_TRUE(launch("Hits")) << dump();
    ASSERT_TRUE(waitDead()) << dump();
    ASSERT_EQ(log->logpoints.size(), 1000u) << dump();
    for (int i = 0; i < 1000; i += 333)
        EXPECT_EQ(log->logpoints[static_cast<size_t>(i)],
                  "i=" + std::to_string(i) + " {w}=w" + std::to_string(i % 10) + " " + std::to_string(i));
    EXPECT_TRUE(log->stops.empty());
    // The VM's start is the only suspension the host may hear of (whether it
    // does depends on how soon the opening Resume is answered).
    EXPECT_LE(log->count("State(" + std::to_string(VMSuspend) + ")"), 1u) << dump();
    // Nor does the current stop show where the hits were read.
    EXPECT_EQ(jvm->currentClassID(), 0);
    EXPECT_EQ(jvm->currentMethodID(), 0);
    EXPECT_EQ(jvm->currentFrameID(), 0);
    EXPECT_FALSE(jvm->frameValid());
}

TEST_F(LiveConditions, MethodBreakpointsStopInEachOverloadOrInTheOneNamed)
{
    struct Case {
        const char* signature;
        std::vector<const char*> stopsAt; // markers
    };
    const Case cases[] = {
        {"", {"@over-int", "@over-int-string", "@over-string"}},
        {"(I)I", {"@over-int"}},
        {"(int, String)", {"@over-int-string"}},
        {"(java.lang.String)", {"@over-string"}},
        {"(long)", {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.signature);
        TearDown();
        SetUp();
        jvm->setTargetClassName({"Hits", "Later"});
        // Set before the VM runs: Later loads at its first call.
        ASSERT_TRUE(jvm->addMethodBreakpoint("Later", "over", c.signature));
        ASSERT_EQ(jvm->methodBreakpoints("Later", "over", c.signature).size(), 1u);
        ASSERT_TRUE(launch("Hits")) << dump();
        std::vector<int> lines;
        ASSERT_EQ(stopsUntilEnd([&] {
                      lines.push_back(lastStop().line);
                      EXPECT_EQ(lastStop().className, "Later");
                      EXPECT_EQ(lastStop().offset, 0);
                      if (lines.size() == 1) {
                          EXPECT_EQ(jvm->methodBreakpoints("Later", "over", c.signature).size(), c.stopsAt.size());
                      }
                  }),
                  static_cast<int>(c.stopsAt.size()))
            << dump();
        std::vector<int> expected;
        for (const char* marker : c.stopsAt)
            expected.push_back(line(marker));
        EXPECT_EQ(lines, expected);
    }
}

TEST_F(LiveConditions, OnALoadedClassOptionsChangeAndHitsShareAnEvent)
{
    jvm->setTargetClassName({"Hits"});
    const int loopLine = line("@loop-body"), touchLine = line("@touch-body");
    ASSERT_TRUE(jvm->addBreakpoint("Hits", loopLine));
    ASSERT_TRUE(launch("Hits")) << dump();
    ASSERT_TRUE(waitStop(0)) << dump();
    // New options for the breakpoint there: a count the VM keeps from here.
    JXBreakpointOptions counted;
    counted.HitCondition = "5";
    ASSERT_TRUE(jvm->addBreakpoint("Hits", loopLine, counted));
    EXPECT_TRUE(jvm->breakpoints().front()->HitCountedByVM);
    resume();
    ASSERT_TRUE(waitStop(1)) << dump();
    EXPECT_EQ(value("i"), "5");
    ASSERT_TRUE(jvm->removeBreakpoint("Hits", loopLine));
    // The class is known: the method breakpoint's entries are made at once.
    // Its location is that of the line breakpoint on the method's first
    // line, so both hits come in one event: one that does not stop must not
    // resume the other's stop.
    JXBreakpointOptions at700, at300;
    at700.Condition = "i == 700";
    at300.Condition = "i == 300";
    ASSERT_TRUE(jvm->addMethodBreakpoint("Hits", "touch", "", at700));
    const auto entries = jvm->methodBreakpoints("Hits", "touch");
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_TRUE(entries.front()->UsedByVM);
    ASSERT_TRUE(jvm->addBreakpoint("Hits", touchLine, at300));
    EXPECT_TRUE(jvm->addMethodBreakpoint("Later", "over"));
    std::vector<std::string> seen;
    resume();
    ASSERT_EQ(stopsUntilEnd([&] {
                  EXPECT_EQ(lastStop().line, touchLine);
                  seen.push_back(value("i"));
                  if (seen.size() == 2) {
                      EXPECT_TRUE(jvm->removeMethodBreakpoint("Later", "over"));
                      EXPECT_TRUE(jvm->methodBreakpoints("Later", "over").empty());
                  }
              }),
              2)
        << dump();
    EXPECT_EQ(seen, (std::vector<std::string>{"300", "700"}));
}

} // namespace
