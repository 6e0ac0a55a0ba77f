// A first look at the library: prints its version and the socket bytes of a
// JDWP Version command as the command builders make it.
#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include <cstdio>

int main()
{
    using namespace jdwpkrvdbg;
    auto handler = JDWPHandler::create();
    auto msg = handler->myFactory()->createGetVersionMessage();
    std::printf("JDWPKrvDbg %s\n", libraryVersion());
    std::printf("Version command, socket framing:");
    for (unsigned char c : msg->toString(true))
        std::printf(" %02X", c);
    std::printf("\n");
    setCurrentHandler(nullptr);
    return 0;
}
