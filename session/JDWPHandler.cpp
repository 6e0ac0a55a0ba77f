// The session's connection object: launching or attaching to the VM, the
// connect loop, the handshake and opening sequence, the reactions to the
// transport's events, shutdown, the request/reply exchange with its framing
// and dispatch, thread listing and the rendering of objects as text.
#include "jdwpkrvdbg/session/JDWPHandler.h"

#include <algorithm>
#include <cstdlib>
#include <exception>

#include "../platform/X11Windows.h"
#include "jdwpkrvdbg/model/JXClass.h"
#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/model/JXMethod.h"
#include "jdwpkrvdbg/model/JXThreadList.h"
#include "jdwpkrvdbg/platform/Clock.h"
#include "jdwpkrvdbg/platform/MessagePump.h"
#include "jdwpkrvdbg/protocol/ByteStrings.h"
#include "jdwpkrvdbg/protocol/JDWPMessage.h"
#include "jdwpkrvdbg/protocol/JDWPMessageData.h"
#include "jdwpkrvdbg/protocol/JDWPMessageFactory.h"
#include "jdwpkrvdbg/session/JDWPFunctions.h"
#include "jdwpkrvdbg/session/JDWPLimits.h"
#include "jdwpkrvdbg/session/TransportFactory.h"
#include "jdwpkrvdbg/session/modMain.h"

