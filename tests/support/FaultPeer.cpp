// The fault-injecting VM peer: a loopback server that runs one script on
// one accepted connection.
#include "FaultPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "Process.h"

namespace jdwpkrvdbg::testing {

bool PeerLink::fill(int64_t deadline)
{
    char buf[65536];
    for (;;) {
        pollfd p{fd_, POLLIN, 0};
        const int64_t left = deadline - nowMs();
        const int ready = left > 0 ? ::poll(&p, 1, static_cast<int>(left)) : 0;
        const ssize_t got = ready > 0 ? ::recv(fd_, buf, sizeof buf, 0) : ready;
        if (got > 0) {
            pending_.append(buf, static_cast<size_t>(got));
            return true;
        }
        if (got == 0 || errno != EINTR)
            return false;
    }
}

std::string PeerLink::read(size_t n, int timeoutMs)
{
    const int64_t deadline = nowMs() + timeoutMs;
    while (pending_.size() < n && fill(deadline)) {}
    std::string out = pending_.substr(0, n);
    pending_.erase(0, n);
    return out;
}

bool PeerLink::send(const std::string& bytes)
{
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::send(fd_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

std::optional<Packet> PeerLink::next(int timeoutMs)
{
    const int64_t deadline = nowMs() + timeoutMs;
    bool broken = false;
    for (;;) {
        if (auto p = cutPacket(pending_, &broken))
            return p;
        if (broken || !fill(deadline))
            return std::nullopt;
    }
}

void PeerLink::waitHangUp(int timeoutMs)
{
    // POLLRDHUP alone: what the host sends meanwhile does not wake it.
    pollfd p{fd_, POLLRDHUP, 0};
    ::poll(&p, 1, timeoutMs);
}

bool PeerLink::answer(const Packet& command)
{
    return send(replyPacket(command.id, openingAnswer(command.set, command.cmd, nextRequestId_)));
}

bool PeerLink::open()
{
    if (!readHandshake() || !send("JDWP-Handshake"))
        return false;
    for (;;) {
        const auto c = next();
        if (!c || !answer(*c))
            return false;
        if (c->set == 1 && c->cmd == 9)
            return true;
    }
}

void PeerLink::serve(const std::function<bool(const Packet&)>& special, int quietMs)
{
    for (;;) {
        const auto c = next(quietMs);
        if (!c || (!(special && special(*c)) && !answer(*c)))
            return;
    }
}

// ---------------------------------------------------------------------------

FaultPeer::FaultPeer(Script script)
{
    listen_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t len = sizeof addr;
    if (::bind(listen_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 && ::listen(listen_, 1) == 0 &&
        ::getsockname(listen_, reinterpret_cast<sockaddr*>(&addr), &len) == 0)
        port_ = ntohs(addr.sin_port);
    thread_ = std::thread([this, script = std::move(script)] {
        // Accept with a bound, so a test whose host never connects ends.
        pollfd p{listen_, POLLIN, 0};
        if (::poll(&p, 1, 10000) == 1) {
            const int fd = ::accept4(listen_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd >= 0) {
                {
                    std::lock_guard<std::mutex> lock(mutex_);
                    conn_ = fd;
                }
                PeerLink link(fd);
                script(link);
                std::lock_guard<std::mutex> lock(mutex_);
                conn_ = -1;
                ::close(fd);
            }
        }
    });
}

FaultPeer::~FaultPeer()
{
    hangUp();
    ::shutdown(listen_, SHUT_RDWR);
    thread_.join();
    ::close(listen_);
}

void FaultPeer::hangUp()
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (conn_ >= 0)
        ::shutdown(conn_, SHUT_RDWR);
}

} // namespace jdwpkrvdbg::testing
