// Cutting DAP messages out of a byte stream (see DapChannel.h).
#include "DapChannel.h"

#include <algorithm>
#include <cctype>

namespace krvdbg {

namespace {

std::string lower(std::string s)
{
    for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string trim(const std::string& s)
{
    const size_t first = s.find_first_not_of(" \t");
    if (first == std::string::npos)
        return {};
    return s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

// The Content-Length of a header block (lines ending in CR LF, or LF), or a
// reason why there is none.
bool contentLength(const std::string& block, size_t& length, std::string& why)
{
    bool found = false;
    size_t at = 0;
    while (at < block.size()) {
        size_t end = block.find('\n', at);
        if (end == std::string::npos)
            end = block.size();
        std::string line = block.substr(at, end - at);
        at = end + 1;
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty())
            continue;
        const size_t colon = line.find(':');
        if (colon == std::string::npos) {
            why = "a header line without a colon (\"" + line.substr(0, 60) + "\")";
            return false;
        }
        if (lower(trim(line.substr(0, colon))) != "content-length")
            continue; // other headers (Content-Type) are allowed and ignored
        const std::string value = trim(line.substr(colon + 1));
        if (value.empty() || value.size() > 12 ||
            !std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; })) {
            why = "Content-Length is not a number (\"" + value.substr(0, 40) + "\")";
            return false;
        }
        length = std::stoull(value);
        found = true;
    }
    if (!found)
        why = "a header block without Content-Length";
    return found;
}

} // namespace

std::string DapChannel::encode(const nlohmann::json& message)
{
    // Invalid UTF-8 from the debuggee (its console output, its strings) is
    // replaced rather than thrown about.
    const std::string body = message.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    std::string framed = "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
    framed.reserve(framed.size() + body.size());
    return framed.append(body);
}

std::optional<DapChannel::Item> DapChannel::takeBody()
{
    const size_t length = *bodyLength_;
    if (buffer_.size() - start_ < length)
        return std::nullopt;
    const std::string body = buffer_.substr(start_, length);
    start_ += length;
    bodyLength_.reset();
    Item item;
    try {
        item.message = nlohmann::json::parse(body);
    } catch (const nlohmann::json::exception& e) {
        item.error = std::string("the message body is not JSON (") + e.what() + ")";
        return item;
    }
    if (!item.message.is_object()) {
        item.error = "the message body is JSON but not an object";
        return item;
    }
    item.ok = true;
    return item;
}

std::optional<DapChannel::Item> DapChannel::next()
{
    // Drop what earlier messages used once it is worth the copy.
    if (start_ > 0 && (start_ == buffer_.size() || start_ > 64 * 1024)) {
        buffer_.erase(0, start_);
        start_ = 0;
    }
    if (skipping_ > 0) {
        const size_t drop = std::min(skipping_, buffer_.size() - start_);
        start_ += drop;
        skipping_ -= drop;
        if (skipping_ > 0)
            return std::nullopt;
    }
    if (bodyLength_)
        return takeBody();
    // Blank lines between messages are tolerated.
    while (start_ < buffer_.size() && (buffer_[start_] == '\r' || buffer_[start_] == '\n'))
        ++start_;
    size_t end = buffer_.find("\r\n\r\n", start_);
    size_t skip = 4;
    const size_t bareEnd = buffer_.find("\n\n", start_);
    if (bareEnd != std::string::npos && (end == std::string::npos || bareEnd < end)) {
        end = bareEnd;
        skip = 2;
    }
    if (end == std::string::npos) {
        if (buffer_.size() - start_ > kMaxHeaderBytes) {
            start_ = buffer_.size();
            return Item{false, {}, "more than 8 KiB of header without the empty line that ends it (dropped)"};
        }
        return std::nullopt;
    }
    if (end - start_ > kMaxHeaderBytes) {
        start_ = end + skip;
        return Item{false, {}, "more than 8 KiB of header without the empty line that ends it (dropped)"};
    }
    const std::string block = buffer_.substr(start_, end - start_);
    start_ = end + skip;
    size_t length = 0;
    std::string why;
    if (!contentLength(block, length, why))
        return Item{false, {}, "bad message header: " + why + " (the header was dropped)"};
    if (length > kMaxBodyBytes) {
        const size_t here = std::min(length, buffer_.size() - start_);
        start_ += here;
        skipping_ = length - here;
        return Item{false, {}, "a message of " + std::to_string(length) + " bytes is too long (it was skipped)"};
    }
    bodyLength_ = length;
    if (auto item = takeBody())
        return item;
    return std::nullopt;
}

} // namespace krvdbg
