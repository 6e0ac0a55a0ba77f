// The Linux transport: launching the VM, capturing its console, watching it
// exit, and the JDWP socket connection.
//
// Everything is non-blocking and driven by MessagePump callbacks, and every
// event is raised from such a callback, after this object's state has been
// brought up to date: an event handler may call back into the transport
// (send, close, kill) or pump again, and a nested pass may run the same
// callback once more. After raising an event a callback therefore re-checks
// the socket generation before it touches the connection again.
#include "jdwpkrvdbg/platform/LinuxTransport.h"

#include "ChildLauncher.h"
#include "ShmemChannel.h"

#include <dlfcn.h>

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

extern char** environ;

namespace jdwpkrvdbg {

namespace {

constexpr size_t kReadChunk = 64 * 1024;
// Upper bound of one read batch, so that a peer that never pauses cannot
// keep a pump pass from returning; the rest comes on the next pass.
constexpr size_t kMaxBatch = 8 * 1024 * 1024;
// Fallback interval for noticing the child's exit when pidfd_open is missing.
constexpr uint32_t kExitPollMs = 10;

const char* const kLibraryPathVariable = "JDWPKRVDBG_SHMEM_DIR";

std::string errorText(int error)
{
    return std::strerror(error);
}

// True when the child has exited (or is not ours any more); the zombie is
// left in place so that the pid cannot be reused before we reap it.
bool hasExited(pid_t pid)
{
    siginfo_t info;
    std::memset(&info, 0, sizeof info);
    int r;
    do {
        r = ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT);
    } while (r < 0 && errno == EINTR);
    if (r < 0)
        return true;
    return info.si_pid == pid;
}

int openPidFd(pid_t pid)
{
#ifdef SYS_pidfd_open
    long fd = ::syscall(SYS_pidfd_open, pid, 0);
    return fd < 0 ? -1 : static_cast<int>(fd);
#else
    (void)pid;
    return -1;
#endif
}

std::string hostForDisplay(const std::string& host, int32_t port)
{
    return host + ":" + std::to_string(port);
}

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

bool splitCommandLine(const std::string& commandLine, std::vector<std::string>& words, std::string& error)
{
    words.clear();
    error.clear();
    std::string current;
    bool inWord = false;
    const size_t n = commandLine.size();
    size_t i = 0;
    while (i < n) {
        const char c = commandLine[i];
        if (c == ' ' || c == '\t' || c == '\n') {
            if (inWord) {
                words.push_back(std::move(current));
                current.clear();
                inWord = false;
            }
            ++i;
        } else if (c == '\'') {
            size_t end = commandLine.find('\'', i + 1);
            if (end == std::string::npos) {
                error = "unterminated single quote at position " + std::to_string(i + 1);
                words.clear();
                return false;
            }
            current.append(commandLine, i + 1, end - i - 1);
            inWord = true;
            i = end + 1;
        } else if (c == '"') {
            const size_t open = i;
            bool closed = false;
            inWord = true;
            ++i;
            while (i < n) {
                const char d = commandLine[i];
                if (d == '"') {
                    closed = true;
                    ++i;
                    break;
                }
                if (d == '\\' && i + 1 < n) {
                    const char e = commandLine[i + 1];
                    if (e == '$' || e == '`' || e == '"' || e == '\\') {
                        current += e;
                        i += 2;
                        continue;
                    }
                    if (e == '\n') {
                        i += 2;
                        continue;
                    }
                }
                current += d;
                ++i;
            }
            if (!closed) {
                error = "unterminated double quote at position " + std::to_string(open + 1);
                words.clear();
                return false;
            }
        } else if (c == '\\') {
            if (i + 1 >= n) {
                // A lone trailing backslash has nothing to escape: keep it.
                current += c;
                inWord = true;
                ++i;
            } else if (commandLine[i + 1] == '\n') {
                i += 2; // line continuation
            } else {
                current += commandLine[i + 1];
                inWord = true;
                i += 2;
            }
        } else {
            current += c;
            inWord = true;
            ++i;
        }
    }
    if (inWord)
        words.push_back(std::move(current));
    return true;
}

LinuxTransport::LinuxTransport(MessagePump& pump) : pump_(pump) {}

LinuxTransport::~LinuxTransport()
{
    EnableProcessEvent(false);
    closeSocket();
    closeShmem();
    closePipe();
    // Killing a still running VM is the session's decision; only a child that
    // already ended is reaped here, so that it does not stay a zombie.
    if (pid_ != 0 && hasExited(pid_))
        reapProcess(false);
    forgetProcess();
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

bool LinuxTransport::StartProcess(const std::string& Path, const std::string& CommandLine, bool bConsole,
                                  bool bUsePipe)
{
    if (Path.empty()) {
        statusText_ = "Cannot start a process: no program path given";
        return false;
    }
    std::vector<std::string> words;
    std::string splitError;
    if (!splitCommandLine(CommandLine, words, splitError)) {
        statusText_ = "Cannot start " + Path + ": " + splitError + " in the command line";
        return false;
    }

    // One launched VM per transport: a previous one is ended before the next.
    if (pid_ != 0)
        KillProcess();
    closePipe();

    platform_detail::ChildLaunch launch;
    launch.path = Path;
    launch.argv.push_back(Path);
    for (std::string& w : words)
        launch.argv.push_back(std::move(w));

    const std::string libDir = libraryPath();
    bool sawLibraryPath = false;
    for (char** e = environ; e && *e; ++e) {
        std::string_view entry(*e);
        constexpr std::string_view kLd = "LD_LIBRARY_PATH=";
        if (!libDir.empty() && entry.substr(0, kLd.size()) == kLd) {
            sawLibraryPath = true;
            std::string_view old = entry.substr(kLd.size());
            std::string value = "LD_LIBRARY_PATH=" + libDir;
            if (!old.empty()) {
                value += ':';
                value += old;
            }
            launch.env.push_back(std::move(value));
        } else {
            launch.env.emplace_back(entry);
        }
    }
    if (!libDir.empty() && !sawLibraryPath)
        launch.env.push_back("LD_LIBRARY_PATH=" + libDir);

    int pipeFds[2] = {-1, -1};
    if (bUsePipe && ::pipe2(pipeFds, O_CLOEXEC) != 0) {
        statusText_ = "Cannot start " + Path + ": no pipe for its console (" + errorText(errno) + ")";
        return false;
    }
    // Without a console the VM is kept away from the host's terminal: it
    // reads nothing from it, and Ctrl-C there (a signal to the terminal's
    // foreground process group) is the host's alone. With a console it shares
    // the terminal, and so the host's group, as a console program would.
    launch.stdinNull = !bConsole;
    launch.outputFd = pipeFds[1];
    launch.outputNull = !bUsePipe && !bConsole;
    launch.ownProcessGroup = !bConsole;

    int error = 0;
    const pid_t pid = platform_detail::launchChild(launch, error);
    if (pipeFds[1] >= 0)
        ::close(pipeFds[1]);
    if (pid == 0) {
        if (pipeFds[0] >= 0)
            ::close(pipeFds[0]);
        statusText_ = "Cannot start " + Path + ": " + errorText(error);
        return false;
    }

    pid_ = pid;
    if (pipeFds[0] >= 0) {
        ::fcntl(pipeFds[0], F_SETFL, ::fcntl(pipeFds[0], F_GETFL) | O_NONBLOCK);
        pipeFd_ = pipeFds[0];
        pipeWatch_ = pump_.addWatch(pipeFd_, POLLIN, [this](short) { onPipeReady(); });
    }
    pidFd_ = openPidFd(pid);
    if (pidFd_ >= 0) {
        processWatch_ = pump_.addWatch(pidFd_, POLLIN, [this](short) { onProcessExited(); });
        processWatchIsTimer_ = false;
    } else {
        processWatch_ = pump_.addTimer(kExitPollMs, [this] {
            if (pid_ != 0 && hasExited(pid_))
                onProcessExited();
        });
        processWatchIsTimer_ = true;
    }
    return true;
}

void LinuxTransport::KillProcess()
{
    if (pid_ == 0)
        return;
    // The pid stays ours until we reap it, so it cannot name another process.
    ::kill(pid_, SIGKILL);
    reapProcess(true);
    forgetProcess();
    // A VM killed while its channel waited for a debugger cannot remove it.
    if (!shmemName_.empty())
        ShmemChannel::removeStale(shmemName_);
}

bool LinuxTransport::ProcessRunning()
{
    return pid_ != 0 && !hasExited(pid_);
}

int32_t LinuxTransport::ProcessHandle()
{
    return pidFd_ >= 0 ? pidFd_ : 0;
}

int32_t LinuxTransport::ProcessID()
{
    return static_cast<int32_t>(pid_);
}

void LinuxTransport::drainPipe(std::string& text, bool& eof)
{
    eof = false;
    if (pipeFd_ < 0)
        return;
    char chunk[4096];
    while (text.size() < kMaxBatch) {
        ssize_t n = ::read(pipeFd_, chunk, sizeof chunk);
        if (n > 0) {
            text.append(chunk, static_cast<size_t>(n));
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        eof = true; // end of file, or an error that ends the capture
        return;
    }
}

void LinuxTransport::onPipeReady()
{
    std::string text;
    bool eof = false;
    drainPipe(text, eof);
    if (eof)
        closePipe();
    if (!text.empty() && events_)
        events_->pipestream(text);
}

void LinuxTransport::closePipe()
{
    if (pipeWatch_ != 0) {
        pump_.removeWatch(pipeWatch_);
        pipeWatch_ = 0;
    }
    if (pipeFd_ >= 0) {
        ::close(pipeFd_);
        pipeFd_ = -1;
    }
}

void LinuxTransport::onProcessExited()
{
    if (pid_ == 0)
        return;
    // All console text the child wrote is in the pipe now; it goes out before
    // the terminated event. The pipe itself stays open until end of file,
    // since a grandchild may still hold its write end.
    std::string text;
    bool eof = false;
    drainPipe(text, eof);
    if (eof)
        closePipe();
    reapProcess(true);
    forgetProcess();
    if (!shmemName_.empty())
        ShmemChannel::removeStale(shmemName_);
    if (!text.empty() && events_)
        events_->pipestream(text);
    if (events_)
        events_->terminated();
}

bool LinuxTransport::reapProcess(bool block)
{
    if (pid_ == 0)
        return true;
    int status = 0;
    pid_t r;
    do {
        r = ::waitpid(pid_, &status, block ? 0 : WNOHANG);
    } while (r < 0 && errno == EINTR);
    if (r == pid_) {
        lastExitStatus_ = status;
        return true;
    }
    return r < 0; // ECHILD: reaped elsewhere (e.g. SIGCHLD ignored)
}

void LinuxTransport::stopProcessWatch()
{
    if (processWatch_ != 0) {
        if (processWatchIsTimer_)
            pump_.removeTimer(processWatch_);
        else
            pump_.removeWatch(processWatch_);
        processWatch_ = 0;
    }
}

void LinuxTransport::forgetProcess()
{
    stopProcessWatch();
    if (pidFd_ >= 0) {
        ::close(pidFd_);
        pidFd_ = -1;
    }
    pid_ = 0;
}

// ---------------------------------------------------------------------------
// Socket

void LinuxTransport::ConnectSocket(const std::string& Host, int32_t Port)
{
    // A pending attempt is left to finish; only a failed or closed one is
    // replaced by a fresh socket.
    if (socketState_ == SocketState::Connecting || socketState_ == SocketState::Connected)
        return;
    closeSocket();
    host_ = Host;
    port_ = Port;
    addresses_.clear();
    addressIndex_ = 0;

    if (Port < 1 || Port > 65535) {
        socketState_ = SocketState::Failed;
        statusText_ = "Invalid port " + std::to_string(Port) + " (" + hostForDisplay(Host, Port) + ")";
        return;
    }

    std::string name = Host;
    if (name.size() >= 2 && name.front() == '[' && name.back() == ']')
        name = name.substr(1, name.size() - 2);
    const std::string service = std::to_string(Port);
    addrinfo hints;
    std::memset(&hints, 0, sizeof hints);
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo* result = nullptr;
    const char* node = name.empty() ? nullptr : name.c_str();
    int rc = ::getaddrinfo(node, service.c_str(), &hints, &result);
    if (rc == EAI_NONAME && node) {
        // Not a numeric address: a name lookup (may block on DNS briefly).
        hints.ai_flags = AI_NUMERICSERV;
        rc = ::getaddrinfo(node, service.c_str(), &hints, &result);
    }
    if (rc != 0) {
        socketState_ = SocketState::Failed;
        statusText_ = std::string(rc == EAI_SYSTEM ? errorText(errno) : ::gai_strerror(rc)) + " (" +
                      hostForDisplay(Host, Port) + ")";
        return;
    }
    for (addrinfo* ai = result; ai; ai = ai->ai_next) {
        if (ai->ai_addrlen > sizeof(sockaddr_storage))
            continue;
        Address a;
        std::memset(&a.storage, 0, sizeof a.storage);
        std::memcpy(&a.storage, ai->ai_addr, ai->ai_addrlen);
        a.length = ai->ai_addrlen;
        addresses_.push_back(a);
    }
    ::freeaddrinfo(result);
    startNextAddress(EHOSTUNREACH);
}

void LinuxTransport::startNextAddress(int previousError)
{
    int lastError = previousError;
    while (addressIndex_ < addresses_.size()) {
        const Address& a = addresses_[addressIndex_++];
        int fd = ::socket(a.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP);
        if (fd < 0) {
            lastError = errno;
            continue;
        }
        int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        int r = ::connect(fd, reinterpret_cast<const sockaddr*>(&a.storage), a.length);
        // EINTR leaves the connect running in the background, like EINPROGRESS.
        if (r == 0 || errno == EINPROGRESS || errno == EINTR) {
            socketFd_ = fd;
            socketState_ = SocketState::Connecting;
            // Even an immediate success is reported from the pump, like the rest.
            socketWatch_ = pump_.addWatch(fd, POLLOUT, [this](short revents) { onSocketReady(revents); });
            return;
        }
        lastError = errno;
        ::close(fd);
    }
    failConnect(lastError);
}

void LinuxTransport::failConnect(int error)
{
    socketState_ = SocketState::Failed;
    statusText_ = errorText(error) + " (" + hostForDisplay(host_, port_) + ")";
}

void LinuxTransport::onSocketReady(short revents)
{
    if (socketState_ == SocketState::Connecting) {
        finishConnect();
        return;
    }
    if (socketState_ != SocketState::Connected)
        return;
    if (revents & POLLOUT)
        flushSendQueue(); // a failure shows up as an error or end of file on read
    if (revents & (POLLIN | POLLHUP | POLLERR))
        readSocket();
}

void LinuxTransport::finishConnect()
{
    int error = 0;
    socklen_t length = sizeof error;
    if (::getsockopt(socketFd_, SOL_SOCKET, SO_ERROR, &error, &length) < 0)
        error = errno;
    if (error == EINPROGRESS || error == EALREADY)
        return; // a stale wake-up from an outer pass; still connecting
    if (error == 0) {
        socketState_ = SocketState::Connected;
        updateSocketEvents();
        if (events_)
            events_->connected();
        return;
    }
    pump_.removeWatch(socketWatch_);
    socketWatch_ = 0;
    ::close(socketFd_);
    socketFd_ = -1;
    startNextAddress(error);
}

void LinuxTransport::readSocket()
{
    if (readChunk_.size() != kReadChunk)
        readChunk_.resize(kReadChunk);
    std::string batch;
    bool closed = false;
    while (batch.size() < kMaxBatch) {
        ssize_t n = ::recv(socketFd_, readChunk_.data(), readChunk_.size(), 0);
        if (n > 0) {
            batch.append(readChunk_.data(), static_cast<size_t>(n));
            if (static_cast<size_t>(n) < readChunk_.size())
                break; // drained for now; poll is level-triggered for the rest
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            break;
        closed = true; // end of file, or a reset
        break;
    }
    const uint64_t generation = socketGeneration_;
    if (!batch.empty() && events_)
        events_->receive(batch);
    // The handler may have closed the socket, or a nested pass may already
    // have seen the end of file and reported it: report the drop only once.
    if (closed && generation == socketGeneration_ && socketState_ == SocketState::Connected) {
        closeSocket();
        if (events_)
            events_->disconnected();
    }
}

bool LinuxTransport::flushSendQueue()
{
    while (sendOffset_ < sendQueue_.size()) {
        ssize_t n = ::send(socketFd_, sendQueue_.data() + sendOffset_, sendQueue_.size() - sendOffset_,
                           MSG_NOSIGNAL);
        if (n > 0) {
            sendOffset_ += static_cast<size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            break;
        sendQueue_.clear();
        sendOffset_ = 0;
        updateSocketEvents();
        return false;
    }
    if (sendOffset_ >= sendQueue_.size()) {
        sendQueue_.clear();
        sendOffset_ = 0;
    } else if (sendOffset_ > kReadChunk && sendOffset_ * 2 > sendQueue_.size()) {
        sendQueue_.erase(0, sendOffset_);
        sendOffset_ = 0;
    }
    updateSocketEvents();
    return true;
}

void LinuxTransport::updateSocketEvents()
{
    if (socketWatch_ == 0)
        return;
    short events = POLLIN;
    if (sendOffset_ < sendQueue_.size())
        events |= POLLOUT;
    pump_.setWatchEvents(socketWatch_, events);
}

bool LinuxTransport::SendData(const std::string& Data)
{
    // One record per call on the shared-memory channel.
    if (shmemConnected_)
        return shmem_->writeRecord(Data);
    if (socketState_ != SocketState::Connected)
        return false;
    if (Data.empty())
        return true;
    if (sendOffset_ < sendQueue_.size()) {
        sendQueue_ += Data; // behind what is already waiting, to keep the order
        return true;
    }
    size_t done = 0;
    while (done < Data.size()) {
        ssize_t n = ::send(socketFd_, Data.data() + done, Data.size() - done, MSG_NOSIGNAL);
        if (n > 0) {
            done += static_cast<size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            break;
        return false; // broken connection: the read side reports the drop
    }
    if (done < Data.size()) {
        sendQueue_.assign(Data, done, std::string::npos);
        sendOffset_ = 0;
        updateSocketEvents();
    }
    return true;
}

bool LinuxTransport::TransportConnected()
{
    return socketState_ == SocketState::Connected || shmemConnected_;
}

void LinuxTransport::closeSocket()
{
    if (socketWatch_ != 0) {
        pump_.removeWatch(socketWatch_);
        socketWatch_ = 0;
    }
    if (socketFd_ >= 0) {
        ::close(socketFd_);
        socketFd_ = -1;
    }
    sendQueue_.clear();
    sendOffset_ = 0;
    socketState_ = SocketState::Idle;
    ++socketGeneration_;
}

void LinuxTransport::CloseTransport()
{
    closeSocket();
    closeShmem();
}

std::string LinuxTransport::StatusText()
{
    return statusText_;
}

// ---------------------------------------------------------------------------
// Shared memory

void LinuxTransport::ConnectShared(const std::string& SharedName)
{
    if (shmemConnected_)
        return;
    std::string why;
    if (!ShmemChannel::validName(SharedName, why)) {
        statusText_ = "Shared-memory name \"" + SharedName + "\" refused: " + why;
        return;
    }
    shmemName_ = SharedName;
    if (!shmem_)
        shmem_ = std::make_unique<ShmemChannel>();
    std::string error;
    if (!shmem_->attach(SharedName, error)) {
        statusText_ = error;
        return;
    }
    shmemConnected_ = true;
    shmemInbox_.clear();
    if (shmem_->notifyFd() >= 0)
        shmemWatch_ = pump_.addWatch(shmem_->notifyFd(), POLLIN, [this](short) { onShmemReady(); });
    // Events come from the pump, never from inside the call that caused them.
    shmemConnectIdle_ = pump_.addIdle([this] {
        pump_.removeIdle(shmemConnectIdle_);
        shmemConnectIdle_ = 0;
        if (shmemConnected_ && events_)
            events_->connected();
    });
}

bool LinuxTransport::deliverShmemRecords()
{
    bool delivered = false;
    while (!shmemInbox_.empty() && shmemConnected_) {
        std::string record = std::move(shmemInbox_.front());
        shmemInbox_.pop_front();
        delivered = true;
        if (events_)
            events_->receive(record);
    }
    return delivered;
}

void LinuxTransport::onShmemReady()
{
    if (!shmemConnected_ || !shmem_)
        return;
    std::vector<std::string> records;
    const bool open = shmem_->readRecords(records);
    for (auto& r : records)
        shmemInbox_.push_back(std::move(r));
    deliverShmemRecords();
    if (!open && shmemConnected_) {
        closeShmem();
        if (events_)
            events_->disconnected();
    }
}

bool LinuxTransport::waitForData(int maxWaitMs)
{
    if (!shmemConnected_ || !shmem_) {
        // A connected socket with nothing left to dispatch or to send is
        // waited on directly, so a caller can wait in slices longer than the
        // 1 ms of a pump pass: on this kind of machine a poll() with a 1 ms
        // time-out wakes about 10 us later on data than one with 5 ms or
        // more, a third of a local round trip.
        if (socketState_ != SocketState::Connected || socketFd_ < 0 || idleId_ != 0 || pendingSendBytes() != 0)
            return false;
        pollfd p{socketFd_, POLLIN, 0};
        if (::poll(&p, 1, maxWaitMs) <= 0)
            return false;
        onSocketReady(p.revents);
        // As in a pump pass, the packets that came are dispatched before the
        // socket is read again (an end of file behind them comes after them).
        if (idleId_ != 0 && events_)
            events_->processevent();
        return true;
    }
    if (!shmemInbox_.empty())
        return deliverShmemRecords();
    if (!shmem_->waitReadable(maxWaitMs))
        return false;
    onShmemReady();
    return true;
}

void LinuxTransport::closeShmem()
{
    if (shmemWatch_ != 0) {
        pump_.removeWatch(shmemWatch_);
        shmemWatch_ = 0;
    }
    if (shmemConnectIdle_ != 0) {
        pump_.removeIdle(shmemConnectIdle_);
        shmemConnectIdle_ = 0;
    }
    if (shmem_)
        shmem_->close();
    shmemConnected_ = false;
    shmemInbox_.clear();
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
