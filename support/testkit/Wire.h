// JDWP bytes for the programs that play a VM or a debugger by hand: the
// tests' scripted and fault-injecting peers, the benchmarks' raw client and
// the fuzz harness. Big-endian writers and readers, the socket framing of
// commands and replies, and the cutting of whole packets from a stream.
// The shared-memory framing lives with its ring (platform/ShmemRing.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace jdwpkrvdbg::testing {

std::string u8(int v);
std::string be16(uint16_t v);
std::string be32(uint32_t v);
std::string be64(uint64_t v);
// A JDWP string: 4-byte length, then the bytes.
std::string jstr(const std::string& s);

// `width` bytes big-endian at `at`; bytes past the end read as missing.
uint64_t readBe(const std::string& s, size_t at, size_t width);
// A JDWP string at `at`; moves `at` past it.
std::string readJdwpString(const std::string& s, size_t& at);

constexpr size_t kPacketHeaderBytes = 11;
constexpr uint8_t kReplyFlag = 0x80;
constexpr int kEventSet = 64;
constexpr int kCompositeCommand = 100;

std::string replyPacket(uint32_t id, const std::string& payload, uint16_t error = 0);
std::string commandPacket(uint32_t id, int set, int cmd, const std::string& payload);
inline std::string eventPacket(const std::string& compositePayload, uint32_t id = 0x7000)
{
    return commandPacket(id, kEventSet, kCompositeCommand, compositePayload);
}

// One socket-framed packet.
struct Packet {
    uint32_t id = 0;
    bool reply = false;
    int set = 0;        // commands
    int cmd = 0;        // commands
    uint16_t error = 0; // replies
    std::string payload;
};

// A command as the debugger sent it.
struct SentCommand {
    uint32_t id = 0;
    int set = 0;
    int cmd = 0;
    std::string payload;
};

// The answer of an OpenJDK 17 VM with `idWidth`-byte identifiers to a
// command of the opening sequence: ID sizes, version, an event request (ids
// counting up from `nextRequestId`); an empty payload to anything else.
std::string openingAnswer(int set, int cmd, uint32_t& nextRequestId, int idWidth = 8);

// Cuts the first whole packet off `pending`; nothing while it is incomplete.
// A length that cannot be a packet sets `broken` and leaves `pending` alone.
std::optional<Packet> cutPacket(std::string& pending, bool* broken = nullptr);

} // namespace jdwpkrvdbg::testing
