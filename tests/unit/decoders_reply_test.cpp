// Reply decoders: golden payloads per decoder family (single fields, strings,
// identifier widths, model tables, lists), the deliberate width choices, the
// owning-class lookup through the request. Cut, garbage and huge-count
// payloads are the fuzz target's (fuzz/corpus/replies/hostile-*).
// The tables of byte literals keep their hand layout:
// clang-format off
#include <tuple>

#include "unit_fixtures.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace jdwpkrvdbg {
namespace {

using namespace std::string_literals;
using D = JDWPMessageData;

class ReplyDecoders : public HandlerTest {
protected:
    void SetUp() override
    {
        HandlerTest::SetUp();
        cls_ = registerClass(0x10, "Lpkg/Name;");
        addMethod(cls_, 0x31, "run", "()V");
    }
    // The reply whose request named class and method, as the routing hands it.
    static D::MsgRef replyTo(double classID, double methodID = 0)
    {
        auto request = std::make_shared<JDWPMessage>();
        request->myDataContainer()->RequestClassID = classID;
        request->myDataContainer()->RequestMethodID = methodID;
        auto reply = std::make_shared<JDWPMessage>();
        reply->myRequestMessage = request;
        return reply;
    }

    std::shared_ptr<JXClass> cls_;
};

TEST_F(ReplyDecoders, SingleFieldDecodersFillTheirProperty)
{
    const std::string found = "\x00\x00\x00\x01\x01\x00\x00\x00\x00\x00\x00\x00\x33\x00\x00\x00\x07"s;
    const auto refType = &D::processReferenceType, bySignature = &D::processGetClassIDBySignatureMessage;
    const struct {
        const char* name;
        bool (D::*decode)(const std::string&);
        std::string payload;
        double D::*field;
        double expected;
    } cases[] = {
        {"reference type: tag discarded", refType, "\x07\x00\x00\x00\x00\x00\x00\x00\x01"s, &D::RequestClassTypeTag, 0},
        {"frame count", &D::processFrameCount, "\x00\x00\x00\x03"s, &D::RequestFrameCount, 3},
        {"by signature: none is -1", bySignature, "\x00\x00\x00\x00"s, &D::RequestClassID, -1},
        {"by signature: the first of two is kept", bySignature,
         found + "\x01\x00\x00\x00\x00\x00\x00\x00\x44\x00\x00\x00\x07"s, &D::RequestClassID, 51},
    };
    for (const auto& c : cases) {
        D data;
        (data.*c.decode)(c.payload);
        EXPECT_EQ(data.*c.field, c.expected) << c.name;
    }

    // Intended asymmetry: with 4-byte object ids and 8-byte type ids the
    // reference type is still read in 4 bytes.
    jvm()->SIZE_ObjectID = 4;
    D narrow;
    narrow.processReferenceType("\x01\x00\x00\x00\x2a\xff\xff\xff\xff"s);
    EXPECT_EQ(narrow.RequestClassID, 42);
}

TEST_F(ReplyDecoders, OnlyTheStringValueConvertsModifiedUtf8AndTheVersionIsStored)
{
    // The VM's modified UTF-8 writes NUL as C0 80.
    const std::string modified = "\x00\x00\x00\x04" "a\xc0\x80z"s;
    D raw, converted;
    raw.processGetSignature(modified);
    raw.processThreadName(modified);
    converted.processUTF8String(modified);
    EXPECT_EQ(std::tuple(raw.RequestUTF8String, raw.RequestThreadName, converted.RequestUTF8String),
              std::tuple("a\xc0\x80z"s, "a\xc0\x80z"s, "a\x00z"s));

    // (Its announcement is checked with the session.)
    D().processVersion("\x00\x00\x00\x04" "desc" "\x00\x00\x00\x11\x00\x00\x00\x00"
                       "\x00\x00\x00\x07" "17.0.15" "\x00\x00\x00\x08" "OpenJ\xc3\xa9K"s);
    EXPECT_EQ(std::tuple(jvm()->VMDescription, jvm()->VMMajor, jvm()->VMVersion, jvm()->VMName),
              std::tuple("desc"s, 17.0, "17.0.15"s, "OpenJ\xc3\xa9K"s));
}

TEST_F(ReplyDecoders, ListsKeepReplyOrderAndTheirWidths)
{
    // Frames: frame width 4, location with object width 8 and method width 4.
    jvm()->SIZE_FrameID = 4;
    jvm()->SIZE_MethodID = 4;
    D frames;
    frames.processFrameList("\x00\x00\x00\x02"
                            "\x00\x00\x00\x0a" "\x01\x00\x00\x00\x00\x00\x00\x00\x10\x00\x00\x00\x05"
                            "\x00\x00\x00\x00\x00\x00\x00\x07"
                            "\x00\x00\x00\x0b" "\x01\x00\x00\x00\x00\x00\x00\x00\x11\x00\x00\x00\x06"
                            "\x00\x00\x00\x00\x00\x00\x00\x09"s);
    ASSERT_EQ(frames.requestFrame().size(), 2u);
    const auto& [f0, f1] = std::tie(frames.requestFrame()[0], frames.requestFrame()[1]);
    EXPECT_EQ(std::tuple(f0.FrameID, f0.FrameLocation.ClassID, f0.FrameLocation.MethodID, f0.FrameLocation.Index),
              std::tuple(10.0, 16.0, 5.0, 7.0));
    EXPECT_EQ(std::tuple(f1.FrameID, f1.FrameLocation.Index), std::tuple(11.0, 9.0));

    // Classes take the reference-type width.
    jvm()->SIZE_RefTypeID = 4;
    D classes;
    classes.processAllClasses("\x00\x00\x00\x02"
                              "\x01\x00\x00\x00\x21\x00\x00\x00\x03LA;\x00\x00\x00\x07"
                              "\x03\x00\x00\x00\x22\x00\x00\x00\x03[[I\x00\x00\x00\x04"s);
    ASSERT_EQ(classes.allClasses().size(), 2u);
    const auto& [c0, c1] = std::tie(classes.allClasses()[0], classes.allClasses()[1]);
    EXPECT_EQ(std::tuple(c0.ClassID, c0.ClassSignature), std::tuple(33.0, "LA;"s));
    EXPECT_EQ(std::tuple(c1.ClassTypeTag, c1.ClassID, c1.ClassStatus), std::tuple(3.0, 34.0, 4.0));
    EXPECT_FALSE(jvm()->getClassByID(33)) << "made, not registered";
}

// Methods, line tables and variable tables are decoded into their class and
// method by the model's lazy loading (ModelRegistry tests) and against a
// real VM; the field decoder's width is the one choice left to pin here.
TEST_F(ReplyDecoders, FieldsGoToTheRequestedClassWithTheMethodIdWidth)
{
    // Intended: the field id is read with the method-id width (4 here),
    // not the field-id width (8).
    jvm()->SIZE_MethodID = 4;
    ASSERT_TRUE(D().processFields("\x00\x00\x00\x01" "\x00\x00\x00\x41" "\x00\x00\x00\x05" "count"
                                  "\x00\x00\x00\x01I" "\x00\x00\x00\x08"s,
                                  replyTo(0x10)));
    auto count = cls_->JField("count");
    ASSERT_TRUE(count);
    EXPECT_EQ(std::tuple(count->FieldID, count->FieldSignature, count->FieldBits), std::tuple(65.0, "I"s, 8.0));
}

TEST_F(ReplyDecoders, TableDecodersWithoutTheirOwnerReadNothing)
{
    const std::string methods = "\x00\x00\x00\x01\x00\x00\x00\x00\x00\x00\x00\x77"
                                "\x00\x00\x00\x01x\x00\x00\x00\x03()V\x00\x00\x00\x00"s;
    const std::pair<const char*, D::MsgRef> cases[] = {
        {"unknown class", replyTo(0x99, 0x31)}, {"unknown method", replyTo(0x10, 0x98)},
        {"no owner", nullptr}, {"owner without request", std::make_shared<JDWPMessage>()},
    };
    for (const auto& [name, owner] : cases) {
        SCOPED_TRACE(name);
        EXPECT_FALSE(D().processLineTable("\x00\x00\x00\x00"s, owner));
        EXPECT_FALSE(D().processVariableTable("\x00\x00\x00\x00"s, owner));
        if (std::string(name) != "unknown method") {
            EXPECT_FALSE(D().processMethods(methods, owner));
            EXPECT_FALSE(D().processFields(methods, owner));
        }
    }
    EXPECT_FALSE(cls_->JMethodID(0x77));
}

} // namespace
} // namespace jdwpkrvdbg
