// The default transport of a session: the Linux transport.
#include "jdwpkrvdbg/session/TransportFactory.h"

#include "jdwpkrvdbg/platform/LinuxTransport.h"

namespace jdwpkrvdbg {

std::shared_ptr<JDWPCon> createDefaultTransport()
{
    return std::make_shared<LinuxTransport>();
}

} // namespace jdwpkrvdbg
