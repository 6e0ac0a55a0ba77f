// The fixture of every unit test that needs a session: a fresh current
// handler with 8-byte identifiers, a scripted transport with a scripted VM
// on it, and a recorder of the host events. Variants differ only in how far
// they set it up: HandlerTest attaches nothing (whatever a decoder asks is
// refused at once), SessionTest attaches the transport connected (sent
// commands are remembered for reply matching), ModelTest runs a real opening
// against the scripted VM on a clock that moves 10 ms per reading, so a
// time-out never waits for real.
#pragma once

#include <gtest/gtest.h>

#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "EventLog.h"
#include "ScriptedVM.h"

namespace jdwpkrvdbg::testing {

using namespace std::string_literals;

// Bytes as hex pairs, for readable failure messages.
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

// A line table as the decoder would hand it over: (code index, line) pairs.
inline JDWPJLineTable lineTable(const std::vector<std::pair<double, double>>& lines)
{
    JDWPJLineTable t;
    for (const auto& [index, line] : lines)
        t.Lines.push_back({index, line});
    t.LineCount = static_cast<double>(lines.size());
    return t;
}

class HandlerTest : public ::testing::Test {
public:
    void SetUp() override
    {
        handler = JDWPHandler::create();
        setWidths(8, 8, 8, 8, 8);
        vm = std::make_unique<ScriptedVM>(transport);
        jvm()->setEvents(log);
        handler->setTransportFactory([t = transport] { return std::static_pointer_cast<JDWPCon>(t); });
    }
    void TearDown() override
    {
        vm.reset();
        handler->attachTransport(nullptr);
        handler.reset();
        setCurrentHandler(nullptr);
        setTickSource(nullptr);
    }

    std::shared_ptr<JXMachine> jvm() { return handler->myJVM(); }
    void setWidths(int16_t objectId, int16_t methodId, int16_t fieldId, int16_t frameId, int16_t refTypeId)
    {
        jvm()->SIZE_ObjectID = objectId;
        jvm()->SIZE_MethodID = methodId;
        jvm()->SIZE_FieldID = fieldId;
        jvm()->SIZE_FrameID = frameId;
        jvm()->SIZE_RefTypeID = refTypeId;
    }
    size_t countOf(int set, int cmd) const { return vm->commandsOf(set, cmd).size(); }
    // The payloads of the commands (set, cmd) sent, in order.
    std::vector<std::string> payloadsOf(int set, int cmd) const
    {
        std::vector<std::string> out;
        for (const auto& c : vm->commandsOf(set, cmd))
            out.push_back(c.payload);
        return out;
    }
    // Lets the scripted VM's answers in, pass by pass, until `done` (at most
    // `passes` passes: nothing here waits for real time).
    void pumpScripted(const std::function<bool()>& done, int passes = 100)
    {
        for (int i = 0; i < passes && !done(); ++i) {
            MessagePump::instance().pumpOnce(0);
            transport->pumpProcessEvents();
        }
    }
    // (command set, command) of every command sent, in order.
    using Wire = std::vector<std::pair<int, int>>;
    Wire wire() const
    {
        Wire out;
        for (const auto& c : vm->commands())
            out.emplace_back(c.set, c.cmd);
        return out;
    }

    // A class known by id and signature, entered in the class table.
    std::shared_ptr<JXClass> registerClass(double id, const std::string& signature, bool printInfo = false)
    {
        auto cls = std::make_shared<JXClass>();
        cls->ClassID = id;
        cls->ClassSignature = signature;
        jvm()->addClass(cls, printInfo);
        return cls;
    }
    // A method with its line table given, added to `cls`.
    static std::shared_ptr<JXMethod> addMethod(const std::shared_ptr<JXClass>& cls, double id, const std::string& name,
                                               const std::string& signature,
                                               const std::vector<std::pair<double, double>>& lines = {})
    {
        auto m = std::make_shared<JXMethod>();
        m->MethodID = id;
        m->MethodName = name;
        m->MethodSignature = signature;
        m->ClassID = cls->ClassID;
        m->SetLineTable(lineTable(lines));
        cls->addMethod(m);
        return m;
    }

    std::shared_ptr<JDWPHandler> handler;
    std::shared_ptr<ScriptedTransport> transport = std::make_shared<ScriptedTransport>();
    std::unique_ptr<ScriptedVM> vm;
    std::shared_ptr<EventLog> log = std::make_shared<EventLog>();
};

class SessionTest : public HandlerTest {
public:
    void SetUp() override
    {
        HandlerTest::SetUp();
        transport->connectedFlag = true;
        handler->attachTransport(transport);
    }
};

class ModelTest : public HandlerTest {
public:
    void SetUp() override
    {
        setTickSource([this] { return now_ += 10; });
        HandlerTest::SetUp();
        // A real opening over the socket framing: handshake, ID sizes,
        // version, the start-up requests and the first resume, all answered
        // by the scripted VM; then the tests start from a clean record.
        vm->installDefaults();
        handler->bRemoteConnection = true;
        ASSERT_TRUE(handler->startVM("", "", "", false, false, 0, "127.0.0.1", "8000", true));
        pumpScripted([this] { return !vm->commandsOf(1, 9).empty() && !jvm()->VMName.empty(); }, 1000);
        ASSERT_FALSE(vm->commandsOf(1, 9).empty()) << "the opening sequence ends with a resume";
        vm->clearCommands();
        log->clear();
    }

private:
    uint32_t now_ = 1000;
};

} // namespace jdwpkrvdbg::testing
