// Value inspection against a real VM: locals of every type, fields, getters
// (and save mode), statics, objects and the runtime's wrapper classes, the
// text layout of missing names, truncation and escaping, the stack three
// calls deep, popping a frame, and evaluation calls kept from the host.
#include <gtest/gtest.h>

#include "LiveSessionTest.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

const char* const kSource = "tests/java/Values.java";

int line(const std::string& marker)
{
    return lineOf(kSource, "// " + marker);
}

class LiveValues : public LiveSessionTest {
protected:
    void SetUp() override
    {
        LiveSessionTest::SetUp();
        jvm->setTargetClassName({"Values", "Point"});
    }
    void stopAt(const std::string& marker)
    {
        jvm->addBreakpoint("Values", line(marker));
        ASSERT_TRUE(launch("Values"));
        ASSERT_TRUE(pumpUntil([&] { return !log->stops.empty(); })) << handler->history().dump();
        ASSERT_EQ(log->stops.back().line, line(marker));
    }
    int invocations()
    {
        int n = 0;
        for (const auto& l : handler->history().lines())
            if (l.rfind("->", 0) == 0 && (l.find(" 9/6 ") != std::string::npos || l.find(" 3/3 ") != std::string::npos))
                ++n;
        return n;
    }

};

TEST_F(LiveValues, LocalsOfEveryTypeRenderAsTheHostExpects)
{
    stopAt("@values-stop");
    const std::vector<std::pair<std::string, std::string>> expected{
        {"i", "i: #-7#"},
        {"l", "l: #1234567890123#"},
        {"d", "d: #2.5#"},
        {"f", "f: #1.5#"},
        {"c", "c: #65#"},
        {"z", "z: #True#"},
        {"by", "by: #12#"},
        {"sh", "sh: #-300#"},
        {"str", "str: #Grüße 😀#"},
        {"counter", "counter: #42#"},
        {"nothing", "nothing: #Object not initialized!#"},
        {"unknownName", ""},
        {"", ""},
        {"a:b", ""},
        {"x=1", ""},
        {"12", ""},
        {"\"quoted", ""},
    };
    for (const auto& [expr, text] : expected)
        EXPECT_EQ(jvm->getValue(expr), text) << expr;
    EXPECT_EQ(jvm->getValue("arr").rfind("arr: #[I@", 0), 0u) << jvm->getValue("arr");
    const std::string point = jvm->getValue("p");
    EXPECT_EQ(point.rfind("p: #Type: Point - ObjID: ", 0), 0u) << point;
}

TEST_F(LiveValues, DottedPathsReadFieldsAndGettersAndSaveModeInvokesNothing)
{
    stopAt("@values-stop");
    const std::string pointLine = jvm->getValue("p").substr(3); // "#Type: Point - ObjID: N#"
    const std::string pointText = pointLine.substr(1, pointLine.size() - 2);
    EXPECT_EQ(jvm->getValue("p.x"), "#p.x: 3#\r\np: " + pointText);
    EXPECT_EQ(jvm->getValue("p.zzz"), "p.zzz - Not available!\r\np: " + pointText);
    handler->history().clear();
    EXPECT_EQ(jvm->getValue("p.title"), "#p.title: title:pt#\r\np: " + pointText);
    EXPECT_GE(invocations(), 1) << "the getter ran in the VM";

    jvm->setSaveMode(true);
    handler->history().clear();
    EXPECT_EQ(jvm->getValue("p.title"), "p.title - Not available!\r\np: " + pointText);
    EXPECT_EQ(invocations(), 0) << handler->history().dump();
    jvm->setSaveMode(false);
}

TEST_F(LiveValues, RuntimeWrappersRenderThroughTheirDebugText)
{
    stopAt("@values-stop");
    EXPECT_EQ(jvm->getValue("v"), "v: #var\r\niant#") << "quotes stripped, # turned into a line break";
    EXPECT_EQ(jvm->getValue("va"), "va: #(0) = 1\r\n(1) = 2#");
    EXPECT_EQ(jvm->getValue("col"), "col: #enum Colors#");
}

TEST_F(LiveValues, LongValuesAreCutAndHashesEscaped)
{
    stopAt("@values-stop");
    EXPECT_EQ(jvm->getValue("hashes"), "hashes: #a{~}b{~}c#");
    jvm->setMaxValueSize(12);
    EXPECT_EQ(jvm->getValue("longText"), "longText: #012345678901#");
    EXPECT_EQ(jvm->getValue("hashes"), "hashes: #a{~}b{~}c#");
}

TEST_F(LiveValues, StackTraceThreeCallsDeepAndPopFrame)
{
    jvm->addBreakpoint("Values", line("@level3"));
    stopAt("@level3");
    auto trace = jvm->getStackTrace();
    ASSERT_GE(trace.size(), 4u);
    const std::vector<std::pair<std::string, int>> frames{
        {"level3", line("@level3")}, {"level2", line("@level2")}, {"level1", line("@level1")}};
    for (size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(trace[i][1], "Values");
        EXPECT_EQ(trace[i][2], frames[i].first);
        EXPECT_EQ(trace[i][3], "(I)I");
        EXPECT_EQ(trace[i][4], std::to_string(frames[i].second));
    }
    EXPECT_EQ(trace[3][2], "main");
    EXPECT_EQ(jvm->getStackCount(), static_cast<int32_t>(trace.size()));

    jvm->refreshFrameID();
    ASSERT_TRUE(jvm->PopFrame());
    jvm->refreshFrameID();
    trace = jvm->getStackTrace();
    ASSERT_FALSE(trace.empty());
    EXPECT_EQ(trace[0][2], "level2");
    EXPECT_EQ(trace[0][4], std::to_string(line("@level2")));
}

TEST_F(LiveValues, EventsOfAnEvaluationNeverReachTheHost)
{
    // A breakpoint inside the getter that the evaluation invokes.
    jvm->addBreakpoint("Point", line("@getter"));
    stopAt("@values-stop");
    const size_t stops = log->stops.size();
    const std::string value = jvm->getValue("p.title");
    EXPECT_NE(value.find("title:pt"), std::string::npos) << value;
    // The getter's breakpoint event came before the invocation's reply, so
    // it has been handled by the time getValue returns.
    EXPECT_EQ(log->stops.size(), stops) << "the getter's breakpoint did not stop the host";
    EXPECT_EQ(jvm->JVMState(), VMSuspend);
}

} // namespace
