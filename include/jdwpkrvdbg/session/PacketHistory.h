// A bounded history of the most recent JDWP packets sent and received, kept
// by the session for tracing: one line per packet (direction, id, set and
// command or error code, length, command name). Recording stores a few
// numbers only; the text is made when the history is read, or at once for a
// listener when one is set.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "jdwpkrvdbg/session/PacketEvent.h"

namespace jdwpkrvdbg {

class PacketHistory {
public:
    explicit PacketHistory(size_t capacity = 256) : capacity_(capacity) {}

    // "-> id=5 1/1 len=11 Version", "<- id=5 reply err=0 len=...".
    void record(const PacketEvent& packet);
    void recordSent(double id, int32_t commandSet, int32_t command, size_t length);
    void recordReceived(double id, double flags, int32_t commandSet, int32_t command, int32_t errorCode, size_t length);
    void recordNote(const std::string& text);

    // The recorded lines, oldest first.
    std::vector<std::string> lines() const;
    std::string dump() const;
    void clear();

    void setListener(std::function<void(const std::string&)> listener) { listener_ = std::move(listener); }

private:
    struct Entry {
        bool isNote = true;
        PacketEvent packet;
        std::string note;
    };
    static std::string format(const Entry& e);
    void push(Entry&& e);

    size_t capacity_;
    std::vector<Entry> ring_; // a ring once full; next_ is the oldest then
    size_t next_ = 0;
    std::function<void(const std::string&)> listener_;
};

} // namespace jdwpkrvdbg
