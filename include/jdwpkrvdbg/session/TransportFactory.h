// The transport a session uses unless the host supplies its own: the Linux
// implementation (TCP sockets, process launch with console capture, and the
// shared-memory channel).
#pragma once

#include <memory>

#include "jdwpkrvdbg/session/JDWPCon.h"

namespace jdwpkrvdbg {

std::shared_ptr<JDWPCon> createDefaultTransport();

} // namespace jdwpkrvdbg
