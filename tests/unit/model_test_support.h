// Shared fixtures of the session and debug-model unit tests: a fresh handler
// talking to a scripted VM, a recorder of the session's host events, a fast
// tick source so that an unanswered request costs no real time, and builders
// of hand-made classes and methods.
#pragma once

#include <gtest/gtest.h>

#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ScriptedVM.h"

namespace jdwpkrvdbg::model_test {

using namespace jdwpkrvdbg::testing;

struct EventLog : JXMachineEvents {
    std::vector<std::string> all; // every event as text, e.g. "State(1)"
    std::vector<std::string> debug;
    std::vector<VMState> states;
    std::vector<std::string> stops; // "Class:line+offset"
    std::function<void(const std::string&)> onDebug;
    void Message(const std::string& p, int32_t b, const std::string& t) override
    {
        all.push_back("Message(" + p + "," + std::to_string(b) + "," + t + ")");
    }
    void VMStateChanged(VMState s) override
    {
        states.push_back(s);
        all.push_back("State(" + std::to_string(s) + ")");
    }
    void OpenConnection() override { all.push_back("Open"); }
    void CloseConnection() override { all.push_back("Close"); }
    void DebugMessage(const std::string& s) override
    {
        debug.push_back(s);
        all.push_back("Debug(" + s + ")");
        if (onDebug)
            onDebug(s);
    }
    void ConsoleMessage(const std::string& s) override { all.push_back("Console(" + s + ")"); }
    void Breakpoint(double, const std::string& ClassName, int32_t LineNr, int32_t Offset) override
    {
        stops.push_back(ClassName + ":" + std::to_string(LineNr) + "+" + std::to_string(Offset));
    }
    size_t count(const std::string& entry) const { return std::count(all.begin(), all.end(), entry); }
    bool has(const std::string& entry) const { return count(entry) > 0; }
    void clear() { all.clear(); debug.clear(); states.clear(); stops.clear(); }
};

// A line table as the decoder would hand it over: (code index, line) pairs.
inline JDWPJLineTable lineTable(const std::vector<std::pair<double, double>>& lines)
{
    JDWPJLineTable t;
    for (const auto& [index, line] : lines)
        t.Lines.push_back({index, line});
    t.LineCount = static_cast<double>(lines.size());
    return t;
}

// A fresh handler whose transports are one scripted transport with a
// scripted VM on it; the session's host events go to `log`.
class ScriptedSessionTest : public ::testing::Test {
public:
    void SetUp() override
    {
        handler = JDWPHandler::create();
        transport = std::make_shared<ScriptedTransport>();
        vm = std::make_unique<ScriptedVM>(transport);
        log = std::make_shared<EventLog>();
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
    size_t countOf(int set, int cmd) const { return vm->commandsOf(set, cmd).size(); }
    // (command set, command) of every command sent, in order.
    using Wire = std::vector<std::pair<int, int>>;
    Wire wire() const
    {
        Wire out;
        for (const auto& c : vm->commands())
            out.emplace_back(c.set, c.cmd);
        return out;
    }

    std::shared_ptr<JDWPHandler> handler;
    std::shared_ptr<ScriptedTransport> transport;
    std::unique_ptr<ScriptedVM> vm;
    std::shared_ptr<EventLog> log;
};

class ModelTest : public ScriptedSessionTest {
public:
    void SetUp() override
    {
        // Every wait sees 10 ms pass per tick read: a time-out never waits
        // for real, an answered request is unaffected.
        setTickSource([this] { return now_ += 10; });
        ScriptedSessionTest::SetUp();
        // A real opening over the socket framing: handshake, ID sizes,
        // version, the start-up requests and the first resume, all answered
        // by the scripted VM; then the tests start from a clean record.
        vm->installDefaults();
        handler->bRemoteConnection = true;
        ASSERT_TRUE(handler->startVM("", "", "", false, false, 0, "127.0.0.1", "8000", true));
        for (int i = 0; i < 1000 && (vm->commandsOf(1, 9).empty() || jvm()->VMName.empty()); ++i) {
            MessagePump::instance().pumpOnce(0);
            transport->pumpProcessEvents();
        }
        ASSERT_FALSE(vm->commandsOf(1, 9).empty()) << "the opening sequence ends with a resume";
        vm->clearCommands();
        log->clear();
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

private:
    uint32_t now_ = 1000;
};

// Wire helper for the golden payloads.
inline std::string u8(int v) { return std::string(1, static_cast<char>(v)); }

} // namespace jdwpkrvdbg::model_test
