// The bounded trace of recent packets.
#include "jdwpkrvdbg/session/PacketHistory.h"

#include "jdwpkrvdbg/protocol/ByteStrings.h"
#include "jdwpkrvdbg/protocol/JDWPMessage.h"

namespace jdwpkrvdbg {

void PacketHistory::recordSent(double id, int32_t commandSet, int32_t command, size_t length)
{
    std::string line = "-> id=" + NumberText(id) + " " + std::to_string(commandSet) + "/" +
                       std::to_string(command) + " len=" + std::to_string(length);
    const std::string name = describeCommand(commandSet, command);
    if (!name.empty())
        line += " " + name;
    push(std::move(line));
}

void PacketHistory::recordReceived(double id, double flags, int32_t commandSet, int32_t command, int32_t errorCode,
                                   size_t length)
{
    std::string line = "<- id=" + NumberText(id);
    if (flags == 128)
        line += " reply err=" + std::to_string(errorCode);
    else
        line += " " + std::to_string(commandSet) + "/" + std::to_string(command);
    line += " len=" + std::to_string(length);
    const std::string name = flags == 128 || commandSet != CMDSET_Event ? describeCommand(commandSet, command)
                                                                        : std::string("Composite Event");
    if (!name.empty())
        line += " " + name;
    push(std::move(line));
}

void PacketHistory::recordNote(const std::string& text)
{
    push("-- " + text);
}

std::string PacketHistory::dump() const
{
    std::string out;
    for (const auto& line : lines_)
        out += line + "\n";
    return out;
}

void PacketHistory::push(std::string line)
{
    if (listener_)
        listener_(line);
    if (capacity_ == 0)
        return;
    if (lines_.size() >= capacity_)
        lines_.pop_front();
    lines_.push_back(std::move(line));
}

} // namespace jdwpkrvdbg
