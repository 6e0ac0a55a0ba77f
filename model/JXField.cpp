// A field of a debuggee class as the VM reported it; the only behaviour is
// reading the static bit out of its modifier bits.
#include "jdwpkrvdbg/model/JXField.h"

#include <cmath>
#include <cstdint>

namespace jdwpkrvdbg {

namespace {
constexpr int64_t kStaticBit = 8; // ACC_STATIC
}

bool JXField::isStatic() const
{
    if (!std::isfinite(FieldBits))
        return false;
    return (static_cast<int64_t>(FieldBits) & kStaticBit) != 0;
}

} // namespace jdwpkrvdbg
