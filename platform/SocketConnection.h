// The JDWP socket of the Linux transport: a non-blocking TCP connection to
// each address of the host in turn, a send queue for what the socket does
// not take at once, and reads in bounded batches. Every event comes from a
// MessagePump callback, after the connection's state is up to date; an
// event handler may close the connection or pump again, so a callback
// re-checks the generation (it changes at every close) after raising one.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "TransportParts.h"

namespace jdwpkrvdbg::platform_detail {

class SocketConnection : public PumpedConnection {
public:
    // A failure's text goes to `status`, which the transport reports.
    SocketConnection(MessagePump& pump, Events events, std::string& status);
    ~SocketConnection();

    // A pending attempt is left to finish; only a failed or closed one is
    // replaced by a fresh socket.
    void connect(const std::string& host, int32_t port);
    // Writes what the socket takes now and queues the rest, flushed when the
    // socket is writable again. False when not connected or broken.
    bool send(const std::string& data);
    bool connected() const { return state_ == State::Connected; }
    void close();
    size_t pendingSendBytes() const { return sendQueue_.size() - sendOffset_; }
    // Waits up to maxWaitMs for the connected socket and handles what came,
    // as a pump pass would; false when nothing came.
    bool waitAndRead(int maxWaitMs);

private:
    enum class State { Idle, Connecting, Connected, Failed };
    struct Address {
        sockaddr_storage storage;
        socklen_t length;
    };

    void startNextAddress(int previousError);
    void failConnect(int error);
    void onReady(short revents);
    void finishConnect();
    void read();
    // Writes from `done` on while the socket takes it; false when the
    // connection broke.
    bool writeSome(const std::string& data, size_t& done);
    bool flushSendQueue();
    void updateEvents();

    State state_ = State::Idle;
    int fd_ = -1;
    uint64_t generation_ = 0; // changes whenever the socket is closed
    std::string host_;
    int32_t port_ = 0;
    std::vector<Address> addresses_;
    size_t addressIndex_ = 0;
    std::string sendQueue_;
    size_t sendOffset_ = 0;
    std::vector<char> readChunk_; // reused by read (never across an event)
};

} // namespace jdwpkrvdbg::platform_detail
