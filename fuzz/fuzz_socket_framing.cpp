// Fuzz target: the socket framing. The input is one byte that decides how
// the rest is cut into pieces, and then the bytes a VM sends after the
// connection is up (the handshake, replies to the session's own commands,
// events). The pieces reach the session as a socket delivers them, in
// random sizes, and the session frames, queues and decodes them; follow-up
// requests of the decoders get empty replies.
#include "FuzzHarness.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ByteReader in(data, size);
    const uint8_t cut = in.byte();
    const std::string stream = in.rest();
    SessionOptions options;
    options.openSession = false;
    FuzzSession session(options);
    // 0xFF: everything at once; otherwise pieces of 1 .. (cut & 63) + 1 bytes
    // in an order the cut byte seeds.
    const size_t maxPiece = cut == 0xFF ? (stream.empty() ? 1 : stream.size()) : 1 + (cut & 0x3f);
    uint32_t state = cut * 2654435761u + 1;
    size_t at = 0;
    while (at < stream.size()) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        const size_t n = cut == 0xFF ? maxPiece : 1 + state % maxPiece;
        session.deliver(stream.substr(at, n));
        at += n;
    }
    return 0;
}
