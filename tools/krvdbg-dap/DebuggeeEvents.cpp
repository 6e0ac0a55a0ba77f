// Queueing of the library's host events for the adapter (see DebuggeeEvents.h).
#include "DebuggeeEvents.h"

namespace krvdbg {

std::string DebuggeeEvents::lfOnly(const std::string& s)
{
    std::string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size(); ++i)
        if (!(s[i] == '\r' && i + 1 < s.size() && s[i + 1] == '\n'))
            out += s[i];
    return out;
}

void DebuggeeEvents::Message(const std::string& Prompt, int32_t, const std::string& Title)
{
    lastMessage_ = lfOnly(Prompt);
    output_.push_back({"console", (Title.empty() ? std::string() : Title + ": ") + lastMessage_ + "\n", {}, 0});
}

void DebuggeeEvents::Breakpoint(double threadID, const std::string& ClassName, int32_t LineNr, int32_t Offset)
{
    DebuggeeStop stop;
    static_cast<StopPlace&>(stop) = {threadID, ClassName, LineNr, Offset};
    stop.methodID = jvm_->currentMethodID();
    stop.index = jvm_->currentIndex();
    stop.stepExpected = stepExpected_;
    stepExpected_ = false;
    stops_.push_back(std::move(stop));
}

void DebuggeeEvents::VMStateChanged(jdwpkrvdbg::VMState NewState)
{
    life_.stateChanged(NewState);
}

void DebuggeeEvents::DebugMessage(const std::string& s)
{
    // The library names every class the VM prepares: in an editor's console
    // that is hundreds of lines before the program's first one.
    if (s.rfind(" *** Load ", 0) == 0)
        return;
    std::string text = lfOnly(s);
    if (text.empty() || text.back() != '\n')
        text += '\n';
    output_.push_back({"console", text, {}, 0});
}

void DebuggeeEvents::ConsoleMessage(const std::string& s)
{
    output_.push_back({"stdout", lfOnly(s), {}, 0});
}

void DebuggeeEvents::ConsoleErrorMessage(const std::string& s)
{
    output_.push_back({"stderr", lfOnly(s), {}, 0});
}

void DebuggeeEvents::LogpointMessage(double, const std::string& ClassName, int32_t LineNr, const std::string& text)
{
    output_.push_back({"console", lfOnly(text) + "\n", ClassName, LineNr});
}

void DebuggeeEvents::ConditionFailed(double, const std::string& ClassName, int32_t LineNr, const std::string& condition,
                                     const std::string& reason)
{
    // Comes just before the stop it explains, which the adapter reports after
    // the output queued before it.
    output_.push_back({"console", "The breakpoint condition " + condition + " could not be evaluated: " + reason + "\n",
                       ClassName, LineNr});
}

void DebuggeeEvents::Exception(const std::string& s)
{
    // Raised right after the stop it belongs to, in the same event.
    if (stops_.empty())
        return;
    stops_.back().exception = true;
    stops_.back().exceptionText = lfOnly(s);
}

} // namespace krvdbg
