// Fuzz target: the shared-memory framing. The input is an option byte and
// then records, each of which the channel delivers as one packet (the first
// is normally the handshake); the session decodes each at once. Follow-up
// requests of the decoders get empty replies in the same framing.
#include "FuzzHarness.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ByteReader in(data, size);
    SessionOptions options = optionsFromByte(in.byte(), Framing::SharedMemory);
    options.openSession = false;
    FuzzSession session(options);
    for (int n = 0; !in.atEnd() && n < 256; ++n)
        session.deliver(in.record());
    return 0;
}
