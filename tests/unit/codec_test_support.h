// Shared pieces of the codec and decoder unit tests: a fresh current handler
// with 8-byte identifiers (alone, so that whatever a decoder asks is refused
// at once, or with a connected scripted transport, so that sent commands are
// remembered for reply matching), and a hex rendering of byte strings for
// readable failure messages.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include "ScriptedTransport.h"

namespace codec_test {

using namespace std::string_literals;

inline std::string hex(const std::string& bytes)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : bytes) {
        if (!out.empty())
            out.push_back(' ');
        out += {digits[c >> 4], digits[c & 15]};
    }
    return out;
}

class HandlerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        handler = jdwpkrvdbg::JDWPHandler::create();
        jvm = handler->myJVM();
        setWidths(8, 8, 8, 8, 8);
    }
    void TearDown() override { jdwpkrvdbg::setCurrentHandler(nullptr); }
    void setWidths(int16_t objectId, int16_t methodId, int16_t fieldId, int16_t frameId, int16_t refTypeId)
    {
        jvm->SIZE_ObjectID = objectId;
        jvm->SIZE_MethodID = methodId;
        jvm->SIZE_FieldID = fieldId;
        jvm->SIZE_FrameID = frameId;
        jvm->SIZE_RefTypeID = refTypeId;
    }

    std::shared_ptr<jdwpkrvdbg::JDWPHandler> handler;
    std::shared_ptr<jdwpkrvdbg::JXMachine> jvm;
};

class SessionTest : public HandlerTest {
protected:
    void SetUp() override
    {
        HandlerTest::SetUp();
        transport->connectedFlag = true;
        handler->attachTransport(transport);
    }

    std::shared_ptr<jdwpkrvdbg::testing::ScriptedTransport> transport =
        std::make_shared<jdwpkrvdbg::testing::ScriptedTransport>();
};

} // namespace codec_test
