// The scripted VM peer.
#include "ScriptedVM.h"

#include "jdwpkrvdbg/platform/MessagePump.h"

namespace jdwpkrvdbg::testing {

std::string be32(uint32_t v)
{
    std::string s(4, '\0');
    for (int i = 0; i < 4; ++i)
        s[i] = static_cast<char>((v >> (24 - 8 * i)) & 0xff);
    return s;
}

std::string be16(uint16_t v)
{
    return std::string{static_cast<char>(v >> 8), static_cast<char>(v & 0xff)};
}

std::string be64(uint64_t v)
{
    return be32(static_cast<uint32_t>(v >> 32)) + be32(static_cast<uint32_t>(v));
}

std::string jstr(const std::string& s)
{
    return be32(static_cast<uint32_t>(s.size())) + s;
}

std::string replyPacket(uint32_t id, const std::string& payload, uint16_t error)
{
    return be32(static_cast<uint32_t>(11 + payload.size())) + be32(id) + std::string(1, '\x80') + be16(error) +
           payload;
}

std::string commandPacket(uint32_t id, int set, int cmd, const std::string& payload)
{
    return be32(static_cast<uint32_t>(11 + payload.size())) + be32(id) + std::string(1, '\0') +
           std::string(1, static_cast<char>(set)) + std::string(1, static_cast<char>(cmd)) + payload;
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

void ScriptedVM::on(int set, int cmd, Answer answer)
{
    answers_[{set, cmd}] = std::move(answer);
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

void ScriptedVM::reply(uint32_t id, const std::string& payload, uint16_t error)
{
    deliver(replyPacket(id, payload, error));
}

void ScriptedVM::event(const std::string& compositePayload, uint32_t id)
{
    deliver(commandPacket(id, 64, 100, compositePayload));
}

void ScriptedVM::installDefaults()
{
    onPayload(1, 7, be32(8) + be32(8) + be32(8) + be32(8) + be32(8));
    onPayload(1, 1, jstr("Scripted VM") + be32(17) + be32(0) + jstr("17.0.15") + jstr("OpenJDK 64-Bit Server VM"));
    on(15, 1, [this](const SentCommand&, std::string& out, uint16_t& err) {
        out = be32(nextRequestId_++);
        err = 0;
        return true;
    });
    onPayload(15, 2, "");
    onPayload(1, 9, "");
    onPayload(1, 8, "");
}

void ScriptedVM::onSend(const std::string& data)
{
    auto post = [this](std::string bytes) {
        if (!autoDeliver)
            return;
        // Answers arrive on a later pump pass, never inside the send.
        outbox_.push_back(std::move(bytes));
        if (!flushIdle_) {
            flushIdle_ = MessagePump::instance().addIdle([this]() {
                MessagePump::instance().removeIdle(flushIdle_);
                flushIdle_ = 0;
                auto batch = std::move(outbox_);
                outbox_.clear();
                for (auto& b : batch)
                    transport_->raiseReceive(b);
            });
        }
    };
    if (!handshakeSeen_ && data == "JDWP-Handshake") {
        handshakeSeen_ = true;
        post(data);
        return;
    }
    pending_ += data;
    while (pending_.size() >= 11) {
        const auto* p = reinterpret_cast<const unsigned char*>(pending_.data());
        const uint32_t len = (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3];
        if (len < 11 || pending_.size() < len)
            break;
        SentCommand c;
        c.id = (uint32_t(p[4]) << 24) | (uint32_t(p[5]) << 16) | (uint32_t(p[6]) << 8) | p[7];
        c.set = p[9];
        c.cmd = p[10];
        c.payload = pending_.substr(11, len - 11);
        pending_.erase(0, len);
        commands_.push_back(c);
        auto it = answers_.find({c.set, c.cmd});
        if (it == answers_.end())
            continue;
        std::string payload;
        uint16_t error = 0;
        if (it->second(c, payload, error))
            post(replyPacket(c.id, payload, error));
    }
}

} // namespace jdwpkrvdbg::testing
