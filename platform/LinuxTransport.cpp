// The Linux transport: the JDWPCon that puts together the launched process
// (ChildProcess), the JDWP socket (SocketConnection) and the shared-memory
// channel (ShmemConnection).
//
// Everything is non-blocking and driven by MessagePump callbacks, and every
// event is raised from such a callback, after the part's state has been
// brought up to date: an event handler may call back into the transport
// (send, close, kill) or pump again, and a nested pass may run the same
// callback once more.
#include "jdwpkrvdbg/platform/LinuxTransport.h"

#include "ChildProcess.h"
#include "ShmemConnection.h"
#include "SocketConnection.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>

namespace jdwpkrvdbg {

namespace {

const char* const kLibraryPathVariable = "JDWPKRVDBG_SHMEM_DIR";

} // namespace

std::string defaultShmemLibraryDir()
{
    // Next to this library when installed; in its shmem/ folder in a build tree.
    Dl_info info{};
    if (::dladdr(reinterpret_cast<void*>(&defaultShmemLibraryDir), &info) == 0 || !info.dli_fname)
        return std::string();
    std::string dir = info.dli_fname;
    const size_t slash = dir.rfind('/');
    dir = slash == std::string::npos ? std::string(".") : dir.substr(0, slash);
    for (const std::string& candidate : {dir, dir + "/shmem"}) {
        if (::access((candidate + "/libdt_shmem.so").c_str(), R_OK) == 0)
            return candidate;
    }
    return std::string();
}

LinuxTransport::LinuxTransport(MessagePump& pump) : pump_(pump)
{
    using namespace platform_detail;
    process_ = std::make_unique<ChildProcess>(
        pump_,
        [this](const std::string& text, bool error) {
            if (!events_)
                return;
            if (error)
                events_->pipestreamError(text);
            else
                events_->pipestream(text);
        },
        [this] {
            if (!shmem_->name().empty())
                ShmemChannel::removeStale(shmem_->name());
            if (events_)
                events_->terminated();
        });
    // Both connections report through the same three events.
    const ConnectionEvents relay{[this] {
                                     if (events_)
                                         events_->connected();
                                 },
                                 [this](const std::string& bytes) {
                                     if (events_)
                                         events_->receive(bytes);
                                 },
                                 [this] {
                                     if (events_)
                                         events_->disconnected();
                                 }};
    socket_ = std::make_unique<SocketConnection>(pump_, relay, statusText_);
    shmem_ = std::make_unique<ShmemConnection>(pump_, relay, statusText_);
}

LinuxTransport::~LinuxTransport()
{
    EnableProcessEvent(false);
    socket_->close();
    shmem_->close();
    process_.reset();
}

// ---------------------------------------------------------------------------
// Library path

void LinuxTransport::setLibraryPath(const std::string& dir)
{
    libraryPath_ = dir;
    libraryPathSet_ = true;
}

std::string LinuxTransport::libraryPath() const
{
    if (libraryPathSet_)
        return libraryPath_;
    if (const char* env = std::getenv(kLibraryPathVariable); env && *env)
        return env;
    return defaultShmemLibraryDir();
}

// ---------------------------------------------------------------------------
// Process

bool LinuxTransport::StartProcess(const std::string& Path, const std::string& CommandLine, bool bConsole, bool bUsePipe)
{
    platform_detail::ChildLaunch launch;
    if (!platform_detail::describeLaunch(Path, CommandLine, libraryPath(), launch, statusText_))
        return false;
    // One launched VM per transport: a previous one is ended before the next.
    KillProcess();
    return process_->start(std::move(launch), bConsole, bUsePipe, statusText_);
}

void LinuxTransport::KillProcess()
{
    // A VM killed while its channel waited for a debugger cannot remove it.
    if (process_->kill() && !shmem_->name().empty())
        ShmemChannel::removeStale(shmem_->name());
}

bool LinuxTransport::WaitProcessExit(int32_t maxWaitMs)
{
    return process_->waitExit(maxWaitMs);
}

bool LinuxTransport::ProcessRunning()
{
    return process_->running();
}

int32_t LinuxTransport::ProcessHandle()
{
    return process_->pidFd() >= 0 ? process_->pidFd() : 0;
}

int32_t LinuxTransport::ProcessID()
{
    return static_cast<int32_t>(process_->pid());
}

int LinuxTransport::lastExitStatus() const
{
    return process_->lastExitStatus();
}

// ---------------------------------------------------------------------------
// Connections

void LinuxTransport::ConnectSocket(const std::string& Host, int32_t Port)
{
    socket_->connect(Host, Port);
}

void LinuxTransport::ConnectShared(const std::string& SharedName)
{
    shmem_->connect(SharedName);
}

bool LinuxTransport::SendData(const std::string& Data)
{
    // One record per call on the shared-memory channel.
    if (shmem_->connected())
        return shmem_->send(Data);
    return socket_->send(Data);
}

size_t LinuxTransport::pendingSendBytes() const
{
    return socket_->pendingSendBytes();
}

bool LinuxTransport::TransportConnected()
{
    return socket_->connected() || shmem_->connected();
}

void LinuxTransport::CloseTransport()
{
    socket_->close();
    shmem_->close();
}

std::string LinuxTransport::StatusText()
{
    return statusText_;
}

bool LinuxTransport::waitForData(int maxWaitMs)
{
    if (shmem_->connected())
        return shmem_->waitAndRead(maxWaitMs);
    // A connected socket with nothing left to dispatch or to send is waited
    // on directly, so a caller can wait in slices longer than the 1 ms of a
    // pump pass: on this kind of machine a poll() with a 1 ms time-out wakes
    // about 10 us later on data than one with 5 ms or more, a third of a
    // local round trip.
    if (idleId_ != 0 || socket_->pendingSendBytes() != 0 || !socket_->waitAndRead(maxWaitMs))
        return false;
    // As in a pump pass, the packets that came are dispatched before the
    // socket is read again (an end of file behind them comes after them).
    if (idleId_ != 0 && events_)
        events_->processevent();
    return true;
}

// ---------------------------------------------------------------------------
// processevent

void LinuxTransport::EnableProcessEvent(bool Enabled)
{
    if (Enabled && idleId_ == 0) {
        idleId_ = pump_.addIdle([this] {
            if (events_)
                events_->processevent();
        });
    } else if (!Enabled && idleId_ != 0) {
        pump_.removeIdle(idleId_);
        idleId_ = 0;
    }
}

} // namespace jdwpkrvdbg
