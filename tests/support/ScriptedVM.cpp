// The scripted VM peer.
#include "ScriptedVM.h"

#include "jdwpkrvdbg/platform/MessagePump.h"

namespace jdwpkrvdbg::testing {

namespace {
uint32_t readBe32(const std::string& s, size_t at)
{
    uint32_t v = 0;
    for (size_t i = 0; i < 4; ++i)
        v = (v << 8) | static_cast<unsigned char>(s[at + i]);
    return v;
}
} // namespace

std::string be32(uint32_t v)
{
    return {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8), static_cast<char>(v)};
}

std::string be64(uint64_t v) { return be32(static_cast<uint32_t>(v >> 32)) + be32(static_cast<uint32_t>(v)); }

std::string jstr(const std::string& s) { return be32(static_cast<uint32_t>(s.size())) + s; }

std::string replyPacket(uint32_t id, const std::string& payload, uint16_t error)
{
    return be32(static_cast<uint32_t>(11 + payload.size())) + be32(id) + '\x80' + static_cast<char>(error >> 8) +
           static_cast<char>(error & 0xff) + payload;
}

std::string commandPacket(uint32_t id, int set, int cmd, const std::string& payload)
{
    return be32(static_cast<uint32_t>(11 + payload.size())) + be32(id) + '\0' + static_cast<char>(set) +
           static_cast<char>(cmd) + payload;
}

ScriptedVM::ScriptedVM(std::shared_ptr<ScriptedTransport> transport) : transport_(std::move(transport))
{
    transport_->onSend = [this](const std::string& data) { onSend(data); };
}

ScriptedVM::~ScriptedVM()
{
    if (flushIdle_)
        MessagePump::instance().removeIdle(flushIdle_);
    transport_->onSend = nullptr;
}

void ScriptedVM::onPayload(int set, int cmd, std::string payload, uint16_t error)
{
    on(set, cmd, [payload, error](const SentCommand&, std::string& out, uint16_t& err) {
        out = payload;
        err = error;
        return true;
    });
}

std::vector<SentCommand> ScriptedVM::commandsOf(int set, int cmd) const
{
    std::vector<SentCommand> out;
    for (const auto& c : commands_)
        if (c.set == set && c.cmd == cmd)
            out.push_back(c);
    return out;
}

void ScriptedVM::deliver(const std::string& bytes)
{
    transport_->raiseReceive(bytes);
    transport_->pumpProcessEvents();
}

void ScriptedVM::installDefaults()
{
    onPayload(1, 7, be32(8) + be32(8) + be32(8) + be32(8) + be32(8));
    onPayload(1, 1, jstr("Scripted VM") + be32(17) + be32(0) + jstr("17.0.15") + jstr("OpenJDK 64-Bit Server VM"));
    on(15, 1, [this](const SentCommand&, std::string& out, uint16_t&) {
        out = be32(nextRequestId_++);
        return true;
    });
    onPayload(15, 2, "");
    onPayload(1, 9, "");
    onPayload(1, 8, "");
}

// Answers arrive on a later pump pass, never inside the send.
void ScriptedVM::post(std::string bytes)
{
    outbox_.push_back(std::move(bytes));
    if (flushIdle_)
        return;
    flushIdle_ = MessagePump::instance().addIdle([this] {
        MessagePump::instance().removeIdle(flushIdle_);
        flushIdle_ = 0;
        for (const auto& b : std::exchange(outbox_, {}))
            transport_->raiseReceive(b);
    });
}

void ScriptedVM::onSend(const std::string& data)
{
    if (!handshakeSeen_ && data == "JDWP-Handshake") {
        handshakeSeen_ = true;
        return post(data);
    }
    pending_ += data;
    while (pending_.size() >= 11) {
        const uint32_t len = readBe32(pending_, 0);
        if (len < 11 || pending_.size() < len)
            break;
        SentCommand c{readBe32(pending_, 4), static_cast<unsigned char>(pending_[9]),
                      static_cast<unsigned char>(pending_[10]), pending_.substr(11, len - 11)};
        pending_.erase(0, len);
        commands_.push_back(c);
        auto it = answers_.find({c.set, c.cmd});
        std::string payload;
        uint16_t error = 0;
        if (it != answers_.end() && it->second(c, payload, error))
            post(replyPacket(c.id, payload, error));
    }
}

} // namespace jdwpkrvdbg::testing
