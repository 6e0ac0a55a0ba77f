// A JDWPCon for byte-exact unit tests: it records every byte string the
// session sends, and the test decides when the session is connected and what
// it receives, in which pieces. Nothing touches a socket, a process or a
// clock; events are raised synchronously from the test's calls.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "jdwpkrvdbg/session/JDWPCon.h"

namespace jdwpkrvdbg::testing {

class ScriptedTransport : public JDWPCon {
public:
    // --- what the session did ---
    std::vector<std::string> sent;            // every SendData, in order
    std::vector<std::string> sharedConnects;  // names given to ConnectShared
    std::vector<std::pair<std::string, int32_t>> socketConnects;
    std::vector<std::string> startedCommandLines;
    int closeCount = 0;
    int killCount = 0;
    bool processEventEnabled = false;

    // --- what the test decides ---
    bool connectedFlag = false;
    bool processRunning = false;
    bool connectOnRequest = true; // ConnectSocket/ConnectShared raise connected
    std::string statusText = "scripted";
    // Called on every SendData (e.g. to answer a request at once).
    std::function<void(const std::string&)> onSend;

    // Raise events as the real transport would.
    void raiseConnected();
    void raiseDisconnected();
    void raiseReceive(const std::string& bytes);
    void raiseTerminated();
    void raisePipe(const std::string& text);
    // Raises processevent until the session switches it off (bounded).
    void pumpProcessEvents(int maxPasses = 1000);

    void ConnectShared(const std::string& SharedName) override;
    bool SendData(const std::string& Data) override;
    bool TransportConnected() override { return connectedFlag; }
    void CloseTransport() override;
    std::string StatusText() override { return statusText; }
    bool StartProcess(const std::string& Path, const std::string& CommandLine, bool bConsole,
                      bool bUsePipe) override;
    void KillProcess() override;
    bool ProcessRunning() override { return processRunning; }
    int32_t ProcessHandle() override { return processRunning ? 3 : 0; }
    int32_t ProcessID() override { return processRunning ? 4242 : 0; }
    void ConnectSocket(const std::string& Host, int32_t Port) override;
    // Raises processevent from a pump idle callback while enabled, as the
    // real transport does.
    void EnableProcessEvent(bool Enabled) override;
    ~ScriptedTransport() override;

private:
    int idleId_ = 0;
};

} // namespace jdwpkrvdbg::testing
