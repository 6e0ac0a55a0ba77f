// Shared pieces of the decoder tests: byte literals with embedded zeros, a
// handler without a VM, and a session opened against the scripted VM (socket framing, standard 8-byte
// ids) whose clock moves on with every read, so a request that nobody
// answers gives up after a few polls instead of four real seconds.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include "ScriptedVM.h"

namespace jdwpkrvdbg::decoder_tests {

template <size_t N>
std::string bytes(const char (&literal)[N])
{
    return std::string(literal, N - 1);
}

inline void setAllWidths(JXMachine& jvm, int16_t width)
{
    for (auto* size : {&jvm.SIZE_FieldID, &jvm.SIZE_MethodID, &jvm.SIZE_ObjectID, &jvm.SIZE_RefTypeID,
                       &jvm.SIZE_FrameID})
        *size = width;
}

// A fresh handler with 8-byte ids and no VM: whatever a decoder asks is
// refused at once.
class FreshHandler : public ::testing::Test {
protected:
    void SetUp() override
    {
        handler_ = JDWPHandler::create();
        jvm_ = handler_->myJVM();
        setAllWidths(*jvm_, 8);
    }
    void TearDown() override
    {
        jvm_.reset();
        handler_.reset();
        setCurrentHandler(nullptr);
    }
    std::shared_ptr<JDWPHandler> handler_;
    std::shared_ptr<JXMachine> jvm_;
};

class ScriptedSession : public ::testing::Test {
protected:
    void SetUp() override
    {
        handler_ = JDWPHandler::create();
        jvm_ = handler_->myJVM();
        transport_ = std::make_shared<testing::ScriptedTransport>();
        vm_ = std::make_unique<testing::ScriptedVM>(transport_);
        vm_->installDefaults();
        handler_->setTransportFactory([t = transport_] { return t; });
        ASSERT_TRUE(handler_->startVM("", "", "", false, false, 0, "127.0.0.1", "5005", true));
        MessagePump::instance().pumpUntil([this] { return !vm_->commandsOf(1, 9).empty(); }, 2000);
        ASSERT_FALSE(vm_->commandsOf(1, 9).empty()) << "the opening sequence did not finish";
        // Let the Resume reply pass, so the VM counts as running.
        MessagePump::instance().pumpUntil([this] { return jvm_->JVMState() == VMRunning; }, 2000);
        vm_->clearCommands();
        setAllWidths(*jvm_, 8);
        setTickSource([this]() { return ticks_ += 50; });
    }
    void TearDown() override
    {
        jvm_->setEvents(nullptr);
        vm_.reset();
        handler_->attachTransport(nullptr);
        jvm_.reset();
        handler_.reset();
        setCurrentHandler(nullptr);
        setTickSource(nullptr);
    }

    uint32_t ticks_ = 100000;
    std::shared_ptr<JDWPHandler> handler_;
    std::shared_ptr<JXMachine> jvm_;
    std::shared_ptr<testing::ScriptedTransport> transport_;
    std::unique_ptr<testing::ScriptedVM> vm_;
};

} // namespace jdwpkrvdbg::decoder_tests
