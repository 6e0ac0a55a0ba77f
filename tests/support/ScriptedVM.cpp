// The scripted VM peer.
#include "ScriptedVM.h"

#include "jdwpkrvdbg/platform/MessagePump.h"

namespace jdwpkrvdbg::testing {

ScriptedVM::ScriptedVM(std::shared_ptr<ScriptedTransport> transport) : transport_(std::move(transport))
{
    transport_->onSend = [this](const std::string& data) { onSend(data); };
}

ScriptedVM::~ScriptedVM()
{
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
    for (const auto& [set, cmd] : {std::pair{1, 7}, std::pair{1, 1}, std::pair{15, 1}})
        on(set, cmd, [this](const SentCommand& c, std::string& out, uint16_t&) {
            out = openingAnswer(c.set, c.cmd, nextRequestId_);
            return true;
        });
    for (const auto& [set, cmd] : {std::pair{15, 2}, std::pair{1, 9}, std::pair{1, 8}})
        onPayload(set, cmd, "");
}

void ScriptedVM::onSend(const std::string& data)
{
    if (!handshakeSeen_ && data == "JDWP-Handshake") {
        handshakeSeen_ = true;
        return outbox_.post(data);
    }
    pending_ += data;
    while (auto packet = cutPacket(pending_)) {
        const SentCommand c{packet->id, packet->set, packet->cmd, std::move(packet->payload)};
        commands_.push_back(c);
        auto it = answers_.find({c.set, c.cmd});
        std::string payload;
        uint16_t error = 0;
        if (it != answers_.end() && it->second(c, payload, error))
            outbox_.post(replyPacket(c.id, payload, error));
    }
}

} // namespace jdwpkrvdbg::testing
