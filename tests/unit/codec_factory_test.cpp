// The command builders: command set, command and payload of every builder
// with 8-byte identifiers, the width each identifier takes when the widths
// differ, request context, packet ids, modifier encoding and the cache rule
// of the default exclusion filter.
// The tables of byte literals keep their hand layout:
// clang-format off
#include <functional>
#include <vector>

#include "ScriptedVM.h"
#include "unit_fixtures.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;
using jdwpkrvdbg::testing::be64;
using namespace std::string_literals;

namespace {

using Msg = JDWPMessageFactory::Msg;
using Build = std::function<Msg(JDWPMessageFactory&)>;
// A builder call and its text, for the failure message.
#define B(call) #call, [](JDWPMessageFactory& f) { return f.call; }

constexpr double kBigMethodId = 94346673792336.0; // 0x55cecbfa2550
// Every identifier kind has its own width, so a builder that takes the wrong
// one is seen: object 4, method 8, field 2, frame 6. The reference-type
// width (1) is never used; class and thread group ids take the object width.
// Class 5, thread 6, frame 7, object 9, field 10, thread group 11.
const std::string C5 = "\x00\x00\x00\x05"s, T6 = "\x00\x00\x00\x06"s, FR7 = "\x00\x00\x00\x00\x00\x07"s,
                  OB9 = "\x00\x00\x00\x09"s, F10 = "\x00\x0a"s, G11 = "\x00\x00\x00\x0b"s;
const std::string MBIG = "\x00\x00\x55\xce\xcb\xfa\x25\x50"s;
const std::string INT0 = "\x00\x00\x00\x00"s, INT1 = "\x00\x00\x00\x01"s;

class FactoryTest : public SessionTest {
protected:
    void SetUp() override
    {
        SessionTest::SetUp();
        setWidths(4, 8, 2, 6, 1);
    }
    JDWPMessageFactory& factory() { return *handler->myFactory(); }
};

TEST_F(FactoryTest, EveryBuilderWithEachIdentifierInItsWidth)
{
    const struct {
        const char* name;
        Build build;
        int32_t set, command;
        std::string payload;
    } cases[] = {
        {B(createClassRedefineMessage(5, "\xca\xfe"s)), 1, 18, INT1 + C5 + "\x00\x00\x00\x02\xca\xfe"s},
        {B(createGetSuperClassMessage(5)), 3, 1, C5},
        {B(createGetClassIDBySignatureMessage("LForm1;")), 1, 2, "\x00\x00\x00\x07" "LForm1;"s},
        {B(createGetSignatureMessage(5)), 2, 1, C5}, {B(createGetVersionMessage()), 1, 1, ""},
        {B(createDisposeMessage()), 1, 6, ""}, {B(createGetIDSizesMessage()), 1, 7, ""},
        {B(createGetClassesWithGenericsMessage()), 1, 20, ""},
        {B(createClearEventRequestMessage(EK_BREAKPOINT, 7)), 15, 2, "\x02\x00\x00\x00\x07"s},
        {B(createGetThisMessage(6, 7)), 16, 3, T6 + FR7}, {B(createPopFrameMessage(6, 7)), 16, 4, T6 + FR7},
        {B(createGetFieldValueMessage(9, 10)), 9, 2, OB9 + INT1 + F10},
        {B(createGetStaticFieldValueMessage(5, 10)), 2, 6, C5 + INT1 + F10}, {B(createResumeMessage()), 1, 9, ""},
        {B(createSuspendMessage()), 1, 8, ""},
        {B(createExitMessage()), 1, 10, ""}, // intended: no exit code
        {B(createGetClassesMessage()), 1, 3, ""}, {B(createGetThreadState(6)), 11, 4, T6},
        {B(createGetThreadGroup(6)), 11, 5, T6}, {B(createGetThreadGroupName(11)), 12, 1, G11},
        {B(createGetParentThreadGroup(11)), 12, 2, G11}, {B(createGetThreadsMessage()), 1, 4, ""},
        {B(createGetFieldsMessage(5)), 2, 4, C5}, {B(createGetMethodsMessage(5)), 2, 5, C5},
        {B(createHoldEventsMessage()), 1, 15, ""}, {B(createReleaseEventsMessage()), 1, 16, ""},
        {B(createGetVariableTableMessage(5, kBigMethodId)), 6, 2, C5 + MBIG},
        {B(createGetThreadNameMessage(6)), 11, 1, T6}, {B(createGetLineTableMessage(5, kBigMethodId)), 6, 1, C5 + MBIG},
        {B(createGetValue(6, 7, 3, "I")), 16, 1, T6 + FR7 + "\x00\x00\x00\x01" "\x00\x00\x00\x03" "\x49"s},
        {B(createInvokeMethodMessage(9, 6, 5, kBigMethodId)), 9, 6, OB9 + T6 + C5 + MBIG + INT0 + INT0},
        {B(createInvokeStaticMethodMessage(5, 6, kBigMethodId)), 3, 3, C5 + T6 + MBIG + INT0 + INT0},
        {B(createGetReferenceTypeMessage(9)), 9, 1, OB9}, {B(createGetUTF8StringMessage(9)), 10, 1, OB9},
        {B(createGetFrameMessage(6, 0, 3)), 11, 6, T6 + INT0 + "\x00\x00\x00\x03"s},
        {B(createGetFrameCountMessage(6)), 11, 7, T6},
        {B(createGetValueBySlotMessage(6, 7)), 6, 1, T6 + FR7}, // intended: set 6
        {B(createGetFieldValuesMessage(9, {10, 5})), 9, 2, OB9 + "\x00\x00\x00\x02"s + F10 + "\x00\x05"s},
        {B(createGetStaticFieldValuesMessage(5, {10})), 2, 6, C5 + INT1 + F10},
        {B(createGetValues(6, 7, {{3, "I"}, {0, "Lpkg/Name;"}})), 16, 1,
         T6 + FR7 + "\x00\x00\x00\x02" "\x00\x00\x00\x03" "I" "\x00\x00\x00\x00" "L"s},
        {B(createGetArrayLengthMessage(9)), 13, 1, OB9},
        {B(createGetArrayValuesMessage(9, 240, 20)), 13, 2, OB9 + "\x00\x00\x00\xf0" "\x00\x00\x00\x14"s},
        {B(createSetLocalValueMessage(6, 7, 3, "I\x00\x00\x00\x05"s)), 16, 2,
         T6 + FR7 + INT1 + "\x00\x00\x00\x03" "I\x00\x00\x00\x05"s},
        {B(createSetFieldValueMessage(9, 10, "\x01"s)), 9, 3, OB9 + INT1 + F10 + "\x01"s},
        {B(createSetStaticFieldValueMessage(5, 10, "\x00\x07"s)), 3, 2, C5 + INT1 + F10 + "\x00\x07"s},
        {B(createNewStringMessage("h\xc3\xa9")), 1, 11, "\x00\x00\x00\x03" "h\xc3\xa9"s},
        {B(createDisableCollectionMessage(9)), 9, 7, OB9}, {B(createEnableCollectionMessage(9)), 9, 8, OB9},
    };
    for (const auto& c : cases) {
        Msg m = c.build(factory());
        ASSERT_NE(m, nullptr) << c.name;
        EXPECT_EQ(std::tuple(m->myCommandSet, m->myCommand, m->myFlags), std::tuple(c.set, c.command, 0.0)) << c.name;
        EXPECT_EQ(hex(m->myData), hex(c.payload)) << c.name;
    }
}

TEST_F(FactoryTest, RequestsKeepTheirContextAndTakeTheHandlersPacketIds)
{
    // The context the reply decoders look up through the request: class,
    // method, thread, frame, object. That of the class and method table
    // requests is used by the model's lazy loading (ModelRegistry tests).
    const struct {
        const char* name;
        Build build;
        std::vector<double> context;
    } cases[] = {
        {B(createGetValue(6, 7, 1, "I")), {0, 0, 6, 7, 0}}, {B(createInvokeMethodMessage(9, 6, 5, 8)), {0, 0, 0, 0, 9}},
        {B(createGetFrameCountMessage(6)), {0, 0, 6, 0, 0}},
    };
    for (const auto& c : cases) {
        Msg m = c.build(factory());
        ASSERT_TRUE(m->hasDataContainer()) << c.name;
        const JDWPMessageData& d = *m->myDataContainer();
        EXPECT_EQ((std::vector<double>{d.RequestClassID, d.RequestMethodID, d.RequestThreadID, d.RequestFrameID,
                                       d.RequestObjectID}),
                  c.context)
            << c.name;
    }
    EXPECT_FALSE(factory().createInvokeStaticMethodMessage(5, 6, 8)->hasDataContainer());

    // Packet ids belong to the handler, not the factory (that they count up
    // from 1 is a session test's).
    handler->myMaxSendID = 41;
    EXPECT_EQ(JDWPMessageFactory().createExitMessage()->myID, 42);
    EXPECT_EQ(handler->myMaxSendID, 42);
}

// A request's head, the count, location, step, thread and class exclusion
// modifiers, and the default ones behind a request's own, are pinned by the
// bytes of the breakpoint and step requests the model sends
// (ModelBreakpoints.RequestBytes, EventDecoders).
JDWPModifier modifier(ModifierKind kind, const std::string& text, double number = 0, bool caught = false)
{
    JDWPModifier m;
    m.Kind = kind;
    m.RefString = text;
    m.RefLong = number;
    m.RefCaught = caught;
    return m;
}

TEST_F(FactoryTest, EventRequestsEncodeTheOtherModifierKinds)
{
    const struct {
        const char* name;
        JDWPModifier mod;
        std::string bytes;
    } cases[] = {
        {"class match", modifier(MK_ClassMatch, "Form1"), "\x05\x00\x00\x00\x05" "Form1"s},
        // The exception class is always 0 (any), whatever RefLong says.
        {"exception", modifier(MK_ExceptionOnly, "", 99, true), "\x08"s + INT0 + "\x01\x00"s},
        {"source name", modifier(MK_SourceNameMatch, "*.java"), "\x0c\x00\x00\x00\x06" "*.java"s},
        {"unknown kind: the kind byte alone", modifier(static_cast<ModifierKind>(4), "", 1), "\x04"s},
    };
    for (const auto& c : cases) {
        JDWPDefaultFilter f = factory().getModifier({c.mod}, 1);
        EXPECT_EQ(f.FilterCount, 1) << c.name;
        EXPECT_EQ(hex(f.FilterString), hex(c.bytes)) << c.name;
    }

    // No modifiers, and a count that overstates the array.
    EXPECT_EQ(hex(factory().createGetEventRequestMessageII(EK_THREAD_START, JDWPSuspendPolicy::SS_NONE, {}, 0)->myData),
              hex("\x06\x00\x00\x00\x00\x00"s));
    JDWPDefaultFilter over = factory().getModifier({cases[2].mod}, 5);
    EXPECT_EQ(over.FilterCount, 1);
    EXPECT_EQ(hex(over.FilterString), hex(cases[2].bytes));
}

TEST_F(FactoryTest, ExclusionFilterIsCachedOnlyWhileTheStampIsZero)
{
    jvm()->setExcludeClassName({"java.*", "Form"});

    // Stamp 0: the initial, empty cache; no exclusions are sent yet.
    jvm()->myLastCleanupStamp = 0;
    JDWPDefaultFilter initial = factory().getExcludeModifier();
    EXPECT_EQ(std::tuple(initial.FilterCount, initial.FilterString), std::tuple(0, ""s));

    // Any other stamp: rebuilt from the session's exclusions on every call.
    jvm()->myLastCleanupStamp = 5;
    jvm()->setExcludeClassName({"sun.*"});
    JDWPDefaultFilter rebuilt = factory().getExcludeModifier();
    EXPECT_EQ(std::tuple(rebuilt.FilterCount, hex(rebuilt.FilterString), rebuilt.FilterStamp),
              std::tuple(1, hex("\x06\x00\x00\x00\x05" "sun.*"s), 0));
}

} // namespace
