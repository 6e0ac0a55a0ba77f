// The wire framing of the Debug Adapter Protocol: messages are JSON bodies
// behind a "Content-Length: N" header block ended by an empty line. Bytes
// arrive in arbitrary pieces (a pipe, a socket); this class cuts them into
// whole messages and turns each into JSON, and says in words what was wrong
// with a header or a body it had to drop, so the adapter can answer a person
// instead of stalling or crashing.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace krvdbg {

class DapChannel {
public:
    // A header block this long without its empty line is not DAP.
    static constexpr size_t kMaxHeaderBytes = 8 * 1024;
    // A body this long is refused (and skipped) rather than buffered.
    static constexpr size_t kMaxBodyBytes = 64 * 1024 * 1024;

    struct Item {
        bool ok = false;
        nlohmann::json message; // when ok
        std::string error;      // when !ok: what was dropped and why
    };

    void feed(const char* data, size_t size) { buffer_.append(data, size); }
    void feed(const std::string& bytes) { buffer_ += bytes; }
    // The next whole message or error; nullopt while more bytes are needed.
    std::optional<Item> next();
    // Bytes held that do not yet form a message.
    size_t pending() const { return buffer_.size() - start_; }

    // The framed bytes of one message.
    static std::string encode(const nlohmann::json& message);

private:
    std::optional<Item> takeBody();
    std::string buffer_;
    size_t start_ = 0;
    // The body length once its header was read; bodies too long to keep
    // are skipped as they arrive.
    std::optional<size_t> bodyLength_;
    size_t skipping_ = 0;
};

} // namespace krvdbg
