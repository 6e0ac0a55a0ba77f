// The scripted transport: records what the session sends and raises the
// events a test asks for.
#include "ScriptedTransport.h"

#include "jdwpkrvdbg/platform/MessagePump.h"

namespace jdwpkrvdbg::testing {

void ScriptedTransport::raiseConnected()
{
    connectedFlag = true;
    if (events_)
        events_->connected();
}

void ScriptedTransport::raiseDisconnected()
{
    connectedFlag = false;
    if (events_)
        events_->disconnected();
}

void ScriptedTransport::raiseReceive(const std::string& bytes)
{
    if (events_)
        events_->receive(bytes);
}

void ScriptedTransport::raiseTerminated()
{
    processRunning = false;
    if (events_)
        events_->terminated();
}

void ScriptedTransport::raisePipe(const std::string& text)
{
    if (events_)
        events_->pipestream(text);
}

void ScriptedTransport::pumpProcessEvents(int maxPasses)
{
    for (int i = 0; i < maxPasses && processEventEnabled; ++i)
        if (events_)
            events_->processevent();
}

void ScriptedTransport::ConnectShared(const std::string& SharedName)
{
    sharedConnects.push_back(SharedName);
    if (connectOnRequest && !connectedFlag)
        raiseConnected();
}

bool ScriptedTransport::SendData(const std::string& Data)
{
    sent.push_back(Data);
    if (onSend)
        onSend(Data);
    return connectedFlag;
}

void ScriptedTransport::CloseTransport()
{
    ++closeCount;
    connectedFlag = false;
}

bool ScriptedTransport::StartProcess(const std::string& Path, const std::string& CommandLine, bool, bool)
{
    startedCommandLines.push_back(Path + " " + CommandLine);
    processRunning = true;
    return true;
}

void ScriptedTransport::KillProcess()
{
    ++killCount;
    processRunning = false;
}

void ScriptedTransport::ConnectSocket(const std::string& Host, int32_t Port)
{
    socketConnects.emplace_back(Host, Port);
    if (connectOnRequest && !connectedFlag)
        raiseConnected();
}

void ScriptedTransport::EnableProcessEvent(bool Enabled)
{
    processEventEnabled = Enabled;
    auto& pump = MessagePump::instance();
    if (Enabled && !idleId_) {
        idleId_ = pump.addIdle([this]() {
            if (events_)
                events_->processevent();
        });
    } else if (!Enabled && idleId_) {
        pump.removeIdle(idleId_);
        idleId_ = 0;
    }
}

ScriptedTransport::~ScriptedTransport()
{
    if (idleId_)
        MessagePump::instance().removeIdle(idleId_);
}

} // namespace jdwpkrvdbg::testing
