// JXField (stub).
#include "jdwpkrvdbg/model/JXField.h"

namespace jdwpkrvdbg {
bool JXField::isStatic() const { return {}; }
} // namespace jdwpkrvdbg
