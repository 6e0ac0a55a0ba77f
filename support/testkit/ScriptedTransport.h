// A JDWPCon in memory, for byte-exact unit tests and the framing benchmark:
// it records every byte string the session sends, and the caller decides
// when the session is connected and what it receives, in which pieces. Nothing touches a socket, a process or a
// clock; events are raised synchronously from the test's calls.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "jdwpkrvdbg/platform/MessagePump.h"
#include "jdwpkrvdbg/session/JDWPCon.h"
#include "jdwpkrvdbg/support/NonCopyable.h"

namespace jdwpkrvdbg::testing {

// What a peer sends in answer reaches the session on a later pump pass,
// never inside the send that caused it (a real transport cannot answer
// that fast either).
class Outbox : NonCopyable {
public:
    explicit Outbox(std::function<void(const std::string&)> deliver) : deliver_(std::move(deliver)) {}
    ~Outbox()
    {
        if (idle_)
            MessagePump::instance().removeIdle(idle_);
    }

    void post(std::string bytes)
    {
        queued_.push_back(std::move(bytes));
        if (idle_)
            return;
        idle_ = MessagePump::instance().addIdle([this] {
            MessagePump::instance().removeIdle(std::exchange(idle_, 0));
            for (const auto& b : std::exchange(queued_, {}))
                deliver_(b);
        });
    }
    bool empty() const { return queued_.empty(); }
    void clear() { queued_.clear(); }

private:
    std::function<void(const std::string&)> deliver_;
    std::vector<std::string> queued_;
    int idle_ = 0;
};

class ScriptedTransport : public JDWPCon {
public:
    // --- what the session did ---
    std::vector<std::string> sent; // every SendData, in order
    std::vector<std::string> sharedConnects;
    std::vector<std::pair<std::string, int32_t>> socketConnects;
    std::vector<std::string> startedCommandLines;
    int closeCount = 0;
    bool processEventEnabled = false;

    // --- what the test decides ---
    bool connectedFlag = false;
    bool processRunning = false;
    bool connectOnRequest = true; // ConnectSocket/ConnectShared raise connected
    std::string statusText = "scripted";
    std::function<void(const std::string&)> onSend; // e.g. to answer at once

    // Raise events as the real transport would.
    void raiseConnected()
    {
        connectedFlag = true;
        if (events_)
            events_->connected();
    }
    void raiseDisconnected()
    {
        connectedFlag = false;
        if (events_)
            events_->disconnected();
    }
    void raiseTerminated()
    {
        processRunning = false;
        if (events_)
            events_->terminated();
    }
    void raiseReceive(const std::string& bytes)
    {
        if (events_)
            events_->receive(bytes);
    }
    void raisePipe(const std::string& text)
    {
        if (events_)
            events_->pipestream(text);
    }
    // Raises processevent until the session switches it off (bounded).
    void pumpProcessEvents(int maxPasses = 1000)
    {
        for (int i = 0; i < maxPasses && processEventEnabled && events_; ++i)
            events_->processevent();
    }

    void ConnectShared(const std::string& SharedName) override
    {
        sharedConnects.push_back(SharedName);
        connectIfAsked();
    }
    bool SendData(const std::string& Data) override
    {
        sent.push_back(Data);
        if (onSend)
            onSend(Data);
        return connectedFlag;
    }
    bool TransportConnected() override { return connectedFlag; }
    void CloseTransport() override
    {
        ++closeCount;
        connectedFlag = false;
    }
    std::string StatusText() override { return statusText; }
    bool StartProcess(const std::string& Path, const std::string& CommandLine, bool, bool) override
    {
        startedCommandLines.push_back(Path + " " + CommandLine);
        return processRunning = true;
    }
    void KillProcess() override { processRunning = false; }
    bool ProcessRunning() override { return processRunning; }
    int32_t ProcessHandle() override { return processRunning ? 3 : 0; }
    int32_t ProcessID() override { return processRunning ? 4242 : 0; }
    void ConnectSocket(const std::string& Host, int32_t Port) override
    {
        socketConnects.emplace_back(Host, Port);
        connectIfAsked();
    }
    // Raises processevent from a pump idle callback while enabled, as the
    // real transport does.
    void EnableProcessEvent(bool Enabled) override
    {
        processEventEnabled = Enabled;
        if (Enabled && !idleId_)
            idleId_ = MessagePump::instance().addIdle([this] {
                if (events_)
                    events_->processevent();
            });
        else if (!Enabled && idleId_)
            MessagePump::instance().removeIdle(std::exchange(idleId_, 0));
    }
    ~ScriptedTransport() override
    {
        if (idleId_)
            MessagePump::instance().removeIdle(idleId_);
    }

private:
    void connectIfAsked()
    {
        if (connectOnRequest && !connectedFlag)
            raiseConnected();
    }
    int idleId_ = 0;
};

} // namespace jdwpkrvdbg::testing
