// The library's version as built.
#include "jdwpkrvdbg/version.h"

namespace jdwpkrvdbg {
const char* libraryVersion()
{
    return JDWPKRVDBG_VERSION;
}
} // namespace jdwpkrvdbg
