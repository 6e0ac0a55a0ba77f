// The scripted session behind every fuzz target and the layout of a fuzz
// input. A target opens a session over an in-memory transport (socket or
// shared-memory framing, with the opening sequence answered as an OpenJDK 17
// VM answers it), hands it the bytes of the input and pumps until nothing is
// left to do. Every follow-up request the decoders make while they run
// (a string's text, a class's signature, methods, line tables, an object's
// toString call ...) is answered at once from "answers" that also come from
// the input, so the fuzzer drives the whole decode path and no call waits.
//
// Input pieces, all big-endian:
//   record  = length (2 bytes) + that many bytes (fewer when the input ends)
//   answer  = set (1) + command (1) + error (2) + request record + payload record
// An answer whose request bytes equal the request's payload is preferred
// (and may serve again); otherwise the first unused answer of the same
// (set, command); otherwise an empty reply without error, or none at all
// when the options ask for silence (then the waiting call runs out of time on
// a clock that moves 50 ms per reading).
//
// The recorder (record_corpus.cpp) writes seed files in the same layout.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include "Wire.h"
#include <jdwpkrvdbg/support/NonCopyable.h>

namespace jdwpkrvdbg::fuzz {

class ByteReader {
public:
    ByteReader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    bool atEnd() const { return pos_ >= size_; }
    size_t left() const { return size_ - pos_; }
    uint8_t byte();
    uint16_t u16();
    std::string take(size_t n);
    std::string record();
    std::string rest();

private:
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
};

// Writers of the same layout (for the recorder and the tests).
std::string u16be(uint16_t v);
std::string recordOf(const std::string& bytes);

// One canned reply to a follow-up request.
struct Answer {
    int set = 0;
    int cmd = 0;
    uint16_t error = 0;
    std::string request;
    std::string payload;
    bool used = false;
};
std::vector<Answer> readAnswers(ByteReader& in, size_t maxAnswers = 512);
std::string encodeAnswer(const Answer& answer);

enum class Framing { Socket, SharedMemory };

struct SessionOptions {
    Framing framing = Framing::Socket;
    // Run the opening sequence with standard answers; when false the input
    // itself carries the handshake and the replies to the session's commands.
    bool openSession = true;
    int idWidth = 8;
    // Follow-ups without an answer stay unanswered instead of getting an
    // empty reply.
    bool silentWhenUnknown = false;
};

// The option byte that starts most inputs: bits 0-2 the identifier width
// (0 means the standard 8), bit 3 silence for unknown follow-ups.
SessionOptions optionsFromByte(uint8_t b, Framing framing = Framing::Socket);

// The (command set, command) pairs that the dispatcher routes to a decoder,
// plus a few it does not know; the reply target picks one by index.
const std::vector<std::pair<int, int>>& replyPairs();

// Class-name patterns of the debuggees the seed corpus was recorded from.
const std::vector<std::string>& targetClasses();

using testing::SentCommand;

// Socket and shared-memory framing of replies and commands.
std::string socketReply(uint32_t id, uint16_t error, const std::string& payload);
std::string socketCommand(uint32_t id, int set, int cmd, const std::string& payload);
std::string shmemReply(uint32_t id, uint16_t error, const std::string& payload);
std::string shmemCommand(uint32_t id, int set, int cmd, const std::string& payload);
// Cuts whole commands from the front of `pending` (socket or shared-memory
// framing); a length that cannot be a packet drops what is pending.
std::vector<SentCommand> cutCommands(std::string& pending, Framing framing);

class FuzzTransport;

class FuzzSession : NonCopyable {
public:
    explicit FuzzSession(const SessionOptions& options);
    ~FuzzSession();

    void setAnswers(std::vector<Answer> answers) { answers_ = std::move(answers); }
    // Hands bytes to the session as the transport would deliver them, then
    // pumps until the session is idle.
    void deliver(const std::string& bytes);
    void settle();

    JDWPHandler& handler() { return *handler_; }
    JXMachine& jvm() { return *jvm_; }
    bool opened() const { return opened_; }

    // Sends `request` through the session (so its reply is expected) and
    // leaves it unanswered; the caller delivers the reply itself.
    void sendUnanswered(const std::shared_ptr<JDWPMessage>& request);
    std::string frameReply(uint32_t id, uint16_t error, const std::string& payload) const;
    std::string frameCommand(uint32_t id, int set, int cmd, const std::string& payload) const;

    // Called by the transport for every command the session sent.
    void onCommand(const SentCommand& command);

private:
    bool answerFromInput(const SentCommand& command, std::string& payload, uint16_t& error);
    void openingAnswer(const SentCommand& command, std::string& payload, uint16_t& error);

    SessionOptions options_;
    std::shared_ptr<JDWPHandler> handler_;
    std::shared_ptr<JXMachine> jvm_;
    std::shared_ptr<FuzzTransport> transport_;
    std::vector<Answer> answers_;
    bool opened_ = false;
    uint32_t unansweredId_ = 0;
    uint32_t nextRequestId_ = 1;
    size_t baselineSources_ = 0;
    int keepBusy_ = 0;
};

// The frame of a target whose input is an option byte, `records` records of
// its own, then the answers to the follow-up requests: reads them, opens the
// session and hands both to `body`.
template <typename Body>
int runRecordsTarget(const uint8_t* data, size_t size, size_t records, Body body)
{
    ByteReader in(data, size);
    FuzzSession session(optionsFromByte(in.byte()));
    std::vector<std::string> own;
    for (size_t i = 0; i < records; ++i)
        own.push_back(in.record());
    session.setAnswers(readAnswers(in));
    body(session, own);
    return 0;
}

} // namespace jdwpkrvdbg::fuzz
