// The default transport of a session: the Linux transport.
#include "jdwpkrvdbg/session/TransportFactory.h"

namespace jdwpkrvdbg {

std::shared_ptr<JDWPCon> createDefaultTransport()
{
    return nullptr;
}

} // namespace jdwpkrvdbg
