// The transport's JDWP socket (see SocketConnection.h).
#include "SocketConnection.h"

#include "TransportParts.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace jdwpkrvdbg::platform_detail {

namespace {

std::string hostForDisplay(const std::string& host, int32_t port)
{
    return host + ":" + std::to_string(port);
}

} // namespace

SocketConnection::SocketConnection(MessagePump& pump, Events events, std::string& status)
    : PumpedConnection(pump, std::move(events), status)
{
}

SocketConnection::~SocketConnection()
{
    close();
}

void SocketConnection::connect(const std::string& host, int32_t port)
{
    if (state_ == State::Connecting || state_ == State::Connected)
        return;
    close();
    host_ = host;
    port_ = port;
    addresses_.clear();
    addressIndex_ = 0;

    if (port < 1 || port > 65535) {
        state_ = State::Failed;
        status_ = "Invalid port " + std::to_string(port) + " (" + hostForDisplay(host, port) + ")";
        return;
    }

    std::string name = host;
    if (name.size() >= 2 && name.front() == '[' && name.back() == ']')
        name = name.substr(1, name.size() - 2);
    const std::string service = std::to_string(port);
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
        state_ = State::Failed;
        status_ = std::string(rc == EAI_SYSTEM ? std::strerror(errno) : ::gai_strerror(rc)) + " (" +
                  hostForDisplay(host, port) + ")";
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

void SocketConnection::startNextAddress(int previousError)
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
            fd_ = fd;
            state_ = State::Connecting;
            // Even an immediate success is reported from the pump, like the rest.
            watch_ = pump_.addWatch(fd, POLLOUT, [this](short revents) { onReady(revents); });
            return;
        }
        lastError = errno;
        ::close(fd);
    }
    failConnect(lastError);
}

void SocketConnection::failConnect(int error)
{
    state_ = State::Failed;
    status_ = std::string(std::strerror(error)) + " (" + hostForDisplay(host_, port_) + ")";
}

void SocketConnection::onReady(short revents)
{
    if (state_ == State::Connecting) {
        finishConnect();
        return;
    }
    if (state_ != State::Connected)
        return;
    if (revents & POLLOUT)
        flushSendQueue(); // a failure shows up as an error or end of file on read
    if (revents & (POLLIN | POLLHUP | POLLERR))
        read();
}

void SocketConnection::finishConnect()
{
    int error = 0;
    socklen_t length = sizeof error;
    if (::getsockopt(fd_, SOL_SOCKET, SO_ERROR, &error, &length) < 0)
        error = errno;
    if (error == EINPROGRESS || error == EALREADY)
        return; // a stale wake-up from an outer pass; still connecting
    if (error == 0) {
        state_ = State::Connected;
        updateEvents();
        events_.connected();
        return;
    }
    unwatchAndClose(pump_, watch_, fd_);
    startNextAddress(error);
}

void SocketConnection::read()
{
    if (readChunk_.size() != kReadChunk)
        readChunk_.resize(kReadChunk);
    std::string batch;
    bool closed = false;
    while (batch.size() < kMaxReadBatch) {
        ssize_t n = ::recv(fd_, readChunk_.data(), readChunk_.size(), 0);
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
    const uint64_t generation = generation_;
    if (!batch.empty())
        events_.receive(batch);
    // The handler may have closed the socket, or a nested pass may already
    // have seen the end of file and reported it: report the drop only once.
    if (closed && generation == generation_ && state_ == State::Connected) {
        close();
        events_.disconnected();
    }
}

bool SocketConnection::writeSome(const std::string& data, size_t& done)
{
    while (done < data.size()) {
        ssize_t n = ::send(fd_, data.data() + done, data.size() - done, MSG_NOSIGNAL);
        if (n > 0) {
            done += static_cast<size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        return n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    }
    return true;
}

bool SocketConnection::flushSendQueue()
{
    if (!writeSome(sendQueue_, sendOffset_)) {
        sendQueue_.clear();
        sendOffset_ = 0;
        updateEvents();
        return false;
    }
    if (sendOffset_ >= sendQueue_.size()) {
        sendQueue_.clear();
        sendOffset_ = 0;
    } else if (sendOffset_ > kReadChunk && sendOffset_ * 2 > sendQueue_.size()) {
        sendQueue_.erase(0, sendOffset_);
        sendOffset_ = 0;
    }
    updateEvents();
    return true;
}

void SocketConnection::updateEvents()
{
    if (watch_ == 0)
        return;
    short events = POLLIN;
    if (sendOffset_ < sendQueue_.size())
        events |= POLLOUT;
    pump_.setWatchEvents(watch_, events);
}

bool SocketConnection::send(const std::string& data)
{
    if (state_ != State::Connected)
        return false;
    if (data.empty())
        return true;
    if (sendOffset_ < sendQueue_.size()) {
        sendQueue_ += data; // behind what is already waiting, to keep the order
        return true;
    }
    size_t done = 0;
    if (!writeSome(data, done))
        return false; // broken connection: the read side reports the drop
    if (done < data.size()) {
        sendQueue_.assign(data, done, std::string::npos);
        sendOffset_ = 0;
        updateEvents();
    }
    return true;
}

bool SocketConnection::waitAndRead(int maxWaitMs)
{
    if (state_ != State::Connected || fd_ < 0)
        return false;
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, maxWaitMs) <= 0)
        return false;
    onReady(p.revents);
    return true;
}

void SocketConnection::close()
{
    unwatchAndClose(pump_, watch_, fd_);
    sendQueue_.clear();
    sendOffset_ = 0;
    state_ = State::Idle;
    ++generation_;
}

} // namespace jdwpkrvdbg::platform_detail
