// Value inspection against a real VM, at one stop of tests/java/Values:
// locals of every type, fields, getters (and save mode, which runs nothing),
// the runtime's wrapper classes, the text layout of missing names,
// truncation and escaping, evaluation calls whose events are kept from the
// host while the program's own next stop is not; then the stack three calls
// deep, popping a frame, and a stop in run() of a Thread subclass. Also
// values set at a stop of tests/java/SetValues (read back, and seen by the
// program once it runs on), and frame 0 of a stop named without asking the
// VM (tests/java/Soak's loop).
// The tables of byte literals keep their hand layout:
// clang-format off
#include "LiveSessionTest.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

class LiveValues : public LiveSessionTest {
protected:
    LiveValues() : LiveSessionTest("tests/java/Values.java") {}
    // The commands of these sets and numbers ("9/6") sent since the history
    // was cleared.
    int sent(std::initializer_list<const char*> commands)
    {
        int n = 0;
        for (const auto& l : handler->history().lines())
            for (const char* command : commands)
                n += l.rfind("->", 0) == 0 && l.find(std::string(" ") + command + " ") != std::string::npos;
        return n;
    }
    int invocations() { return sent({"9/6", "3/3"}); }
    // "Class.method(signature):line" of each frame, apart by spaces.
    std::string stack()
    {
        std::string out;
        for (const auto& f : jvm->getStackTrace())
            out += (out.empty() ? "" : " ") + f[1] + "." + f[2] + f[3] + ":" + f[4];
        return out;
    }
};

TEST_F(LiveValues, ValuesRenderAsTheHostExpectsThenTheStackAndPopFrame)
{
    jvm->setTargetClassName({"Values", "Point", "Worker"});
    jvm->addBreakpoint("Values", lineAt("@values-stop"));
    jvm->addBreakpoint("Values", lineAt("@level3"));
    // A breakpoint inside the getter that the evaluation invokes.
    jvm->addBreakpoint("Point", lineAt("@getter"));
    jvm->addBreakpoint("Worker", lineAt("@in-run"));
    ASSERT_TRUE(launch("Values"));
    ASSERT_TRUE(waitStop(0)) << dump();
    ASSERT_EQ(lastStop().line, lineAt("@values-stop"));

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

    // Dotted paths read fields and getters, also right after the wrappers'
    // calls above.
    const std::string pointLine = jvm->getValue("p").substr(3); // "#Type: Point - ObjID: N#"
    ASSERT_EQ(pointLine.rfind("#Type: Point - ObjID: ", 0), 0u) << pointLine;
    const std::string pointText = pointLine.substr(1, pointLine.size() - 2);
    EXPECT_EQ(jvm->getValue("p.x"), "#p.x: 3#\r\np: " + pointText);
    EXPECT_EQ(jvm->getValue("p.zzz"), "p.zzz - Not available!\r\np: " + pointText);
    handler->history().clear();
    EXPECT_EQ(jvm->getValue("p.title"), "#p.title: title:pt#\r\np: " + pointText) << dump();
    EXPECT_GE(invocations(), 1) << "the getter ran in the VM";
    // The getter's breakpoint event came before the invocation's reply, so
    // it has been handled by the time getValue returns.
    EXPECT_EQ(log->stops.size(), 1u) << "the getter's breakpoint did not stop the host";
    EXPECT_EQ(jvm->JVMState(), VMSuspend);

    // Save mode runs no method of the program: getters, static methods,
    // toString and the wrappers' debug text all say so instead.
    jvm->setSaveMode(true);
    handler->history().clear();
    const std::string notRun = ", and save mode runs no method of the program)";
    const std::vector<std::pair<std::pair<std::string, std::string>, std::string>> saved{
        {{"p.title", ""}, "#p.title: (not evaluated: it needs a call of $title" + notRun + "#\r\np: " + pointText},
        {{"greeting", "Values"}, "greeting: #(not evaluated: it needs a call of greeting" + notRun + "#"},
        {{"arr", ""}, "arr: #(not evaluated: it needs a call of toString" + notRun + "#"},
        {{"v", ""}, "v: #(not evaluated: it needs a call of toDebugString" + notRun + "#"},
        {{"p.x", ""}, "#p.x: 3#\r\np: " + pointText},
    };
    for (const auto& [expr, text] : saved)
        EXPECT_EQ(jvm->getValue(expr.first, expr.second), text) << expr.first;
    EXPECT_EQ(invocations(), 0) << dump();
    jvm->setSaveMode(false);
    EXPECT_EQ(jvm->getValue("greeting", "Values"), "greeting: #hello#");

    // Long values are cut; escaping is not.
    jvm->setMaxValueSize(12);
    EXPECT_EQ(jvm->getValue("longText"), "longText: #012345678901#");
    EXPECT_EQ(jvm->getValue("hashes"), "hashes: #a{~}b{~}c#");
    jvm->setMaxValueSize(512);

    // The program's next stop, right after the evaluations' calls, is
    // reported.
    ASSERT_TRUE(resumeToNextStop()) << "the stop after an evaluation was resumed unreported\n" << dump();
    ASSERT_EQ(lastStop().line, lineAt("@level3"));
    const std::string level2AndMain = "Values.level2(I)I:" + std::to_string(lineAt("@level2")) +
                                      " Values.level1(I)I:" + std::to_string(lineAt("@level1")) +
                                      " Values.main([Ljava/lang/String;)V:" + std::to_string(lineAt("@values-stop") + 1);
    EXPECT_EQ(stack(), "Values.level3(I)I:" + std::to_string(lineAt("@level3")) + " " + level2AndMain);
    EXPECT_EQ(jvm->getStackCount(), 4);

    EXPECT_EQ(jvm->getValue("x"), "x: #-5#");
    ASSERT_TRUE(jvm->PopFrame());
    // The popped frame's locals are gone: the static field of the same name
    // does not stand in for them.
    EXPECT_EQ(jvm->getValue("x"), "");
    EXPECT_EQ(stack(), level2AndMain);
    // Once the host moves the stop to the caller, its locals read.
    auto values = jvm->getClassByName("Values", true);
    ASSERT_NE(values, nullptr);
    auto level2 = values->JMethod("level2(I)I");
    ASSERT_NE(level2, nullptr);
    jvm->GoSilentBreak(jvm->currentThreadID(), values->ClassID, level2->MethodID);
    EXPECT_EQ(jvm->getValue("x"), "x: #-6#");

    // Rendering a thread calls its toString, whose reply refreshes the frame;
    // at a stop inside run() of a Thread subclass that refresh meets `this`,
    // the thread, again: the stop must show as any other.
    ASSERT_TRUE(resumeToStopAt(lineAt("@in-run"))) << dump();
    EXPECT_EQ(lastStop().className, "Worker");
    EXPECT_EQ(jvm->getValue("this"), "this: #Thread[worker,5,main]#");
    EXPECT_EQ(jvm->getValue("rounds"), "rounds: #3#");
    EXPECT_EQ(jvm->getValue("twice"), "twice: #6#");
    const std::string target = jvm->getValue("target.x");
    EXPECT_EQ(target.rfind("#target.x: 3#\r\ntarget: Type: Point - ObjID: ", 0), 0u) << target;
    EXPECT_EQ(stack(), "Worker.run()V:" + std::to_string(lineAt("@in-run")));
    EXPECT_EQ(runToEnd(), 0) << dump();
}

