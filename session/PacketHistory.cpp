// The bounded trace of recent packets.
#include "jdwpkrvdbg/session/PacketHistory.h"

#include "jdwpkrvdbg/protocol/ByteStrings.h"
#include "jdwpkrvdbg/protocol/JDWPMessage.h"

namespace jdwpkrvdbg {

void PacketHistory::record(const PacketEvent& packet)
{
    Entry e;
    e.isNote = false;
    e.packet = packet;
    push(std::move(e));
}

void PacketHistory::recordSent(double id, int32_t commandSet, int32_t command, size_t length)
{
    record({PacketEvent::Direction::Sent, id, commandSet, command, false, 0, length});
}

void PacketHistory::recordReceived(double id, double flags, int32_t commandSet, int32_t command, int32_t errorCode,
                                   size_t length)
{
    record({PacketEvent::Direction::Received, id, commandSet, command, flags == 128, errorCode, length});
}

void PacketHistory::recordNote(const std::string& text)
{
    Entry e;
    e.note = text;
    push(std::move(e));
}

std::string PacketHistory::format(const Entry& e)
{
    if (e.isNote)
        return "-- " + e.note;
    const PacketEvent& p = e.packet;
    std::string line = (p.direction == PacketEvent::Direction::Sent ? "-> id=" : "<- id=") + NumberText(p.id);
    const bool reply = p.direction == PacketEvent::Direction::Received && p.reply;
    if (reply)
        line += " reply err=" + std::to_string(p.errorCode);
    else
        line += " " + std::to_string(p.commandSet) + "/" + std::to_string(p.command);
    line += " len=" + std::to_string(p.length);
    const std::string name = reply || p.commandSet != CMDSET_Event ? describeCommand(p.commandSet, p.command)
                                                                   : std::string("Composite Event");
    if (!name.empty())
        line += " " + name;
    return line;
}

void PacketHistory::push(Entry&& e)
{
    if (listener_)
        listener_(format(e));
    if (capacity_ == 0)
        return;
    if (ring_.size() < capacity_) {
        ring_.push_back(std::move(e));
        return;
    }
    ring_[next_] = std::move(e);
    next_ = (next_ + 1) % capacity_;
}

std::vector<std::string> PacketHistory::lines() const
{
    std::vector<std::string> out;
    out.reserve(ring_.size());
    for (size_t i = 0; i < ring_.size(); ++i)
        out.push_back(format(ring_[(next_ + i) % ring_.size()]));
    return out;
}

std::string PacketHistory::dump() const
{
    std::string out;
    for (const auto& line : lines())
        out += line + "\n";
    return out;
}

void PacketHistory::clear()
{
    ring_.clear();
    next_ = 0;
}

} // namespace jdwpkrvdbg
