// A scripted VM peer on top of the scripted transport: it answers the
// handshake, cuts the session's socket-framed commands out of what it sends,
// and answers each with a canned reply chosen by (command set, command).
// Unanswered commands are recorded, so tests can also reply later, late, or
// never. Replies and events are delivered through the session's pump path
// (receive, then processevent) as a real transport would.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ScriptedTransport.h"
#include "Wire.h"

namespace jdwpkrvdbg::testing {

class ScriptedVM {
public:
    // Called for a command; return true and fill payload/error to answer at
    // once, false to leave it unanswered.
    using Answer = std::function<bool(const SentCommand&, std::string& payload, uint16_t& error)>;

    explicit ScriptedVM(std::shared_ptr<ScriptedTransport> transport);
    ~ScriptedVM();

    // Canned answer for every command of (set, cmd).
    void on(int set, int cmd, Answer answer) { answers_[{set, cmd}] = std::move(answer); }
    void onPayload(int set, int cmd, std::string payload, uint16_t error = 0);

    // Every command the session sent, in order (after the handshake).
    const std::vector<SentCommand>& commands() const { return commands_; }
    std::vector<SentCommand> commandsOf(int set, int cmd) const;
    void clearCommands() { commands_.clear(); }

    // Delivers bytes to the session and dispatches what was queued.
    void deliver(const std::string& bytes);
    void reply(uint32_t id, const std::string& payload, uint16_t error = 0)
    {
        deliver(replyPacket(id, payload, error));
    }
    void event(const std::string& compositePayload, uint32_t id = 0x7000)
    {
        deliver(eventPacket(compositePayload, id));
    }

    // Standard answers of an OpenJDK 17 VM with 8-byte ids: ID sizes,
    // version, event requests (counting ids from 1), resume and suspend.
    void installDefaults();

private:
    void onSend(const std::string& data);
    std::shared_ptr<ScriptedTransport> transport_;
    std::map<std::pair<int, int>, Answer> answers_;
    std::vector<SentCommand> commands_;
    std::string pending_;
    bool handshakeSeen_ = false;
    uint32_t nextRequestId_ = 1;
    Outbox outbox_{[this](const std::string& bytes) { transport_->raiseReceive(bytes); }};
};

} // namespace jdwpkrvdbg::testing
