// The command builders: command set, command and payload of every builder
// with 8-byte identifiers, the width each identifier takes when the widths
// differ, request context, packet ids, modifier encoding and the cache rule
// of the default exclusion filter.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "codec_test_support.h"
#include "jdwpkrvdbg/protocol/ByteStrings.h"
#include "jdwpkrvdbg/protocol/JDWPMessage.h"
#include "jdwpkrvdbg/protocol/JDWPMessageData.h"
#include "jdwpkrvdbg/protocol/JDWPMessageFactory.h"

using namespace jdwpkrvdbg;
using codec_test::hex;
using namespace std::string_literals;

namespace {

using Msg = JDWPMessageFactory::Msg;
using Build = std::function<Msg(JDWPMessageFactory&)>;

constexpr double kBigMethodId = 94346673792336.0; // 0x55cecbfa2550

// Identifiers used in the tables, in 8-byte form.
const std::string C5 = "\x00\x00\x00\x00\x00\x00\x00\x05"s;  // class 5
const std::string T6 = "\x00\x00\x00\x00\x00\x00\x00\x06"s;  // thread 6
const std::string FR7 = "\x00\x00\x00\x00\x00\x00\x00\x07"s; // frame 7
const std::string OB9 = "\x00\x00\x00\x00\x00\x00\x00\x09"s; // object 9
const std::string F10 = "\x00\x00\x00\x00\x00\x00\x00\x0a"s; // field 10
const std::string G11 = "\x00\x00\x00\x00\x00\x00\x00\x0b"s; // thread group 11
const std::string MBIG = "\x00\x00\x55\xce\xcb\xfa\x25\x50"s;
const std::string INT0 = "\x00\x00\x00\x00"s;
const std::string INT1 = "\x00\x00\x00\x01"s;

class FactoryTest : public codec_test::SessionTest {
protected:
    JDWPMessageFactory& factory() { return *handler->myFactory(); }
};

TEST_F(FactoryTest, EveryBuilderWithEightByteIds)
{
    struct Case {
        const char* name;
        Build build;
        int32_t set, command;
        std::string payload;
    };
    const Case cases[] = {
        {"ClassRedefine", [](auto& f) { return f.createClassRedefineMessage(5, "\xca\xfe"s); }, 1, 18,
         INT1 + C5 + "\x00\x00\x00\x02\xca\xfe"s},
        {"GetSuperClass", [](auto& f) { return f.createGetSuperClassMessage(5); }, 3, 1, C5},
        {"GetClassIDBySignature", [](auto& f) { return f.createGetClassIDBySignatureMessage("LForm1;"); }, 1, 2,
         "\x00\x00\x00\x07" "LForm1;"s},
        {"GetSignature", [](auto& f) { return f.createGetSignatureMessage(5); }, 2, 1, C5},
        {"GetVersion", [](auto& f) { return f.createGetVersionMessage(); }, 1, 1, ""},
        {"Dispose", [](auto& f) { return f.createDisposeMessage(); }, 1, 6, ""},
        {"GetIDSizes", [](auto& f) { return f.createGetIDSizesMessage(); }, 1, 7, ""},
        {"GetClassesWithGenerics", [](auto& f) { return f.createGetClassesWithGenericsMessage(); }, 1, 20, ""},
        {"ClearEventRequest", [](auto& f) { return f.createClearEventRequestMessage(EK_BREAKPOINT, 7); }, 15, 2,
         "\x02\x00\x00\x00\x07"s},
        {"GetThis", [](auto& f) { return f.createGetThisMessage(6, 7); }, 16, 3, T6 + FR7},
        {"PopFrame", [](auto& f) { return f.createPopFrameMessage(6, 7); }, 16, 4, T6 + FR7},
        {"GetFieldValue", [](auto& f) { return f.createGetFieldValueMessage(9, 10); }, 9, 2, OB9 + INT1 + F10},
        {"GetStaticFieldValue", [](auto& f) { return f.createGetStaticFieldValueMessage(5, 10); }, 2, 6,
         C5 + INT1 + F10},
        {"Resume", [](auto& f) { return f.createResumeMessage(); }, 1, 9, ""},
        {"Suspend", [](auto& f) { return f.createSuspendMessage(); }, 1, 8, ""},
        {"Exit (no exit code, intended)", [](auto& f) { return f.createExitMessage(); }, 1, 10, ""},
        {"GetClasses", [](auto& f) { return f.createGetClassesMessage(); }, 1, 3, ""},
        {"GetThreadState", [](auto& f) { return f.createGetThreadState(6); }, 11, 4, T6},
        {"GetThreadGroup", [](auto& f) { return f.createGetThreadGroup(6); }, 11, 5, T6},
        {"GetThreadGroupName", [](auto& f) { return f.createGetThreadGroupName(11); }, 12, 1, G11},
        {"GetParentThreadGroup", [](auto& f) { return f.createGetParentThreadGroup(11); }, 12, 2, G11},
        {"GetThreads", [](auto& f) { return f.createGetThreadsMessage(); }, 1, 4, ""},
        {"GetFields", [](auto& f) { return f.createGetFieldsMessage(5); }, 2, 4, C5},
        {"GetMethods", [](auto& f) { return f.createGetMethodsMessage(5); }, 2, 5, C5},
        {"HoldEvents", [](auto& f) { return f.createHoldEventsMessage(); }, 1, 15, ""},
        {"ReleaseEvents", [](auto& f) { return f.createReleaseEventsMessage(); }, 1, 16, ""},
        {"GetVariableTable", [](auto& f) { return f.createGetVariableTableMessage(5, kBigMethodId); }, 6, 2,
         C5 + MBIG},
        {"GetThreadName", [](auto& f) { return f.createGetThreadNameMessage(6); }, 11, 1, T6},
        {"GetLineTable", [](auto& f) { return f.createGetLineTableMessage(5, kBigMethodId); }, 6, 1, C5 + MBIG},
        {"GetValue", [](auto& f) { return f.createGetValue(6, 7, 3, "I"); }, 16, 1,
         T6 + FR7 + "\x00\x00\x00\x01" "\x00\x00\x00\x03" "\x49"s},
        {"InvokeMethod", [](auto& f) { return f.createInvokeMethodMessage(9, 6, 5, kBigMethodId); }, 9, 6,
         OB9 + T6 + C5 + MBIG + INT0 + INT0},
        {"InvokeStaticMethod", [](auto& f) { return f.createInvokeStaticMethodMessage(5, 6, kBigMethodId); }, 3,
         3, C5 + T6 + MBIG + INT0 + INT0},
        {"GetReferenceType", [](auto& f) { return f.createGetReferenceTypeMessage(9); }, 9, 1, OB9},
        {"GetUTF8String", [](auto& f) { return f.createGetUTF8StringMessage(9); }, 10, 1, OB9},
        {"GetFrame", [](auto& f) { return f.createGetFrameMessage(6, 0, 3); }, 11, 6,
         T6 + INT0 + "\x00\x00\x00\x03"s},
        {"GetFrameCount", [](auto& f) { return f.createGetFrameCountMessage(6); }, 11, 7, T6},
        {"GetValueBySlot (set 6, intended)", [](auto& f) { return f.createGetValueBySlotMessage(6, 7); }, 6, 1,
         T6 + FR7},
    };
    for (const Case& c : cases) {
        Msg m = c.build(factory());
        ASSERT_NE(m, nullptr) << c.name;
        EXPECT_EQ(m->myCommandSet, c.set) << c.name;
        EXPECT_EQ(m->myCommand, c.command) << c.name;
        EXPECT_EQ(m->myFlags, 0) << c.name;
        EXPECT_EQ(hex(m->myData), hex(c.payload)) << c.name;
    }
}

TEST_F(FactoryTest, EachIdentifierTakesItsOwnWidthAndRequestsKeepTheirContext)
{
    // Object 4, method 8, field 2, frame 6; the reference-type width (1) is
    // never used, class ids take the object width.
    setWidths(4, 8, 2, 6, 1);
    EXPECT_EQ(hex(factory().createGetValue(6, 7, 3, "I")->myData),
              hex("\x00\x00\x00\x06" "\x00\x00\x00\x00\x00\x07" "\x00\x00\x00\x01" "\x00\x00\x00\x03" "\x49"s));
    EXPECT_EQ(hex(factory().createGetFieldValueMessage(9, 10)->myData),
              hex("\x00\x00\x00\x09" "\x00\x00\x00\x01" "\x00\x0a"s));
    EXPECT_EQ(hex(factory().createInvokeStaticMethodMessage(5, 6, kBigMethodId)->myData),
              hex("\x00\x00\x00\x05" "\x00\x00\x00\x06"s + MBIG + INT0 + INT0));
    // All four bytes: a 64-bit VM's method id keeps only its low bytes.
    setWidths(4, 4, 4, 4, 4);
    EXPECT_EQ(hex(factory().createGetVariableTableMessage(5, kBigMethodId)->myData),
              hex("\x00\x00\x00\x05" "\xcb\xfa\x25\x50"s));

    // The context the reply decoders look up through the request.
    struct Context {
        double classID, methodID, threadID, frameID, objectID;
    };
    const struct {
        const char* name;
        Build build;
        Context expected;
    } cases[] = {
        {"GetMethods", [](auto& f) { return f.createGetMethodsMessage(5); }, {5, 0, 0, 0, 0}},
        {"GetLineTable", [](auto& f) { return f.createGetLineTableMessage(5, 8); }, {5, 8, 0, 0, 0}},
        {"GetValue", [](auto& f) { return f.createGetValue(6, 7, 1, "I"); }, {0, 0, 6, 7, 0}},
        {"InvokeMethod", [](auto& f) { return f.createInvokeMethodMessage(9, 6, 5, 8); }, {0, 0, 0, 0, 9}},
        {"GetFrameCount", [](auto& f) { return f.createGetFrameCountMessage(6); }, {0, 0, 6, 0, 0}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Msg m = c.build(factory());
        ASSERT_TRUE(m->hasDataContainer());
        const JDWPMessageData& d = *m->myDataContainer();
        EXPECT_EQ((std::vector<double>{d.RequestClassID, d.RequestMethodID, d.RequestThreadID, d.RequestFrameID,
                                       d.RequestObjectID}),
                  (std::vector<double>{c.expected.classID, c.expected.methodID, c.expected.threadID,
                                       c.expected.frameID, c.expected.objectID}));
    }
    EXPECT_FALSE(factory().createInvokeStaticMethodMessage(5, 6, 8)->hasDataContainer());

    // Packet ids count up from 1 and belong to the handler, not the factory.
    handler->myMaxSendID = 0;
    EXPECT_EQ(factory().createGetVersionMessage()->myID, 1);
    handler->myMaxSendID = 41;
    EXPECT_EQ(factory().createGetSuperClassMessage(5)->myID, 42);
    JDWPMessageFactory other;
    EXPECT_EQ(other.createExitMessage()->myID, 43);
    EXPECT_EQ(handler->myMaxSendID, 43);
}

TEST_F(FactoryTest, EventRequestsEncodeEveryModifierKind)
{
    auto modifier = [](ModifierKind kind) {
        JDWPModifier m;
        m.Kind = kind;
        return m;
    };
    JDWPModifier count = modifier(MK_Count);
    count.RefLong = 3;
    JDWPModifier match = modifier(MK_ClassMatch);
    match.RefString = "Form1";
    JDWPModifier exclude = modifier(MK_ClassExclude);
    exclude.RefString = "java.*";
    JDWPModifier location = modifier(MK_LocationOnly);
    location.RefLocation.ClassTypeTag = TT_CLASS;
    location.RefLocation.ClassID = 5;
    location.RefLocation.MethodID = kBigMethodId;
    location.RefLocation.Index = 16;
    JDWPModifier exception = modifier(MK_ExceptionOnly);
    exception.RefLong = 99; // not used: the exception class is always 0 (any)
    exception.RefCaught = true;
    exception.RefUncaught = false;
    JDWPModifier step = modifier(MK_Step);
    step.RefStep.threadID = 6;
    step.RefStep.StepSize = JDWPStepSize::SS_LINE;
    step.RefStep.stepDepth = SD_OUT;
    JDWPModifier source = modifier(MK_SourceNameMatch);
    source.RefString = "*.java";
    JDWPModifier unknown = modifier(static_cast<ModifierKind>(3));
    unknown.RefLong = 1;

    struct Case {
        const char* name;
        JDWPModifier mod;
        std::string bytes;
    };
    const Case cases[] = {
        {"count", count, "\x01\x00\x00\x00\x03"s},
        {"class match", match, "\x05\x00\x00\x00\x05" "Form1"s},
        {"class exclude", exclude, "\x06\x00\x00\x00\x06" "java.*"s},
        {"location", location, "\x07\x01"s + C5 + MBIG + "\x00\x00\x00\x00\x00\x00\x00\x10"s},
        {"exception", exception, "\x08"s + std::string(8, '\0') + "\x01\x00"s},
        {"step", step, "\x0a"s + T6 + "\x00\x00\x00\x01" "\x00\x00\x00\x02"s},
        {"source name", source, "\x0c\x00\x00\x00\x06" "*.java"s},
        {"unknown kind: the kind byte alone", unknown, "\x03"s},
    };
    for (const Case& c : cases) {
        JDWPDefaultFilter f = factory().getModifier({c.mod}, 1);
        EXPECT_EQ(f.FilterCount, 1) << c.name;
        EXPECT_EQ(hex(f.FilterString), hex(c.bytes)) << c.name;
    }

    // The description's example.
    auto prepare = factory().createGetEventRequestMessageII(EK_CLASS_PREPARE, JDWPSuspendPolicy::SS_All, {match}, 1);
    EXPECT_EQ(prepare->myCommand, ER_SET);
    EXPECT_EQ(hex(prepare->myData), hex("\x08\x02\x00\x00\x00\x01\x05\x00\x00\x00\x05" "Form1"s));

    // Own modifiers first, then the default ones; the count covers both.
    JDWPDefaultFilter defaults;
    defaults.FilterCount = 2;
    defaults.FilterString = "<two encoded>";
    auto stepRequest = factory().createGetEventRequestMessage(EK_SINGLE_STEP, JDWPSuspendPolicy::SS_EVENT_THREAD,
                                                              {step, count}, 2, defaults);
    EXPECT_EQ(hex(stepRequest->myData),
              hex("\x01\x01\x00\x00\x00\x04"s + cases[5].bytes + cases[0].bytes + "<two encoded>"));

    // No modifiers, and a count that overstates the array.
    EXPECT_EQ(hex(factory().createGetEventRequestMessageII(EK_THREAD_START, JDWPSuspendPolicy::SS_NONE, {}, 0)->myData),
              hex("\x06\x00\x00\x00\x00\x00"s));
    JDWPDefaultFilter over = factory().getModifier({count}, 5);
    EXPECT_EQ(over.FilterCount, 1);
    EXPECT_EQ(hex(over.FilterString), hex(cases[0].bytes));
}

TEST_F(FactoryTest, ExclusionFilterIsCachedOnlyWhileTheStampIsZero)
{
    auto jvm = handler->myJVM();
    jvm->setExcludeClassName({"java.*", "Form"});

    // Stamp 0: the initial, empty cache; no exclusions are sent yet.
    jvm->myLastCleanupStamp = 0;
    JDWPDefaultFilter initial = factory().getExcludeModifier();
    EXPECT_EQ(initial.FilterCount, 0);
    EXPECT_TRUE(initial.FilterString.empty());

    // Any other stamp: rebuilt from the session's exclusions on every call.
    jvm->myLastCleanupStamp = 5;
    auto fresh = [&] {
        auto mods = jvm->getExcludeModifier();
        return factory().getModifier(mods, static_cast<int32_t>(mods.size()));
    };
    JDWPDefaultFilter built = factory().getExcludeModifier();
    JDWPDefaultFilter expected = fresh();
    EXPECT_EQ(built.FilterCount, expected.FilterCount);
    EXPECT_EQ(hex(built.FilterString), hex(expected.FilterString));
    EXPECT_EQ(built.FilterStamp, 0);

    jvm->setExcludeClassName({"sun.*"});
    JDWPDefaultFilter rebuilt = factory().getExcludeModifier();
    EXPECT_EQ(hex(rebuilt.FilterString), hex(fresh().FilterString));
}

} // namespace
