// JDWPFunctions (stub).
#include "jdwpkrvdbg/session/JDWPFunctions.h"

#include "jdwpkrvdbg/protocol/JDWPMessage.h"

namespace jdwpkrvdbg {
std::shared_ptr<JDWPMessage> JDWPFunctions::send(const std::shared_ptr<JDWPMessage>&, int32_t) { return nullptr; }
} // namespace jdwpkrvdbg
