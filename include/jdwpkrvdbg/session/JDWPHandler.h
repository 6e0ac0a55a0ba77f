// The session's connection object. It starts the debuggee's VM (or attaches
// to one that listens), waits for the transport, performs the handshake and
// the opening sequence, reacts to the transport's events, sends commands
// asynchronously or synchronously and matches replies to them, frames and
// dispatches incoming packets, renders objects by calling their string
// methods in the VM, and finds and raises the debuggee's window.
//
// Create handlers with JDWPHandler::create(), which makes the new handler
// the process-wide current one.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "jdwpkrvdbg/session/JDWPCon.h"
#include "jdwpkrvdbg/session/PacketHistory.h"
#include "jdwpkrvdbg/support/NonCopyable.h"

namespace jdwpkrvdbg {

class JDWPFunctions;
class JDWPMessage;
class JDWPMessageFactory;
class JXMachine;
class JXThreadList;

class JDWPHandler : public JDWPConEvents, public std::enable_shared_from_this<JDWPHandler>, private NonCopyable {
public:
    using Msg = std::shared_ptr<JDWPMessage>;
    using TransportFactory = std::function<std::shared_ptr<JDWPCon>()>;

    // Creates a handler and makes it the current one.
    static std::shared_ptr<JDWPHandler> create();
    ~JDWPHandler() override;

    // Created on first use.
    std::shared_ptr<JDWPMessageFactory> myFactory();
    std::shared_ptr<JXMachine> myJVM();
    // The session object if one was created (never creates one).
    std::shared_ptr<JXMachine> peekJVM() const { return myJVM_; }

    double myMaxSendID = 0;
    // Framing of outgoing packets: true = socket (standard JDWP), false =
    // shared memory. Set by the host to the bUseRemote it passes to startVM;
    // the component never assigns it.
    bool bRemoteConnection = true;

    // --- launch and connection ---
    bool startVM(const std::string& JVMPath, const std::string& JVMParam, const std::string& SharedName, bool bConsole,
                 bool bUsePipe, int32_t timeout = 0, const std::string& Host = std::string(),
                 const std::string& Port = std::string(), bool bUseRemote = false);
    void connectTransport();
    void sendInitMessages();
    bool isConnected();
    void Disconnect();
    void exitVM();
    void disposeVM();
    void exitProcess();
    int32_t getProcessHandle();
    int32_t getProcessID();
    int32_t ProcessIDTohWnd(int32_t RefProcessID);
    bool ActivateWindow(int32_t RefHWnd);
    void BringToTop();
    void printStream(const std::string& pre, const std::string& val);

    // --- request/reply exchange ---
    bool sendAsync(const Msg& C);
    Msg sendSync(const Msg& RefMsg, int32_t WaitMSec = 0);
    // Independent commands sent at once and their replies awaited together:
    // one round trip instead of one each. The replies come in the order of
    // the commands (nullptr for one refused or unanswered within the wait).
    // While it waits, the same things may run as during sendSync.
    std::vector<Msg> sendAllSync(const std::vector<Msg>& commands, int32_t WaitMSec = 0);
    bool sendString(const std::string& s);
    Msg getMessage(double id);
    void removeMessage(double id);
    std::shared_ptr<JDWPFunctions> getSyncFunctionByMsg(const Msg& RefMsg);
    void processSocketData();

    // --- threads and object rendering ---
    std::shared_ptr<JXThreadList> getAllThreads();
    std::string ObjectToStringWithMethod(double RequestObjectID, bool ClassNameOnly, const std::string& ToStringDesc);
    std::string ObjectToString(double RequestObjectID, bool ClassNameOnly);

    // --- transport ---
    // Replaces how startVM creates the transport (tests use a scripted one).
    void setTransportFactory(TransportFactory factory) { transportFactory_ = std::move(factory); }
    std::shared_ptr<JDWPCon> transport() const { return JDWPCon_; }
    // Uses `transport` from now on (startVM then reuses it), as startVM does
    // with the one it creates.
    void attachTransport(std::shared_ptr<JDWPCon> transport);

    // --- tracing ---
    PacketHistory& history() { return history_; }
    // Observers of every packet sent or framed, called as the packet trace
    // records it (a received packet before it is decoded). Returns the token
    // that removes the observer again.
    int addPacketObserver(PacketObserver observer);
    void removePacketObserver(int token);
    // Number of sent commands still waiting for a reply, and of synchronous
    // calls in progress.
    size_t pendingSentCount() const { return mySentMessages_.size(); }
    size_t pendingSyncCount() const { return mySyncFunctions_.size(); }
    // Bytes the socket framing has copied inside its receive buffer to drop
    // the packets it took (each received byte is copied at most once).
    uint64_t receiveBytesMoved() const { return receiveBytesMoved_; }

    // --- transport events ---
    void connected() override;
    void disconnected() override;
    void pipestream(const std::string& text) override;
    void pipestreamError(const std::string& text) override;
    void processevent() override;
    void receive(const std::string& data) override;
    void terminated() override;

private:
    JDWPHandler();
    void framingStep();
    void notePacket(PacketEvent::Direction direction, const JDWPMessage& m, size_t length);
    // Parts of startVM: the previous session's remains go, the connection
    // is tried until it is up, the budget is spent or the started VM died,
    // and a failure is reported to the host.
    void endPreviousSession();
    bool tryToConnect(const std::string& SharedName, int32_t timeout, const std::string& Host, const std::string& Port,
                      bool bUseRemote);
    void reportConnectFailure();
    void protocolError(const std::string& reason);
    void armHandshakeTimeout();
    void closeTransportReporting();

    int handshakeTimer_ = 0;
    // Counts the console texts of the started VM, so that the connect loop
    // can try at once when the VM announces that it listens.
    uint64_t consoleTexts_ = 0;
    // A connection came up since startVM began, so that its connect loop
    // stops at the first one, also when the wire broke it at once.
    bool connectedSinceStart_ = false;

    std::shared_ptr<JDWPMessageFactory> myFactory_;
    std::shared_ptr<JXMachine> myJVM_;
    std::shared_ptr<JDWPCon> JDWPCon_;
    TransportFactory transportFactory_;

    bool bDisconnecting = false;
    bool bStartedProcess = false;
    bool bSocketMode = false;
    bool bHandshakeDone = false;
    std::string mySharedName;

    // Sent commands under their key ("key" + id) and pending synchronous
    // calls under theirs ("ID:" + id); both keys are made of the id alone, so
    // the tables are indexed by the id itself.
    std::unordered_map<double, Msg> mySentMessages_;
    std::unordered_map<double, std::shared_ptr<JDWPFunctions>> mySyncFunctions_;
    std::string myReceiveBuffer;
    uint64_t receiveBytesMoved_ = 0;
    std::deque<Msg> myReceivedQueue;
    bool bParsing = false;
    bool bDispatching = false;
    // Renders under way that invoke a method (one inside the other when a
    // call's result is itself rendered).
    int myRenderDepth_ = 0;

    PacketHistory history_;
    std::vector<std::pair<int, PacketObserver>> packetObservers_;
    int lastObserverToken_ = 0;
};

} // namespace jdwpkrvdbg
