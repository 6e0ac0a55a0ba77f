// What the session tells its packet observers about each packet it sends or
// frames: the numbers of the packet, not a text, so that a tool can follow
// the exchange (the reply to a Resume, an error code) without reading the
// trace. The packet trace is one such observer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

namespace jdwpkrvdbg {

struct PacketEvent {
    enum class Direction : uint8_t { Sent, Received };
    Direction direction = Direction::Sent;
    double id = 0;
    // For a reply, the set and command of the command it answers.
    int32_t commandSet = 0;
    int32_t command = 0;
    bool reply = false;
    // As the session reads it (little-endian, so only zero or not zero is
    // the JDWP code); 0 for commands and events.
    int32_t errorCode = 0;
    // The whole packet, header included.
    size_t length = 0;
    // For an event packet from the VM, the kind of its first event (a thread
    // start or death comes alone, from its own request); else 0.
    int32_t eventKind = 0;
};

using PacketObserver = std::function<void(const PacketEvent&)>;

} // namespace jdwpkrvdbg