// Locals, fields and statics of each type set at a stop read back as set and
// are what the program prints once it runs on; a field of `this` is set by
// its name alone. What does not fit is refused without any set being sent.
TEST_F(LiveValues, ValuesSetAtAStopReadBackAndTheProgramSeesThem)
{
    const std::string file = "tests/java/SetValues.java";
    jvm->setTargetClassName({"SetValues", "Gauge"});
    jvm->addBreakpoint("SetValues", lineOf(file, "// @set-stop"));
    jvm->addBreakpoint("Gauge", lineOf(file, "// @in-bump"));
    ASSERT_TRUE(launch("SetValues"));
    ASSERT_TRUE(waitStop(0)) << dump();
    auto setsSent = [this] { return sent({"16/2", "9/3", "3/2", "1/11"}); };
    const struct {
        const char* target;
        const char* value;
        std::string readBack; // getValue's text afterwards; "" to skip
    } sets[] = {
        {"i", "42", "i: #42#"}, {"l", "-9000000000", "l: #-9000000000#"}, {"d", "7", "d: #7#"},
        {"f", "2.25", "f: #2.25#"}, {"flag", "true", "flag: #True#"}, {"c", "'Z'", "c: #90#"},
        {"b", "-5", "b: #251#"}, // intended: getValue reads a byte as 0..255
        {"s", "300", "s: #300#"},
        {"text", "\"new \\\"text\\\" #1 \xc3\xa9\\ud83d\\ude00\"", "text: #new \"text\" {~}1 \xc3\xa9\xf0\x9f\x98\x80#"},
        {"g.level", "40", ""}, {"g.ratio", "-1.5", ""}, {"g.name", "null", ""}, {"g.on", "true", ""},
        {"total", "4", "total: #4#"}, {"SetValues.title", "\"after\"", ""},
    };
    for (const auto& s : sets) {
        EXPECT_EQ(jvm->setValue(s.target, s.value), "") << s.target << " = " << s.value << "\n" << dump();
        if (!s.readBack.empty()) {
            EXPECT_EQ(jvm->getValue(s.target), s.readBack) << s.target;
        }
    }
    EXPECT_EQ(jvm->getValue("g.level").substr(0, 14), "#g.level: 40#\r");
    EXPECT_EQ(jvm->getValue("title", "SetValues"), "title: #after#");

    const int before = setsSent();
    const std::pair<const char*, const char*> refused[] = {
        {"i", "3.5"}, {"text", "5"}, {"g", "\"x\""}, {"g.id", "8"}, {"LIMIT", "11"}, {"flag", "yes"}, {"nope", "1"},
    };
    for (const auto& [target, value] : refused)
        EXPECT_NE(jvm->setValue(target, value), "") << target << " = " << value;
    EXPECT_EQ(setsSent(), before) << "a refused value sent a set\n" << dump();
    EXPECT_EQ(jvm->getValue("i"), "i: #42#");

    // On to the stop in the instance method: a field of this by its name.
    ASSERT_TRUE(resumeToNextStop()) << dump();
    EXPECT_EQ(lastStop().className, "Gauge");
    EXPECT_EQ(jvm->setValue("level", "100"), "");
    EXPECT_EQ(jvm->setValue("name", "\"set\""), "");
    EXPECT_EQ(runToEnd(), 0) << dump();
    for (const char* printed : {"locals i=42 l=-9000000000 d=7.0 f=2.25 flag=true c=Z b=-5 s=300 text=new \"text\" #1",
                                "fields level=40 ratio=-1.5 name=null on=true id=7 base=1",
                                "statics total=4 title=after LIMIT=10", "bumped level=101 name=set"})
        EXPECT_NE(log->console.find(printed), std::string::npos) << printed << " in\n" << log->console;
}

