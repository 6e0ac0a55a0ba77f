// A bounded history of the most recent JDWP packets sent and received, kept
// by the session for tracing: one line per packet (direction, id, set and
// command or error code, length, command name). A listener, when set, sees
// every line as it is recorded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>

namespace jdwpkrvdbg {

class PacketHistory {
public:
    explicit PacketHistory(size_t capacity = 256) : capacity_(capacity) {}

    // "-> id=5 1/1 len=11 Version", "<- id=5 reply err=0 len=...".
    void recordSent(double id, int32_t commandSet, int32_t command, size_t length);
    void recordReceived(double id, double flags, int32_t commandSet, int32_t command, int32_t errorCode,
                        size_t length);
    void recordNote(const std::string& text);

    const std::deque<std::string>& lines() const { return lines_; }
    std::string dump() const;
    void clear() { lines_.clear(); }

    void setListener(std::function<void(const std::string&)> listener) { listener_ = std::move(listener); }

private:
    void push(std::string line);
    size_t capacity_;
    std::deque<std::string> lines_;
    std::function<void(const std::string&)> listener_;
};

} // namespace jdwpkrvdbg
