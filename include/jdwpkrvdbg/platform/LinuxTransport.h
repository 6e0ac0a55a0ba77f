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
#include <memory>
#include <string>
#include <vector>

#include "jdwpkrvdbg/platform/MessagePump.h"
#include "jdwpkrvdbg/session/JDWPCon.h"
#include "jdwpkrvdbg/support/NonCopyable.h"

namespace jdwpkrvdbg {

namespace platform_detail {
class ChildProcess;
class SocketConnection;
class ShmemConnection;
} // namespace platform_detail

// The folder that holds the VM side of the shared-memory transport
// (libdt_shmem.so), prepended to the VM's LD_LIBRARY_PATH; "" when unknown.
std::string defaultShmemLibraryDir();

// Splits a command line into words the way a POSIX shell does, without any
// expansion: blanks separate words; '...' is literal; "..." keeps its text,
// where a backslash escapes only $ ` " \ and newline; a backslash outside
// quotes takes the next character literally. False (with `error` set) for an
// unterminated quote; `words` then holds nothing.
bool splitCommandLine(const std::string& commandLine, std::vector<std::string>& words, std::string& error);

class LinuxTransport : public JDWPCon, private NonCopyable {
public:
    explicit LinuxTransport(MessagePump& pump = MessagePump::instance());
    ~LinuxTransport() override;

    void ConnectShared(const std::string& SharedName) override;
    // Writes what the socket takes now and queues the rest, flushed when the
    // socket is writable again. The queue is unbounded: JDWP commands are
    // small and the VM reads continuously, so it only holds a burst.
    bool SendData(const std::string& Data) override;
    bool TransportConnected() override;
    void CloseTransport() override;
    std::string StatusText() override;
    bool StartProcess(const std::string& Path, const std::string& CommandLine, bool bConsole, bool bUsePipe) override;
    void KillProcess() override;
    bool WaitProcessExit(int32_t maxWaitMs) override;
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
    size_t pendingSendBytes() const;

    // Wait status of the last process reaped by the pump (-1 before any).
    int lastExitStatus() const;

private:
    MessagePump& pump_;
    // The last failure of any part, for StatusText.
    std::string statusText_;
    std::string libraryPath_;
    bool libraryPathSet_ = false;
    int idleId_ = 0;

    // The three parts, each raising its events through this object's.
    std::unique_ptr<platform_detail::ChildProcess> process_;
    std::unique_ptr<platform_detail::SocketConnection> socket_;
    std::unique_ptr<platform_detail::ShmemConnection> shmem_;
};

} // namespace jdwpkrvdbg
