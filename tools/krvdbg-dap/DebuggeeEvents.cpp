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

void DebuggeeEvents::hostEvent(const jdwpkrvdbg::HostEvent& e)
{
    using K = jdwpkrvdbg::HostEvent::Kind;
    switch (e.kind) {
    case K::Message:
        lastMessage_ = lfOnly(e.text);
        output_.push_back({"console", (e.title.empty() ? std::string() : e.title + ": ") + lastMessage_ + "\n", {}, 0});
        break;
    case K::Breakpoint:
        stop(e);
        break;
    case K::VMStateChanged:
        life_.stateChanged(e.state);
        break;
    case K::OpenConnection:
    case K::CloseConnection:
        break;
    case K::DebugMessage:
        debugMessage(e.text);
        break;
    case K::ConsoleMessage:
        output_.push_back({"stdout", lfOnly(e.text), {}, 0});
        break;
    case K::ConsoleErrorMessage:
        output_.push_back({"stderr", lfOnly(e.text), {}, 0});
        break;
    case K::Exception:
        exception(e.text);
        break;
    case K::LogpointMessage:
        output_.push_back({"console", lfOnly(e.text) + "\n", e.className, e.line});
        break;
    case K::ConditionFailed:
        // Comes just before the stop it explains, which the adapter reports
        // after the output queued before it.
        output_.push_back({"console",
                           "The breakpoint condition " + e.text + " could not be evaluated: " + e.reason + "\n",
                           e.className, e.line});
        break;
    }
}

void DebuggeeEvents::stop(const jdwpkrvdbg::HostEvent& e)
{
    DebuggeeStop stop;
    static_cast<StopPlace&>(stop) = {e.threadID, e.className, e.line, e.offset};
    stop.methodID = jvm_->currentMethodID();
    stop.index = jvm_->currentIndex();
    stop.stepExpected = stepExpected_;
    stepExpected_ = false;
    stops_.push_back(std::move(stop));
}

void DebuggeeEvents::debugMessage(const std::string& s)
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

void DebuggeeEvents::exception(const std::string& s)
{
    // Raised right after the stop it belongs to, in the same event.
    if (stops_.empty())
        return;
    stops_.back().exception = true;
    stops_.back().exceptionText = lfOnly(s);
}

} // namespace krvdbg
