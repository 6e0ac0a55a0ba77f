// Shared pieces of the codec unit tests: a fixture that gives each test a
// fresh current handler with a connected scripted transport (so sent
// commands are remembered for reply matching), and a hex rendering of byte
// strings for readable failure messages.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "ScriptedTransport.h"
#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/session/JDWPHandler.h"
#include "jdwpkrvdbg/session/modMain.h"

namespace codec_test {

using namespace std::string_literals;

inline std::string hex(const std::string& bytes)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    for (size_t i = 0; i < bytes.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(bytes[i]);
        if (i)
            out.push_back(' ');
        out.push_back(digits[c >> 4]);
        out.push_back(digits[c & 15]);
    }
    return out;
}

class SessionTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        handler = jdwpkrvdbg::JDWPHandler::create();
        transport = std::make_shared<jdwpkrvdbg::testing::ScriptedTransport>();
        transport->connectedFlag = true;
        handler->attachTransport(transport);
        setWidths(8, 8, 8, 8, 8);
    }

    void TearDown() override
    {
        jdwpkrvdbg::setCurrentHandler(nullptr);
        handler.reset();
    }

    void setWidths(int objectId, int methodId, int fieldId, int frameId, int refTypeId)
    {
        auto jvm = handler->myJVM();
        jvm->SIZE_ObjectID = static_cast<int16_t>(objectId);
        jvm->SIZE_MethodID = static_cast<int16_t>(methodId);
        jvm->SIZE_FieldID = static_cast<int16_t>(fieldId);
        jvm->SIZE_FrameID = static_cast<int16_t>(frameId);
        jvm->SIZE_RefTypeID = static_cast<int16_t>(refTypeId);
    }

    std::shared_ptr<jdwpkrvdbg::JDWPHandler> handler;
    std::shared_ptr<jdwpkrvdbg::testing::ScriptedTransport> transport;
};

} // namespace codec_test