namespace jdwpkrvdbg {

namespace {

constexpr const char* kHandshake = "JDWP-Handshake";
constexpr size_t kHandshakeLength = 14;

int32_t portNumber(const std::string& port)
{
    char* end = nullptr;
    long value = std::strtol(port.c_str(), &end, 10);
    if (end == port.c_str() || value < 0 || value > 65535)
        return 0;
    return static_cast<int32_t>(value);
}

int64_t ticksSince(uint32_t start)
{
    return static_cast<int64_t>(static_cast<uint32_t>(GetTickCount() - start));
}

} // namespace

std::shared_ptr<JDWPHandler> JDWPHandler::create()
{
    std::shared_ptr<JDWPHandler> handler(new JDWPHandler());
    setCurrentHandler(handler);
    // The default names of the user's program classes until the host sets
    // its own.
    handler->myJVM()->setTargetClassName({"Module1", "Class1"});
    return handler;
}

JDWPHandler::JDWPHandler() = default;

JDWPHandler::~JDWPHandler()
{
    if (handshakeTimer_)
        MessagePump::instance().removeTimer(handshakeTimer_);
    if (JDWPCon_) {
        if (JDWPCon_->ProcessRunning()) {
            exitProcess();
            if (myJVM_)
                myJVM_->GoVMStateChange(VMDead, -1);
        }
        JDWPCon_->setEvents(nullptr);
    }
}

std::shared_ptr<JDWPMessageFactory> JDWPHandler::myFactory()
{
    if (!myFactory_)
        myFactory_ = std::make_shared<JDWPMessageFactory>();
    return myFactory_;
}

std::shared_ptr<JXMachine> JDWPHandler::myJVM()
{
    if (!myJVM_)
        myJVM_ = std::make_shared<JXMachine>();
    return myJVM_;
}

void JDWPHandler::attachTransport(std::shared_ptr<JDWPCon> transport)
{
    if (JDWPCon_)
        JDWPCon_->setEvents(nullptr);
    JDWPCon_ = std::move(transport);
    if (JDWPCon_)
        JDWPCon_->setEvents(this);
}

// ---------------------------------------------------------------------------
// Launch and connection

bool JDWPHandler::startVM(const std::string& JVMPath, const std::string& JVMParam, const std::string& SharedName,
                          bool bConsole, bool bUsePipe, int32_t timeout, const std::string& Host,
                          const std::string& Port, bool bUseRemote)
{
    if (!JDWPCon_)
        attachTransport(transportFactory_ ? transportFactory_() : createDefaultTransport());
    if (!JDWPCon_)
        return false;
    auto jvm = myJVM();
    try {
        endPreviousSession();
        bSocketMode = bUseRemote;
        bStartedProcess = !JVMPath.empty();
        connectedSinceStart_ = false;
        if (bStartedProcess) {
            JDWPCon_->StartProcess(JVMPath, ReplaceAll(JVMParam, "%SharedName%", SharedName), bConsole, bUsePipe);
            jvm->printDebug(" *** Start Java Virtual Machine");
        }
        if (bUseRemote) {
            jvm->printDebug(" *** Connect [Socket] " + Host + ":" + Port);
            JDWPCon_->ConnectSocket(Host, portNumber(Port));
        }
        if (tryToConnect(SharedName, timeout, Host, Port, bUseRemote)) {
            // A connection the wire broke at once has ended the session
            // already, as it would have a moment later.
            if (isConnected())
                jvm->printDebug(" *** JDWP-Connection established ...");
            return true;
        }
        reportConnectFailure();
        return false;
    } catch (const std::exception& e) {
        jvm->MsgBoxW(std::string("STARTVM: ") + e.what(), kMsgBoxCritical, "Korvane Debugger");
        return false;
    }
}

void JDWPHandler::endPreviousSession()
{
    // What is left of the previous session goes first: a VM that reported
    // its death may still be exiting, and the end of its connection or
    // process, seen later, would otherwise end the new session. A connection
    // still up is ended as Disconnect ends it, so the host sees that session
    // close.
    bDisconnecting = true;
    closeTransportReporting();
    JDWPCon_->KillProcess();
    bDisconnecting = false;
    myJVM()->cleanup();
    myReceiveBuffer.clear();
    bHandshakeDone = false;
}

bool JDWPHandler::tryToConnect(const std::string& SharedName, int32_t timeout, const std::string& Host,
                               const std::string& Port, bool bUseRemote)
{
    auto jvm = myJVM();
    const uint32_t start = GetTickCount();
    auto& pump = MessagePump::instance();
    uint64_t consoleAtTry = consoleTexts_;
    // A connection was made when the transport is up, and also when it
    // came and a protocol error ended it: trying again would connect a
    // second time to a peer that has already failed.
    auto madeOne = [&] { return JDWPCon_->TransportConnected() || connectedSinceStart_; };
    for (int n = 1; n <= kConnectTries; ++n) {
        // The try's pause waits on the transport instead of sleeping, so a
        // connection is taken up the moment it is made. It also ends when
        // the started VM writes to its console: the agent prints "Listening
        // for transport ..." the moment it listens, so the try comes then
        // and not at the next pause's end.
        const uint32_t pauseStart = GetTickCount();
        while (ticksSince(pauseStart) < kConnectPauseMs && !madeOne() && consoleTexts_ == consoleAtTry)
            pump.pumpOnce(static_cast<int>(kConnectPauseMs - ticksSince(pauseStart)));
        consoleAtTry = consoleTexts_;
        mySharedName = SharedName;
        const uint32_t tryStart = GetTickCount();
        if (!bUseRemote) {
            if (n == 1)
                jvm->printDebug(" *** Connect [SHMem] " + SharedName);
            if (!madeOne())
                JDWPCon_->ConnectShared(SharedName);
        } else if (!madeOne()) {
            // Our socket transport makes one attempt per call (a call while
            // one is pending is ignored), so a VM that starts listening
            // during the loop is still found.
            JDWPCon_->ConnectSocket(Host, portNumber(Port));
        }
        DoEvents();
        if (madeOne())
            return true;
        if (ticksSince(start) > kConnectReportAfterMs)
            jvm->printDebug(" *** Try " + std::to_string(n) + "/" + std::to_string(kConnectTries));
        if (ticksSince(start) > kConnectBudgetMs)
            break;
        if ((ticksSince(tryStart) >= timeout || n > kConnectLivenessTry) && bStartedProcess &&
            !JDWPCon_->ProcessRunning()) {
            jvm->printDebug(" *** Java Virtual Machine dead!");
            JDWPCon_->KillProcess();
            break;
        }
    }
    return JDWPCon_->TransportConnected();
}

void JDWPHandler::reportConnectFailure()
{
    auto jvm = myJVM();
    jvm->printDebug(" *** JDWP-Connection failed ...");
    // The kill comes before the liveness test, so the "Process terminated"
    // variant is the usual one; intended.
    JDWPCon_->KillProcess();
    JDWPCon_->CloseTransport();
    jvm->GoCloseConnection();
    const std::string what = JDWPCon_->ProcessRunning() ? "Debugger failed!" : "Debugger failed! Process terminated!";
    jvm->MsgBoxW(what + "\r\n" + JDWPCon_->StatusText(), kMsgBoxCritical, "Korvane Debugger");
}

void JDWPHandler::connected()
{
    bHandshakeDone = false;
    connectedSinceStart_ = true;
    history_.recordNote("connected");
    auto jvm = myJVM();
    jvm->printDebug(" *** JDWP-Transport established ...");
    jvm->GoOpenConnection();
    connectTransport();
    armHandshakeTimeout();
}

void JDWPHandler::connectTransport()
{
    sendString(std::string(kHandshake, kHandshakeLength));
    // The state is announced as running before any reply came back; intended.
    myJVM()->GoVMStateChange(VMRunning, -1);
}

void JDWPHandler::armHandshakeTimeout()
{
    auto& pump = MessagePump::instance();
    if (handshakeTimer_)
        pump.removeTimer(handshakeTimer_);
    std::weak_ptr<JDWPHandler> weak = weak_from_this();
    handshakeTimer_ = pump.addTimer(kHandshakeWaitMs, [weak]() {
        auto self = weak.lock();
        if (!self)
            return;
        MessagePump::instance().removeTimer(self->handshakeTimer_);
        self->handshakeTimer_ = 0;
        if (!self->bHandshakeDone && self->isConnected())
            self->protocolError("no handshake from the VM");
    });
}

void JDWPHandler::sendInitMessages()
{
    auto jvm = myJVM();
    jvm->printDebug(" *** Initialize JDWP-Channel ...");
    sendAsync(myFactory()->createGetVersionMessage());
    jvm->registerException();
    jvm->registerPrepareClass();
    jvm->noteOpeningResume();
    jvm->ResumeVM(true);
}

bool JDWPHandler::isConnected()
{
    return JDWPCon_ && JDWPCon_->TransportConnected();
}

void JDWPHandler::disconnected()
{
    history_.recordNote("disconnected");
    if (!bDisconnecting && !bStartedProcess)
        getCurrentHandler()->myJVM()->MsgBoxW("Remote Java Virtual Machine disconnected!", kMsgBoxInformation,
                                              "Debugger");
    bHandshakeDone = false;
    if (JDWPCon_) {
        if (myJVM()->JVMState() == VMDead)
            JDWPCon_->WaitProcessExit(kDeadVMExitWaitMs);
        JDWPCon_->KillProcess();
    }
    myJVM()->GoVMStateChange(VMDead, -1);
    if (myJVM_)
        myJVM_->GoCloseConnection();
}

void JDWPHandler::terminated()
{
    history_.recordNote("process terminated");
    // The process's end may be seen before its connection's.
    if (JDWPCon_)
        closeTransportReporting();
    myJVM()->GoVMStateChange(VMDead, -1);
}

// Our transport raises no event when it closes a connection itself, so a
// connection that was still up is reported ended here, as its drop would be
// (the caller decides about the box through bDisconnecting). A session object
// being torn down gets no events.
void JDWPHandler::closeTransportReporting()
{
    const bool wasConnected = JDWPCon_->TransportConnected();
    JDWPCon_->CloseTransport();
    if (wasConnected && myJVM_)
        disconnected();
}

void JDWPHandler::pipestream(const std::string& text)
{
    ++consoleTexts_;
    myJVM()->printConsole(ReplaceAll(ReplaceAll(text, "\r\n", "\n"), "\n", "\r\n"));
}

void JDWPHandler::pipestreamError(const std::string& text)
{
    ++consoleTexts_;
    myJVM()->printConsoleError(ReplaceAll(ReplaceAll(text, "\r\n", "\n"), "\n", "\r\n"));
}

void JDWPHandler::Disconnect()
{
    if (!JDWPCon_)
        return;
    bDisconnecting = true;
    disposeVM();
    // The VM may already have closed the connection after the Dispose.
    closeTransportReporting();
    JDWPCon_->KillProcess();
}

void JDWPHandler::disposeVM()
{
    auto handler = getCurrentHandler();
    handler->sendSync(handler->myFactory()->createDisposeMessage(), kDisposeWaitMs);
}

void JDWPHandler::exitVM()
{
    auto handler = getCurrentHandler();
    handler->sendAsync(handler->myFactory()->createExitMessage());
}

void JDWPHandler::exitProcess()
{
    if (JDWPCon_)
        JDWPCon_->KillProcess();
}

int32_t JDWPHandler::getProcessHandle()
{
    return JDWPCon_ ? JDWPCon_->ProcessHandle() : 0;
}

int32_t JDWPHandler::getProcessID()
{
    return JDWPCon_ ? JDWPCon_->ProcessID() : 0;
}

int32_t JDWPHandler::ProcessIDTohWnd(int32_t RefProcessID)
{
    return findTopLevelWindowOfProcess(RefProcessID);
}

bool JDWPHandler::ActivateWindow(int32_t RefHWnd)
{
    if (RefHWnd == 0)
        return false;
    return activateWindow(RefHWnd, [] { DoEvents(); });
}

void JDWPHandler::BringToTop()
{
    ActivateWindow(ProcessIDTohWnd(getProcessID()));
}

void JDWPHandler::printStream(const std::string&, const std::string&)
{
    // A diagnostic hook the host may call; it writes nothing.
}

// ---------------------------------------------------------------------------
// Request/reply exchange

bool JDWPHandler::sendString(const std::string& s)
{
    if (!JDWPCon_)
        return false;
    JDWPCon_->SendData(s);
    return true;
}

bool JDWPHandler::sendAsync(const Msg& C)
{
    if (!isConnected() || !C)
        return false;
    // A command object is sent at most once: a second one under the same
    // key is refused.
    if (!mySentMessages_.emplace(C->myID, C).second)
        return false;
    notePacket(PacketEvent::Direction::Sent, *C, C->myData.size() + 11);
    sendString(C->toString());
    return true;
}

int JDWPHandler::addPacketObserver(PacketObserver observer)
{
    packetObservers_.emplace_back(++lastObserverToken_, std::move(observer));
    return lastObserverToken_;
}

void JDWPHandler::removePacketObserver(int token)
{
    std::erase_if(packetObservers_, [token](const auto& o) { return o.first == token; });
}

void JDWPHandler::notePacket(PacketEvent::Direction direction, const JDWPMessage& m, size_t length)
{
    PacketEvent packet{direction,
                       m.myID,
                       static_cast<int32_t>(m.myCommandSet),
                       static_cast<int32_t>(m.myCommand),
                       direction == PacketEvent::Direction::Received && m.myFlags == 128,
                       static_cast<int32_t>(m.myErrorCode),
                       length,
                       0};
    // An event packet: suspend policy (1 byte), count (4), the first kind.
    if (direction == PacketEvent::Direction::Received && !packet.reply && packet.commandSet == CMDSET_Event &&
        m.myData.size() > 5)
        packet.eventKind = static_cast<uint8_t>(m.myData[5]);
    history_.record(packet);
    if (packetObservers_.empty())
        return;
    // A copy: an observer may add or remove observers.
    const auto observers = packetObservers_;
    for (const auto& [token, observer] : observers)
        observer(packet);
}

JDWPHandler::Msg JDWPHandler::sendSync(const Msg& RefMsg, int32_t WaitMSec)
{
    if (!RefMsg)
        return nullptr;
    const double key = RefMsg->myID;
    auto record = std::make_shared<JDWPFunctions>();
    mySyncFunctions_[key] = record;
    Msg result = record->send(RefMsg, WaitMSec);
    mySyncFunctions_.erase(key);
    return result;
}

std::vector<JDWPHandler::Msg> JDWPHandler::sendAllSync(const std::vector<Msg>& commands, int32_t WaitMSec)
{
    const uint32_t start = GetTickCount();
    std::vector<std::shared_ptr<JDWPFunctions>> records(commands.size());
    for (size_t i = 0; i < commands.size(); ++i) {
        if (!commands[i] || mySyncFunctions_.count(commands[i]->myID))
            continue;
        auto record = std::make_shared<JDWPFunctions>();
        mySyncFunctions_[commands[i]->myID] = record;
        if (record->begin(commands[i]))
            records[i] = record;
        else
            mySyncFunctions_.erase(commands[i]->myID);
    }
    JDWPFunctions::waitUntil(
        [&] {
            return std::all_of(records.begin(), records.end(),
                               [](const auto& r) { return !r || r->LastFunctionReturnConfirmed; });
        },
        start, WaitMSec);
    std::vector<Msg> replies(commands.size());
    for (size_t i = 0; i < commands.size(); ++i) {
        if (!records[i])
            continue;
        mySyncFunctions_.erase(commands[i]->myID);
        replies[i] = records[i]->finish();
    }
    return replies;
}

JDWPHandler::Msg JDWPHandler::getMessage(double id)
{
    auto it = mySentMessages_.find(id);
    return it == mySentMessages_.end() ? nullptr : it->second;
}

void JDWPHandler::removeMessage(double id)
{
    mySentMessages_.erase(id);
}

std::shared_ptr<JDWPFunctions> JDWPHandler::getSyncFunctionByMsg(const Msg& RefMsg)
{
    if (!RefMsg)
        return nullptr;
    auto it = mySyncFunctions_.find(RefMsg->myID);
    return it == mySyncFunctions_.end() ? nullptr : it->second;
}

void JDWPHandler::receive(const std::string& data)
{
    std::string text = data;
    if (!bHandshakeDone && bSocketMode && !myReceiveBuffer.empty()) {
        // The rest of a handshake that came in pieces (a socket may cut
        // anywhere; the handshake time-out still ends a peer that stalls).
        text = myReceiveBuffer + text;
        myReceiveBuffer.clear();
    }
    if (!bHandshakeDone && bSocketMode && text.size() < kHandshakeLength &&
        std::string(kHandshake).compare(0, text.size(), text) == 0) {
        myReceiveBuffer = text;
        return;
    }
    if (!bHandshakeDone && text.compare(0, kHandshakeLength, kHandshake) == 0) {
        history_.recordNote("handshake");
        sendAsync(myFactory()->createGetIDSizesMessage());
        text.erase(0, kHandshakeLength);
        bHandshakeDone = true;
        myReceiveBuffer.clear();
    }
    if (!bSocketMode) {
        // The shared-memory channel delivers exactly one whole packet per
        // receive; it is decoded at once, nothing is queued.
        if (text.empty())
            return;
        auto message = std::make_shared<JDWPMessage>();
        if (message->createMessageSHMem(text)) {
            notePacket(PacketEvent::Direction::Received, *message, message->myData.size() + 11);
            message->processMyData();
        }
        return;
    }
    myReceiveBuffer += text;
    framingStep();
}

void JDWPHandler::framingStep()
{
    if (bParsing)
        return;
    bParsing = true;
    // Packets are taken from a moving offset, and what they occupied is cut
    // from the front once, at the end of the pass: the rest of a batch is not
    // copied again for every packet taken. What is left then is a partial
    // packet, which stays at the front until it is whole, so each received
    // byte is copied at most once.
    size_t taken = 0;
    while (taken < myReceiveBuffer.size()) {
        auto message = std::make_shared<JDWPMessage>();
        const double count = message->createMessageSocket(myReceiveBuffer, taken);
        if (count < 0) {
            bParsing = false;
            protocolError("malformed packet length " +
                          NumberText(BytesToNumber(myReceiveBuffer, static_cast<int64_t>(taken) + 1, 4, false)));
            return;
        }
        if (count == 0)
            break;
        taken += std::min(static_cast<size_t>(count), myReceiveBuffer.size() - taken);
        notePacket(PacketEvent::Direction::Received, *message, static_cast<size_t>(message->myLen));
        myReceivedQueue.push_back(std::move(message));
        if (JDWPCon_)
            JDWPCon_->EnableProcessEvent(true);
    }
    if (taken >= myReceiveBuffer.size()) {
        myReceiveBuffer.clear();
    } else if (taken > 0) {
        receiveBytesMoved_ += myReceiveBuffer.size() - taken;
        myReceiveBuffer.erase(0, taken);
    }
    bParsing = false;
}

void JDWPHandler::protocolError(const std::string& reason)
{
    // The wire broke the framing (or never shook hands): nothing after this
    // point can be trusted, so the session ends as if the VM had died.
    history_.recordNote("protocol error: " + reason);
    myReceiveBuffer.clear();
    myReceivedQueue.clear();
    bHandshakeDone = false;
    auto jvm = myJVM();
    jvm->printDebug(" *** JDWP-Connection failed ... " + reason);
    if (JDWPCon_) {
        JDWPCon_->EnableProcessEvent(false);
        JDWPCon_->CloseTransport();
        JDWPCon_->KillProcess();
    }
    jvm->GoVMStateChange(VMDead, -1);
    jvm->GoCloseConnection();
}

void JDWPHandler::processevent()
{
    processSocketData();
}

void JDWPHandler::processSocketData()
{
    // One packet per round. The guard covers the dequeue only, not the
    // decoding: a decoder that waits in sendSync lets nested rounds decode
    // later packets (among them its own reply); intended.
    for (;;) {
        if (myReceivedQueue.empty()) {
            if (JDWPCon_)
                JDWPCon_->EnableProcessEvent(false);
            return;
        }
        if (bDispatching)
            return;
        bDispatching = true;
        Msg message = std::move(myReceivedQueue.front());
        myReceivedQueue.pop_front();
        bDispatching = false;
        message->processMyData();
    }
}

// ---------------------------------------------------------------------------
// Threads and object rendering

std::shared_ptr<JXThreadList> JDWPHandler::getAllThreads()
{
    auto reply = sendSync(myFactory()->createGetThreadsMessage(), kReplyWaitMs);
    if (reply && reply->hasDataContainer())
        return reply->myDataContainer()->RequestThreads;
    return nullptr;
}

std::string JDWPHandler::ObjectToStringWithMethod(double RequestObjectID, bool ClassNameOnly,
                                                  const std::string& ToStringDesc)
{
    auto jvm = getCurrentHandler()->myJVM();
    auto cls = jvm->getClassByObjectID(RequestObjectID);
    if (!cls)
        return std::string();
    // Enumeration objects are rendered as instances of their superclass.
    if (auto super = cls->SuperClass()) {
        if (super->ClassName().find("VBEnumClass") != std::string::npos)
            cls = super;
    }
    if (ClassNameOnly)
        return cls->ClassName();
    std::shared_ptr<JXMethod> method;
    auto owner = cls;
    // At most 20 lookups: the class itself and 19 ancestors; intended.
    for (int lookups = 0; owner && lookups < 20; ++lookups) {
        method = owner->JMethod(ToStringDesc);
        if (method)
            break;
        owner = owner->SuperClass();
    }
    if (!method || !owner)
        return std::string();
    // A render runs a method whose result may be rendered in turn; past a
    // few levels (only a broken or hostile peer gets there) the class name
    // stands in, so that no chain of replies can recurse without end.
    constexpr int kMaxRenderDepth = 2;
    if (myRenderDepth_ >= kMaxRenderDepth)
        return cls->ClassName();
    ++myRenderDepth_;
    std::string text =
        jvm->getValueFromMethodCall(RequestObjectID, owner->ClassID, method->MethodID, method->isStatic(), true)
            .VarValue;
    --myRenderDepth_;
    return text;
}

std::string JDWPHandler::ObjectToString(double RequestObjectID, bool ClassNameOnly)
{
    return ObjectToStringWithMethod(RequestObjectID, ClassNameOnly, "toString()Ljava/lang/String;");
}

} // namespace jdwpkrvdbg
