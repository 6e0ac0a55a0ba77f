// Value inspection against a real VM, at one stop of tests/java/Values:
// locals of every type, fields, getters (and save mode), the runtime's
// wrapper classes, the text layout of missing names, truncation and
// escaping, evaluation calls whose events are kept from the host; then the
// stack three calls deep and popping a frame.
#include "LiveSessionTest.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

int line(const std::string& marker)
{
    return lineOf("tests/java/Values.java", "// " + marker);
}

class LiveValues : public LiveSessionTest {
protected:
    int invocations()
    {
        int n = 0;
        for (const auto& l : handler->history().lines())
            n += l.rfind("->", 0) == 0 && (l.find(" 9/6 ") != std::string::npos || l.find(" 3/3 ") != std::string::npos);
        return n;
    }
};

TEST_F(LiveValues, ValuesRenderAsTheHostExpectsThenTheStackAndPopFrame)
{
    jvm->setTargetClassName({"Values", "Point"});
    jvm->addBreakpoint("Values", line("@values-stop"));
    jvm->addBreakpoint("Values", line("@level3"));
    // A breakpoint inside the getter that the evaluation invokes.
    jvm->addBreakpoint("Point", line("@getter"));
    ASSERT_TRUE(launch("Values"));
    ASSERT_TRUE(waitStop(0)) << dump();
    ASSERT_EQ(lastStop().line, line("@values-stop"));

    const std::vector<std::pair<std::string, std::string>> expected{
        {"i", "i: #-7#"}, {"l", "l: #1234567890123#"}, {"d", "d: #2.5#"}, {"f", "f: #1.5#"}, {"c", "c: #65#"},
        {"z", "z: #True#"}, {"by", "by: #12#"}, {"sh", "sh: #-300#"}, {"str", "str: #Grüße 😀#"},
        {"notANumber", "notANumber: #NaN#"}, {"negInf", "negInf: #-Infinity#"}, {"posInf", "posInf: #Infinity#"},
        {"counter", "counter: #42#"}, {"nothing", "nothing: #Object not initialized!#"},
        {"unknownName", ""}, {"", ""}, {"a:b", ""}, {"x=1", ""}, {"12", ""}, {"\"quoted", ""},
        // The runtime's wrappers render through their debug text: quotes
        // stripped, # turned into a line break.
        {"v", "v: #var\r\niant#"}, {"va", "va: #(0) = 1\r\n(1) = 2#"}, {"col", "col: #enum Colors#"},
        {"hashes", "hashes: #a{~}b{~}c#"},
    };
    for (const auto& [expr, text] : expected)
        EXPECT_EQ(jvm->getValue(expr), text) << expr;
    EXPECT_EQ(jvm->getValue("arr").rfind("arr: #[I@", 0), 0u) << jvm->getValue("arr");

    // Dotted paths read fields and getters; save mode invokes nothing.
    const std::string pointLine = jvm->getValue("p").substr(3); // "#Type: Point - ObjID: N#"
    ASSERT_EQ(pointLine.rfind("#Type: Point - ObjID: ", 0), 0u) << pointLine;
    const std::string pointText = pointLine.substr(1, pointLine.size() - 2);
    EXPECT_EQ(jvm->getValue("p.x"), "#p.x: 3#\r\np: " + pointText);
    EXPECT_EQ(jvm->getValue("p.zzz"), "p.zzz - Not available!\r\np: " + pointText);
    // Past the 2 s after the wrappers' calls in which no call is made.
    clock.advance(2000);
    handler->history().clear();
    EXPECT_EQ(jvm->getValue("p.title"), "#p.title: title:pt#\r\np: " + pointText) << dump();
    EXPECT_GE(invocations(), 1) << "the getter ran in the VM";
    // The getter's breakpoint event came before the invocation's reply, so
    // it has been handled by the time getValue returns.
    EXPECT_EQ(log->stops.size(), 1u) << "the getter's breakpoint did not stop the host";
    EXPECT_EQ(jvm->JVMState(), VMSuspend);
    jvm->setSaveMode(true);
    handler->history().clear();
    EXPECT_EQ(jvm->getValue("p.title"), "p.title - Not available!\r\np: " + pointText);
    EXPECT_EQ(invocations(), 0) << dump();
    jvm->setSaveMode(false);

    // Long values are cut; escaping is not.
    jvm->setMaxValueSize(12);
    EXPECT_EQ(jvm->getValue("longText"), "longText: #012345678901#");
    EXPECT_EQ(jvm->getValue("hashes"), "hashes: #a{~}b{~}c#");

    ASSERT_TRUE(resumeToStopAt(line("@level3"))) << dump();
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

} // namespace
