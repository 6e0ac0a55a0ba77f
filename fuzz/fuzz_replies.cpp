// Fuzz target: the reply decoders of every (command set, command) pair the
// dispatcher knows, and a few it does not. Input: the pair's index, an
// option byte, the request payload (its leading identifiers become the
// request's class / object / thread and method / frame), the reply's error
// code and payload, then the answers to the decoders' follow-up requests.
// Option bit 4 sends the request synchronously, as the model does, so the
// reply also completes a waiting call.
#include <algorithm>

#include "FuzzHarness.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ByteReader in(data, size);
    const auto& pairs = replyPairs();
    const auto [set, cmd] = pairs[in.byte() % pairs.size()];
    const uint8_t option = in.byte();
    const std::string request = in.record();
    const uint16_t error = in.u16();
    const std::string reply = in.record();

    FuzzSession session(optionsFromByte(option));
    auto answers = readAnswers(in);
    const bool synchronous = (option & 0x10) != 0;
    if (synchronous)
        answers.insert(answers.begin(), Answer{set, cmd, error, request, reply});
    session.setAnswers(std::move(answers));

    auto& handler = session.handler();
    auto& jvm = session.jvm();
    const int width = std::min<int>(jvm.SIZE_ObjectID, 8);
    const double first = BytesToNumber(request, 1, width);
    const double second = BytesToNumber(request, 1 + width, width);
    auto msg = std::make_shared<JDWPMessage>();
    msg->myID = ++handler.myMaxSendID;
    msg->myCommandSet = static_cast<COMMAND_SETS>(set);
    msg->myCommand = cmd;
    msg->myData = request;
    auto& context = *msg->myDataContainer();
    context.RequestClassID = context.RequestObjectID = context.RequestThreadID = first;
    context.RequestThreadGroupID = first;
    context.RequestMethodID = context.RequestFrameID = second;
    // Replies about a class are decoded into the model's class object.
    if (set == CMDSET_ReferenceType || set == CMDSET_ClassType || set == CMDSET_Method)
        jvm.getClassByID(first, true);

    if (synchronous) {
        handler.sendSync(msg, 4000);
        session.settle();
    } else {
        session.sendUnanswered(msg);
        session.deliver(session.frameReply(static_cast<uint32_t>(msg->myID), error, reply));
    }
    return 0;
}
