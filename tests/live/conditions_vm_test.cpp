// Breakpoints with options against a real OpenJDK 17 VM running
// tests/java/Hits (a loop of 1,000 turns): conditions over a local, a field
// and a String; each hit-count form with and without a condition, also in a
// second VM; a condition that cannot be evaluated; a logpoint; and method
// breakpoints on an overloaded method of a class that loads late. Which hits
// stop is told by the loop variable read at each stop (as getValue shows it).
#include "LiveSessionTest.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

class LiveConditions : public LiveSessionTest {
protected:
    LiveConditions() : LiveSessionTest("tests/java/Hits.java") {}
};

// Each row is a session of its own with a line breakpoint in the loop and
// maybe a method breakpoint on Later.over, set before the VM runs (Later
// loads at its first call).
TEST_F(LiveConditions, WhichHitsStopAtLineAndMethodBreakpointsWithOptions)
{
    struct Case {
        const char* condition;
        const char* hits;
        // i at each stop in the loop, then the markers of the stops in Later
        std::vector<std::string> stopsAt;
        bool countedByVM;
        const char* signature = nullptr; // of the method breakpoint
        // Why the condition cannot be evaluated: the first hit stops, and
        // there the breakpoint is removed.
        const char* failure = nullptr;
        bool again = false; // run a second VM in the same session
    };
    const Case cases[] = {
        {"i == 500", "", {"500", "@over-int", "@over-int-string", "@over-string"}, false, ""},
        // A field through a local, and Strings by content.
        {"h.name == \"half\"", "", {"500", "@over-int"}, false, "(I)I"},
        {"word == \"w7\" && i > 990 || h.seen == -1", "", {"997", "@over-int-string"}, false, "(int, String)"},
        {"!(i < 998) && word != null", "", {"998", "999", "@over-string"}, false, "(java.lang.String)"},
        {"", "3", {"2"}, true, "(long)"},
        // A new VM counts the hits from the start.
        {"", ">= 998", {"997", "998", "999"}, true, nullptr, nullptr, true},
        {"", "% 250", {"249", "499", "749", "999"}, true},
        // Hits are counted where the condition holds: w3 at 3, 13, 23...
        {"word == \"w3\"", "2", {"13"}, false},
        {"word == \"w3\"", ">= 99", {"983", "993"}, false},
        {"word == \"w3\"", "% 40", {"393", "793"}, false},
        {"word > 3", "", {"0"}, false, nullptr, "cannot compare word (String) > int"},
        {"nosuch == 1", "", {"0"}, false, nullptr, "nosuch is not available here"},
        {"h.nosuch == 1", "", {"0"}, false, nullptr, "h.nosuch is not available here"},
        {"i", "", {"0"}, false, nullptr, "i is int, not boolean"},
    };
    const int loopLine = lineAt("@loop-body");
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.condition) + " | " + c.hits);
        TearDown();
        SetUp();
        jvm->setTargetClassName({"Hits", "Later"});
        JXBreakpointOptions options;
        options.Condition = c.condition;
        options.HitCondition = c.hits;
        ASSERT_TRUE(jvm->addBreakpoint("Hits", loopLine, options));
        EXPECT_EQ(jvm->breakpoints().front()->HitCountedByVM, c.countedByVM);
        if (c.signature) {
            ASSERT_TRUE(jvm->addMethodBreakpoint("Later", "over", c.signature));
            ASSERT_EQ(jvm->methodBreakpoints("Later", "over", c.signature).size(), 1u);
        }
        std::vector<std::string> expected;
        for (const std::string& at : c.stopsAt)
            expected.push_back(at[0] == '@' ? "@" + std::to_string(lineAt(at)) : "i: #" + at + "#");
        const size_t inLater = std::count_if(expected.begin(), expected.end(), [](auto& e) { return e[0] == '@'; });
        for (int run = 0; run < (c.again ? 2 : 1); ++run) {
            log->clear();
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
                          if (lastStop().className == "Later") {
                              seen.push_back("@" + std::to_string(lastStop().line));
                              EXPECT_EQ(lastStop().offset, 0);
                              // An entry for each overload named, made as Later loaded.
                              EXPECT_EQ(jvm->methodBreakpoints("Later", "over", c.signature).size(), inLater);
                          } else {
                              seen.push_back(jvm->getValue("i"));
                          }
                          if (c.failure && seen.size() == 1) {
                              // The reason first, then the stop, then the state.
                              const std::string failed = "ConditionFailed(Hits," + std::to_string(loopLine) + "," +
                                                         c.condition + "," + c.failure + ")";
                              const auto at = std::find(log->all.begin(), log->all.end(), failed);
                              ASSERT_GT(log->all.end() - at, 2) << dump();
                              EXPECT_EQ(at[1].rfind("Break(", 0), 0u) << dump();
                              EXPECT_EQ(at[2], "State(" + std::to_string(VMSuspend) + ")") << dump();
                              EXPECT_TRUE(jvm->removeBreakpoint("Hits", loopLine));
                          }
                      }),
                      static_cast<int>(expected.size()))
                << dump();
            EXPECT_EQ(seen, expected);
            EXPECT_EQ(log->hasPrefix("ConditionFailed"), c.failure != nullptr);
            // No state change for a hit that did not stop: at most a
            // suspension and a resume per stop, besides the start and the
            // end. (A stop whose event overtakes the reply to the Resume
            // before it has no state event.)
            EXPECT_LE(log->states.size(), 2 * expected.size() + 4) << dump();
            if (c.again) {
                EXPECT_EQ(jvm->breakpoints().front()->HitCount, 1000u);
            }
        }
    }
}

TEST_F(LiveConditions, ALogpointPrintsEveryValueAndNeverStops)
{
    jvm->setTargetClassName({"Hits"});
    JXBreakpointOptions options;
    options.LogMessage = "i={i} {{w}}={word} {h.seen}";
    ASSERT_TRUE(jvm->addBreakpoint("Hits", lineAt("@loop-body"), options));
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
    EXPECT_EQ(std::tuple(jvm->currentClassID(), jvm->currentMethodID(), jvm->currentFrameID(), jvm->frameValid()),
              std::tuple(0.0, 0.0, 0.0, false));
}

TEST_F(LiveConditions, OnALoadedClassOptionsChangeAndHitsShareAnEvent)
{
    jvm->setTargetClassName({"Hits"});
    const int loopLine = lineAt("@loop-body"), touchLine = lineAt("@touch-body");
    ASSERT_TRUE(jvm->addBreakpoint("Hits", loopLine));
    ASSERT_TRUE(launch("Hits")) << dump();
    ASSERT_TRUE(waitStop(0)) << dump();
    // New options for the breakpoint there: a count the VM keeps from here.
    JXBreakpointOptions counted;
    counted.HitCondition = "5";
    ASSERT_TRUE(jvm->addBreakpoint("Hits", loopLine, counted));
    EXPECT_TRUE(jvm->breakpoints().front()->HitCountedByVM);
    ASSERT_TRUE(resumeToNextStop()) << dump();
    EXPECT_EQ(jvm->getValue("i"), "i: #5#");
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
                  seen.push_back(jvm->getValue("i"));
                  if (seen.size() == 2) {
                      EXPECT_TRUE(jvm->removeMethodBreakpoint("Later", "over"));
                      EXPECT_TRUE(jvm->methodBreakpoints("Later", "over").empty());
                  }
              }),
              2)
        << dump();
    EXPECT_EQ(seen, (std::vector<std::string>{"i: #300#", "i: #700#"}));
}

} // namespace
