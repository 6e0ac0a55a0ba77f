// JDWP packets (stub).
#include "jdwpkrvdbg/protocol/JDWPMessage.h"

#include "jdwpkrvdbg/protocol/JDWPMessageData.h"

namespace jdwpkrvdbg {
std::shared_ptr<JDWPMessageData>& JDWPMessage::myDataContainer()
{
    if (!myDataContainer_)
        myDataContainer_ = std::make_shared<JDWPMessageData>();
    return myDataContainer_;
}
bool JDWPMessage::processMyData() { return false; }
double JDWPMessage::createMessageSocket(const std::string&) { return 0; }
bool JDWPMessage::createMessageSHMem(const std::string&) { return false; }
std::string JDWPMessage::toString() const { return toString(true); }
std::string JDWPMessage::toString(bool) const { return {}; }
std::string JDWPMessage::myKey() const { return "key"; }
std::string describeCommand(int32_t, int32_t) { return {}; }
void printCommandDescription(int32_t, int32_t) {}
} // namespace jdwpkrvdbg
