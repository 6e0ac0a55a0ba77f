// A host that uses the installed library: builds a Version command and checks
// its socket bytes.
#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include <cstdio>

int main()
{
    using namespace jdwpkrvdbg;
    auto handler = JDWPHandler::create();
    auto msg = handler->myFactory()->createGetVersionMessage();
    const std::string bytes = msg->toString(true);
    const std::string expected("\x00\x00\x00\x0b\x00\x00\x00\x01\x00\x01\x01", 11);
    std::printf("JDWPKrvDbg %s\n", libraryVersion());
    setCurrentHandler(nullptr);
    return bytes == expected ? 0 : 1;
}
