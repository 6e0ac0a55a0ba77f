// PacketHistory (stub).
#include "jdwpkrvdbg/session/PacketHistory.h"

namespace jdwpkrvdbg {
void PacketHistory::recordSent(double, int32_t, int32_t, size_t) {}
void PacketHistory::recordReceived(double, double, int32_t, int32_t, int32_t, size_t) {}
void PacketHistory::recordNote(const std::string& t) { push(t); }
std::string PacketHistory::dump() const { return {}; }
void PacketHistory::push(std::string line)
{
    if (listener_)
        listener_(line);
    lines_.push_back(std::move(line));
    while (lines_.size() > capacity_)
        lines_.pop_front();
}
} // namespace jdwpkrvdbg
