// Big-endian JDWP bytes and the socket framing (see Wire.h).
#include "Wire.h"

namespace jdwpkrvdbg::testing {

namespace {
// Far above any real packet; a length beyond it is garbage, not a wait.
constexpr uint32_t kMaxPacketBytes = 1u << 26;
} // namespace

std::string u8(int v)
{
    return std::string(1, static_cast<char>(v));
}

std::string be16(uint16_t v)
{
    return {static_cast<char>(v >> 8), static_cast<char>(v)};
}

std::string be32(uint32_t v)
{
    return be16(static_cast<uint16_t>(v >> 16)) + be16(static_cast<uint16_t>(v));
}

std::string be64(uint64_t v)
{
    return be32(static_cast<uint32_t>(v >> 32)) + be32(static_cast<uint32_t>(v));
}

std::string jstr(const std::string& s)
{
    return be32(static_cast<uint32_t>(s.size())) + s;
}

uint64_t readBe(const std::string& s, size_t at, size_t width)
{
    uint64_t v = 0;
    for (size_t i = 0; i < width && at + i < s.size(); ++i)
        v = (v << 8) | static_cast<unsigned char>(s[at + i]);
    return v;
}

std::string readJdwpString(const std::string& s, size_t& at)
{
    const size_t n = static_cast<size_t>(readBe(s, at, 4));
    std::string text = at + 4 + n <= s.size() ? s.substr(at + 4, n) : std::string();
    at += 4 + n;
    return text;
}

std::string replyPacket(uint32_t id, const std::string& payload, uint16_t error)
{
    return be32(static_cast<uint32_t>(kPacketHeaderBytes + payload.size())) + be32(id) + u8(kReplyFlag) + be16(error) +
           payload;
}

std::string commandPacket(uint32_t id, int set, int cmd, const std::string& payload)
{
    return be32(static_cast<uint32_t>(kPacketHeaderBytes + payload.size())) + be32(id) + u8(0) + u8(set) + u8(cmd) +
           payload;
}

std::string openingAnswer(int set, int cmd, uint32_t& nextRequestId, int idWidth)
{
    if (set == 1 && cmd == 7) {
        std::string sizes;
        for (int i = 0; i < 5; ++i)
            sizes += be32(static_cast<uint32_t>(idWidth));
        return sizes;
    }
    if (set == 1 && cmd == 1)
        return jstr("Java Debug Wire Protocol (Reference Implementation) version 17.0") + be32(17) + be32(0) +
               jstr("17.0.15") + jstr("OpenJDK 64-Bit Server VM");
    if (set == 15 && cmd == 1)
        return be32(nextRequestId++);
    return std::string();
}

std::optional<Packet> cutPacket(std::string& pending, bool* broken)
{
    if (broken)
        *broken = false;
    if (pending.size() < kPacketHeaderBytes)
        return std::nullopt;
    const auto length = static_cast<uint32_t>(readBe(pending, 0, 4));
    if (length < kPacketHeaderBytes || length > kMaxPacketBytes) {
        if (broken)
            *broken = true;
        return std::nullopt;
    }
    if (pending.size() < length)
        return std::nullopt;
    Packet p;
    p.id = static_cast<uint32_t>(readBe(pending, 4, 4));
    p.reply = (static_cast<uint8_t>(pending[8]) & kReplyFlag) != 0;
    if (p.reply) {
        p.error = static_cast<uint16_t>(readBe(pending, 9, 2));
    } else {
        p.set = static_cast<unsigned char>(pending[9]);
        p.cmd = static_cast<unsigned char>(pending[10]);
    }
    p.payload = pending.substr(kPacketHeaderBytes, length - kPacketHeaderBytes);
    pending.erase(0, length);
    return p;
}

} // namespace jdwpkrvdbg::testing
