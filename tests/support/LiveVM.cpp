// The real-VM test kit.
#include "LiveVM.h"

#include <cstdlib>

namespace jdwpkrvdbg::testing {

ListeningVM::ListeningVM(const std::string& mainClass, const std::string& classPath, bool suspend)
{
    const std::string agent = socketAgent(0, suspend);
    process_ = std::make_unique<ChildProcess>(std::vector<std::string>{javaPath(), agent, "-cp", classPath, mainClass});
    const std::string line = process_->waitForLine("Listening for transport dt_socket at address:", 20000);
    const size_t colon = line.rfind(':');
    if (colon != std::string::npos)
        port_ = std::atoi(line.c_str() + colon + 1);
}

TickShift::TickShift()
{
    setTickSource([this] { return static_cast<uint32_t>(nowMs()) + offset_; });
}

} // namespace jdwpkrvdbg::testing
