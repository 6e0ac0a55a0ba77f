// What the Linux transport's parts (process, socket, shared memory) share:
// read sizes and intervals, the events a connection raises, and the end of
// a descriptor the pump watches.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "jdwpkrvdbg/platform/MessagePump.h"
#include "jdwpkrvdbg/support/NonCopyable.h"

namespace jdwpkrvdbg::platform_detail {

inline constexpr size_t kReadChunk = 64 * 1024;
// Upper bound of one read batch, so that a peer that never pauses cannot
// keep a pump pass from returning; the rest comes on the next pass.
inline constexpr size_t kMaxReadBatch = 8 * 1024 * 1024;
// Fallback interval for noticing the child's exit when pidfd_open is missing.
inline constexpr uint32_t kExitPollMs = 10;

// Raised by a connection from pump callbacks only.
struct ConnectionEvents {
    std::function<void()> connected;
    std::function<void(const std::string& bytes)> receive;
    std::function<void()> disconnected;
};

// What each connection of the transport holds: the pump that watches it, the
// events it raises, and the status text a failure leaves for the transport.
// Not copyable: pump callbacks hold its address.
class PumpedConnection : NonCopyable {
public:
    using Events = ConnectionEvents;

protected:
    PumpedConnection(MessagePump& pump, Events events, std::string& status)
        : pump_(pump), events_(std::move(events)), status_(status)
    {
    }
    ~PumpedConnection() = default;

    MessagePump& pump_;
    Events events_;
    std::string& status_;
    int watch_ = 0;
};

// Stops watching `fd` and closes it; both are reset (0 and -1).
inline void unwatchAndClose(MessagePump& pump, int& watch, int& fd)
{
    if (watch != 0) {
        pump.removeWatch(watch);
        watch = 0;
    }
    if (fd >= 0) {
        ::close(fd);
        fd = -1;
    }
}

} // namespace jdwpkrvdbg::platform_detail
