// LinuxTransport: the JDWPCon of the Linux platform layer. It launches the VM
// (console captured through a pipe when asked; a VM never outlives its host,
// and one without a console has a process group of its own), watches the
// process through a pidfd, connects by non-blocking TCP, and delivers every
// event from MessagePump callbacks on the host's thread — never from inside
// the operation that the host called.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include <cstdint>
#include <string>
#include <deque>
#include <memory>
#include <vector>

#include "jdwpkrvdbg/platform/MessagePump.h"
#include "jdwpkrvdbg/session/JDWPCon.h"

namespace jdwpkrvdbg {

class ShmemChannel;

// The folder that holds the VM side of the shared-memory transport
// (libdt_shmem.so), prepended to the VM's LD_LIBRARY_PATH; "" when unknown.
std::string defaultShmemLibraryDir();

// Splits a command line into words the way a POSIX shell does, without any
// expansion: blanks separate words; '...' is literal; "..." keeps its text,
// where a backslash escapes only $ ` " \ and newline; a backslash outside
// quotes takes the next character literally. False (with `error` set) for an
// unterminated quote; `words` then holds nothing.
bool splitCommandLine(const std::string& commandLine, std::vector<std::string>& words, std::string& error);

class LinuxTransport : public JDWPCon {
public:
    explicit LinuxTransport(MessagePump& pump = MessagePump::instance());
    ~LinuxTransport() override;
    LinuxTransport(const LinuxTransport&) = delete;
    LinuxTransport& operator=(const LinuxTransport&) = delete;

    void ConnectShared(const std::string& SharedName) override;
    // Writes what the socket takes now and queues the rest, flushed when the
    // socket is writable again. The queue is unbounded: JDWP commands are
    // small and the VM reads continuously, so it only holds a burst.
    bool SendData(const std::string& Data) override;
    bool TransportConnected() override;
    void CloseTransport() override;
    std::string StatusText() override;
    bool StartProcess(const std::string& Path, const std::string& CommandLine, bool bConsole,
                      bool bUsePipe) override;
    void KillProcess() override;
    bool ProcessRunning() override;
    int32_t ProcessHandle() override;
    int32_t ProcessID() override;
    void ConnectSocket(const std::string& Host, int32_t Port) override;
    void EnableProcessEvent(bool Enabled) override;
    bool waitForData(int maxWaitMs) override;

    // Folder prepended to the launched process's LD_LIBRARY_PATH. Precedence:
    // this setter, then the environment variable JDWPKRVDBG_SHMEM_DIR, then
    // defaultShmemLibraryDir().
    void setLibraryPath(const std::string& dir);
    std::string libraryPath() const;

    // Bytes accepted by SendData and not yet written to the socket.
    size_t pendingSendBytes() const { return sendQueue_.size() - sendOffset_; }

    // Wait status of the last process reaped by the pump (-1 before any).
    int lastExitStatus() const { return lastExitStatus_; }

private:
    enum class SocketState { Idle, Connecting, Connected, Failed };

    struct Address {
        sockaddr_storage storage;
        socklen_t length;
    };

    void startNextAddress(int previousError);
    void onSocketReady(short revents);
    void finishConnect();
    void readSocket();
    bool flushSendQueue();
    void updateSocketEvents();
    void closeSocket();
    void failConnect(int error);

    void onPipeReady();
    void drainPipe(std::string& text, bool& eof);
    void closePipe();
    void onProcessExited();
    bool reapProcess(bool block);
    void forgetProcess();
    void stopProcessWatch();

    MessagePump& pump_;
    std::string statusText_;
    std::string libraryPath_;
    bool libraryPathSet_ = false;

    // Socket.
    SocketState socketState_ = SocketState::Idle;
    int socketFd_ = -1;
    int socketWatch_ = 0;
    uint64_t socketGeneration_ = 0; // changes whenever the socket is closed
    std::string host_;
    int32_t port_ = 0;
    std::vector<Address> addresses_;
    size_t addressIndex_ = 0;
    std::string sendQueue_;
    size_t sendOffset_ = 0;

    // Process.
    pid_t pid_ = 0;
    int pidFd_ = -1;
    int processWatch_ = 0; // pidfd watch, or a polling timer without pidfd
    bool processWatchIsTimer_ = false;
    int pipeFd_ = -1;
    int pipeWatch_ = 0;
    int lastExitStatus_ = -1;

    int idleId_ = 0;
    std::vector<char> readChunk_; // reused by readSocket (never across an event)

    // Shared-memory channel.
    void onShmemReady();
    bool deliverShmemRecords();
    void closeShmem();
    std::unique_ptr<ShmemChannel> shmem_;
    int shmemWatch_ = 0;
    int shmemConnectIdle_ = 0;
    bool shmemConnected_ = false;
    std::string shmemName_;
    // Records read and not yet delivered: a receive handler may pump again,
    // and nested reads must not overtake records read before them.
    std::deque<std::string> shmemInbox_;
};

} // namespace jdwpkrvdbg