// At a stop of the thread that made the previous stop, frame 0's id is
// predicted and read in without a Frames request. An invocation the session
// did not see makes the prediction stale: the VM refuses it, the frame is asked for and
// the value still read; two stops later the step is learned again.
TEST_F(LiveValues, FrameZeroOfTheNextStopIsPredictedAndAStaleOneFallsBack)
{
    jvm->setTargetClassName({"Soak"});
    jvm->addBreakpoint("Soak", lineOf("tests/java/Soak.java", "// @soak-hit"));
    ASSERT_TRUE(launch("Soak"));
    int frames = 0, refused = 0;
    const int token = handler->addPacketObserver([&](const PacketEvent& p) {
        frames += p.direction == PacketEvent::Direction::Sent && p.commandSet == 11 && p.command == 6;
        refused += p.reply && p.errorCode != 0;
    });
    // An invocation the session does not decode (ClassType NewInstance of
    // Soak, sent raw): it resumes the thread, so its frame ids move on.
    auto invokeBehindTheSessionsBack = [&] {
        auto soak = jvm->getClassByName("Soak", true);
        auto init = soak ? soak->JMethod("<init>()V") : nullptr;
        if (!init)
            return false;
        auto m = std::make_shared<JDWPMessage>();
        handler->myMaxSendID += 1;
        m->myID = handler->myMaxSendID;
        m->myCommandSet = CMDSET_ClassType;
        m->myCommand = 4;
        m->myData = be64(static_cast<uint64_t>(soak->ClassID)) + be64(static_cast<uint64_t>(jvm->currentThreadID())) +
                    be64(static_cast<uint64_t>(init->MethodID)) + be32(0) + be32(1);
        auto reply = handler->sendSync(m, 4000);
        return reply && reply->myErrorCode == 0;
    };
    const struct { int frames, refused; bool bumpAfter; } stops[] = {
        {1, 0, false}, // nothing seen yet: asked
        {1, 0, false}, // asked; the step between two stops is learned
        {0, 0, true},  // predicted; then the invocation
        {1, 1, false}, // the prediction is refused: asked, and the step relearned (two resumes)
        {1, 1, false}, // one resume again: refused, asked, relearned
        {0, 0, false}, // predicted
    };
    for (size_t i = 0; i < std::size(stops); ++i) {
        SCOPED_TRACE("stop " + std::to_string(i));
        ASSERT_TRUE(waitStop(i)) << dump();
        frames = refused = 0;
        EXPECT_EQ(jvm->getValue("i"), "i: #" + std::to_string(i) + "#");
        EXPECT_EQ(frames, stops[i].frames) << dump();
        EXPECT_EQ(refused, stops[i].refused) << dump();
        EXPECT_FALSE(jvm->framePredicted()) << "the read confirmed or replaced it";
        if (stops[i].bumpAfter) {
            ASSERT_TRUE(invokeBehindTheSessionsBack()) << dump();
        }
        resume();
    }
    handler->removePacketObserver(token);
}

} // namespace
