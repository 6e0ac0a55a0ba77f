// Fuzz target: tagged values. Input: an option byte, a run of tagged values
// as a value list carries them, and the answers to the follow-up requests
// that rendering makes (a string's text, an object's class and its
// toString call). Values are read one after the other until the reader
// gives up on an unknown tag.
#include "FuzzHarness.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    return runRecordsTarget(data, size, 1, [](FuzzSession& session, const std::vector<std::string>& in) {
        const std::string& values = in[0];
        JDWPMessageData decoder;
        int64_t pos = 1;
        for (int n = 0; n < 256 && pos >= 1 && pos <= static_cast<int64_t>(values.size()); ++n) {
            JDWPJVarValue value;
            decoder.readTaggedValue(values, pos, value);
        }
        session.settle();
    });
}
