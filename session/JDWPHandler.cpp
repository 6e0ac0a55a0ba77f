// JDWPHandler (stub).
#include "jdwpkrvdbg/session/JDWPHandler.h"

#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/model/JXThreadList.h"
#include "jdwpkrvdbg/protocol/JDWPMessage.h"
#include "jdwpkrvdbg/protocol/JDWPMessageFactory.h"
#include "jdwpkrvdbg/session/JDWPFunctions.h"
#include "jdwpkrvdbg/session/modMain.h"

namespace jdwpkrvdbg {
std::shared_ptr<JDWPHandler> JDWPHandler::create()
{
    std::shared_ptr<JDWPHandler> h(new JDWPHandler());
    setCurrentHandler(h);
    return h;
}
JDWPHandler::JDWPHandler() {}
JDWPHandler::~JDWPHandler() {}
std::shared_ptr<JDWPMessageFactory> JDWPHandler::myFactory()
{
    if (!myFactory_)
        myFactory_ = std::make_shared<JDWPMessageFactory>();
    return myFactory_;
}
std::shared_ptr<JXMachine> JDWPHandler::myJVM()
{
    if (!myJVM_)
        myJVM_ = std::make_shared<JXMachine>();
    return myJVM_;
}
bool JDWPHandler::startVM(const std::string&, const std::string&, const std::string&, bool, bool, int32_t,
                          const std::string&, const std::string&, bool) { return false; }
void JDWPHandler::connectTransport() {}
void JDWPHandler::sendInitMessages() {}
bool JDWPHandler::isConnected() { return false; }
void JDWPHandler::Disconnect() {}
void JDWPHandler::exitVM() {}
void JDWPHandler::disposeVM() {}
void JDWPHandler::exitProcess() {}
int32_t JDWPHandler::getProcessHandle() { return 0; }
int32_t JDWPHandler::getProcessID() { return 0; }
int32_t JDWPHandler::ProcessIDTohWnd(int32_t) { return 0; }
bool JDWPHandler::ActivateWindow(int32_t) { return false; }
void JDWPHandler::BringToTop() {}
void JDWPHandler::printStream(const std::string&, const std::string&) {}
bool JDWPHandler::sendAsync(const Msg&) { return false; }
JDWPHandler::Msg JDWPHandler::sendSync(const Msg&, int32_t) { return nullptr; }
bool JDWPHandler::sendString(const std::string&) { return false; }
JDWPHandler::Msg JDWPHandler::getMessage(double) { return nullptr; }
void JDWPHandler::removeMessage(double) {}
std::shared_ptr<JDWPFunctions> JDWPHandler::getSyncFunctionByMsg(const Msg&) { return nullptr; }
void JDWPHandler::processSocketData() {}
std::shared_ptr<JXThreadList> JDWPHandler::getAllThreads() { return nullptr; }
std::string JDWPHandler::ObjectToStringWithMethod(double, bool, const std::string&) { return {}; }
std::string JDWPHandler::ObjectToString(double id, bool c) { return ObjectToStringWithMethod(id, c, "toString()Ljava/lang/String;"); }
void JDWPHandler::connected() {}
void JDWPHandler::disconnected() {}
void JDWPHandler::pipestream(const std::string&) {}
void JDWPHandler::processevent() {}
void JDWPHandler::receive(const std::string&) {}
void JDWPHandler::terminated() {}
void JDWPHandler::framingStep() {}
} // namespace jdwpkrvdbg
