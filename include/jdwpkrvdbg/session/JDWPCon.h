// The transport contract between the session and whatever moves its bytes:
// starting and ending the VM process with its console captured, connecting
// by TCP socket or by the shared-memory channel, sending and receiving, and
// the events that report what happened. Events are delivered on the host's
// thread from inside the message pump, never from another thread.
#pragma once

#include <cstdint>
#include <string>

namespace jdwpkrvdbg {

// Receiver of the transport's events (implemented by JDWPHandler).
class JDWPConEvents {
public:
    virtual ~JDWPConEvents() = default;
    virtual void connected() = 0;
    virtual void disconnected() = 0;
    // Console text of the launched process, as it comes.
    virtual void pipestream(const std::string& text) = 0;
    // The part of it the process wrote to its stderr, where the transport
    // captures that on its own; by default one stream with the rest.
    virtual void pipestreamError(const std::string& text) { pipestream(text); }
    // Raised on every pump pass while EnableProcessEvent(true) is in force.
    virtual void processevent() = 0;
    // Bytes from the VM: whatever arrived on a socket, or exactly one whole
    // packet (or the handshake) on the shared-memory channel.
    virtual void receive(const std::string& data) = 0;
    // The launched process ended.
    virtual void terminated() = 0;
};

class JDWPCon {
public:
    virtual ~JDWPCon() = default;

    // The receiver of events; nullptr detaches. Not owned.
    void setEvents(JDWPConEvents* events) { events_ = events; }

    // Begins or retries a connection to the VM's shared-memory channel.
    virtual void ConnectShared(const std::string& SharedName) = 0;
    // Sends the bytes on the open connection; false when nothing was sent.
    virtual bool SendData(const std::string& Data) = 0;
    virtual bool TransportConnected() = 0;
    virtual void CloseTransport() = 0;
    // The last failure in words a user understands.
    virtual std::string StatusText() = 0;
    // Launches Path with the arguments of CommandLine (split as a shell
    // splits quoted words; Path is argv[0]). bConsole: the child shares the
    // terminal; bUsePipe: stdout and stderr are captured into pipestream.
    virtual bool StartProcess(const std::string& Path, const std::string& CommandLine, bool bConsole,
                              bool bUsePipe) = 0;
    virtual void KillProcess() = 0;
    // Waits at most maxWaitMs for the started process to end by itself;
    // true when it has. A transport that cannot wait only looks.
    virtual bool WaitProcessExit(int32_t maxWaitMs) { return !ProcessRunning(); }
    virtual bool ProcessRunning() = 0;
    // A pidfd of the launched process (0 when none).
    virtual int32_t ProcessHandle() = 0;
    virtual int32_t ProcessID() = 0;
    virtual void ConnectSocket(const std::string& Host, int32_t Port) = 0;
    virtual void EnableProcessEvent(bool Enabled) = 0;

    // For a caller that waits for a reply: waits at most maxWaitMs for
    // incoming data on a channel that can be waited on more directly than
    // through the pump, and delivers it (raising receive). False when the
    // transport has no such path or nothing came; the caller then pumps.
    virtual bool waitForData(int maxWaitMs) { return false; }

protected:
    JDWPConEvents* events_ = nullptr;
};

} // namespace jdwpkrvdbg
