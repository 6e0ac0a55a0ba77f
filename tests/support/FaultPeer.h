// A fault-injecting VM peer for tests: a loopback TCP server of ours that
// accepts one connection and speaks JDWP from a script, so a test can make
// the wire do what a real VM only does by accident: garbage instead of the
// handshake, EOF in the middle of a packet, impossible length fields,
// replies with unknown ids, twice, out of order or never, error codes,
// events in the middle of a synchronous call, VM_DEATH and EOF, or a peer
// that stops reading.
//
// The script runs on the peer's own thread and touches only its socket
// (never the library, which is single-threaded). Every read waits at most
// a bounded time, and the destructor shuts the connection down, so a test
// cannot hang on its peer.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "Wire.h"

namespace jdwpkrvdbg::testing {

// The accepted connection, as the script sees it.
class PeerLink {
public:
    explicit PeerLink(int fd) : fd_(fd) {}

    // Up to `n` bytes: fewer on EOF or when `timeoutMs` passes.
    std::string read(size_t n, int timeoutMs = 5000);
    bool readHandshake(int timeoutMs = 5000) { return read(14, timeoutMs) == "JDWP-Handshake"; }
    bool send(const std::string& bytes);
    // The host's next command (socket framing); nothing on EOF, time-out or
    // a broken frame.
    std::optional<Packet> next(int timeoutMs = 5000);
    // The answer an OpenJDK 17 VM gives to the commands of the opening
    // sequence (8-byte ids, version 17, event request ids counting from 1);
    // an empty reply to anything else.
    bool answer(const Packet& command);
    // Handshake, then answers until the opening sequence's Resume.
    bool open();
    // Answers every command until EOF or `quietMs` without one; `special`
    // may take a command over (return true when it did).
    void serve(const std::function<bool(const Packet&)>& special = nullptr, int quietMs = 10000);
    // Stops sending (the host reads EOF) but keeps reading.
    void shutdownWrite() { ::shutdown(fd_, SHUT_WR); }
    // Reads nothing until the host closes the connection or the test hangs
    // up (FaultPeer::hangUp), at most `timeoutMs`.
    void waitHangUp(int timeoutMs);

private:
    // One more piece from the host into pending_: false on EOF, an error or
    // the deadline.
    bool fill(int64_t deadline);

    int fd_;
    std::string pending_;
    uint32_t nextRequestId_ = 1;
};

class FaultPeer {
public:
    using Script = std::function<void(PeerLink&)>;

    explicit FaultPeer(Script script);
    ~FaultPeer();

    int port() const { return port_; }

    // Shuts the connection down under the script: a read or waitHangUp
    // returns at once.
    void hangUp();

private:
    int listen_ = -1;
    int conn_ = -1;
    int port_ = 0;
    std::mutex mutex_;
    std::thread thread_;
};

} // namespace jdwpkrvdbg::testing
