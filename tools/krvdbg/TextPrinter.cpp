// Readable output of a debugging session.
#include "TextPrinter.h"

#include <cmath>

#include <jdwpkrvdbg/protocol/ByteStrings.h>

#include "ClassNames.h"

namespace krvdbg {

using jdwpkrvdbg::ReplaceAll;

namespace {

// CR LF (and a lone CR) become LF: the library hands text over with
// Windows line ends.
std::string unixLines(const std::string& s)
{
    return ReplaceAll(ReplaceAll(s, "\r\n", "\n"), "\r", "\n");
}

std::string trimLineEnds(std::string s)
{
    while (!s.empty() && (s.back() == '\n' || s.back() == '\r'))
        s.pop_back();
    return s;
}

// Lines after the first are indented under it.
std::string indentContinuations(const std::string& text)
{
    std::string out;
    for (char c : text) {
        out += c;
        if (c == '\n')
            out += "  ";
    }
    return out;
}

// The line of an event that is shown on a line of its own.
std::string eventLine(const jdwpkrvdbg::HostEvent& e)
{
    using K = jdwpkrvdbg::HostEvent::Kind;
    const auto at = [&] { return ClassNames::toJava(e.className) + ":" + std::to_string(e.line); };
    if (e.kind == K::Message)
        return "Message [" + e.title + "]: " + indentContinuations(trimLineEnds(unixLines(e.text)));
    if (e.kind == K::OpenConnection || e.kind == K::CloseConnection)
        return e.kind == K::OpenConnection ? "Connection open" : "Connection closed";
    if (e.kind == K::LogpointMessage)
        return "log " + at() + ": " + trimLineEnds(unixLines(e.text));
    if (e.kind == K::ConditionFailed)
        return "The condition " + e.text + " at " + at() + " could not be evaluated: " + e.reason;
    return trimLineEnds(unixLines(e.text)); // DebugMessage
}

std::string threadText(double threadID)
{
    return std::to_string(static_cast<long long>(std::llround(threadID)));
}

} // namespace

std::string TextPrinter::stateName(jdwpkrvdbg::VMState state)
{
    switch (state) {
    case jdwpkrvdbg::VMDead:
        return "dead";
    case jdwpkrvdbg::VMSuspend:
        return "suspended";
    case jdwpkrvdbg::VMRunning:
        return "running";
    case jdwpkrvdbg::VMLoading:
        return "loading";
    }
    return "state " + std::to_string(static_cast<int>(state));
}

void TextPrinter::line(const std::string& text)
{
    std::string out;
    if (!atLineStart_)
        out += '\n';
    out += text;
    out += '\n';
    atLineStart_ = true;
    write(out);
}

std::string TextPrinter::stopPlace(const std::string& className, int32_t lineNr, int32_t offset) const
{
    std::string place = ClassNames::toJava(className) + ":" + std::to_string(lineNr);
    if (offset != 0)
        place += " (code index " + std::to_string(offset) + ")";
    return place;
}

void TextPrinter::hostEvent(const jdwpkrvdbg::HostEvent& e, StopCause cause, bool late)
{
    using K = jdwpkrvdbg::HostEvent::Kind;
    switch (e.kind) {
    case K::Breakpoint:
        holdStop(e, cause);
        return;
    case K::Exception:
        showException(e.text);
        return;
    case K::VMStateChanged:
        showState(e.state, late);
        return;
    case K::ConsoleMessage:
    case K::ConsoleErrorMessage:
        flush();
        showConsole(e.text);
        return;
    default:
        // A line of its own, after the stop held back.
        flush();
        line(eventLine(e));
        return;
    }
}

void TextPrinter::holdStop(const jdwpkrvdbg::HostEvent& e, StopCause cause)
{
    flush();
    stopPending_ = true;
    pendingLabel_ = cause == StopCause::Step        ? "Step completed"
                    : cause == StopCause::StopPoint ? "Stop point hit"
                                                    : "Breakpoint hit";
    pendingPlace_ = "thread=" + threadText(e.threadID) + " " + stopPlace(e.className, e.line, e.offset);
    pendingClass_ = e.className;
    pendingLine_ = e.line;
}

void TextPrinter::flush()
{
    if (!stopPending_)
        return;
    stopPending_ = false;
    line(pendingLabel_ + ": " + pendingPlace_);
    const std::string source = sources_.line(pendingClass_, pendingLine_);
    if (!source.empty())
        line("  " + std::to_string(pendingLine_) + "\t" + source);
    if (!pendingException_.empty())
        line(pendingException_);
    if (!pendingState_.empty())
        line(pendingState_);
    pendingException_.clear();
    pendingState_.clear();
}

void TextPrinter::showException(const std::string& s)
{
    // The text is the exception's class name, CR LF, then its own text.
    const std::string text = trimLineEnds(unixLines(s));
    const size_t nl = text.find('\n');
    const std::string detail = nl == std::string::npos ? text : text.substr(nl + 1);
    const std::string shown = "  Exception: " + indentContinuations(detail.empty() ? text : detail);
    if (stopPending_) {
        pendingLabel_ = "Exception stop";
        pendingException_ = shown;
        return;
    }
    line(shown);
}

void TextPrinter::showState(jdwpkrvdbg::VMState state, bool late)
{
    // A person would read it as the VM running on after the stop.
    if (late)
        return;
    if (stopPending_ && pendingState_.empty()) {
        pendingState_ = "VM state: " + stateName(state);
        return;
    }
    flush();
    line("VM state: " + stateName(state));
}

void TextPrinter::showConsole(const std::string& s)
{
    const std::string text = unixLines(s);
    if (text.empty())
        return;
    atLineStart_ = text.back() == '\n';
    write(text);
}

void TextPrinter::trace(const std::string& text)
{
    // Packets flow while a stop is being reported; they do not break it up.
    line("JDWP " + text);
}

void TextPrinter::echo(const std::string& commandLine)
{
    flush();
    line("> " + commandLine);
}

void TextPrinter::outcome(const CommandOutcome& outcome)
{
    flush();
    for (const auto& t : outcome.text)
        line(t);
    if (!outcome.ok)
        line("Error: " + outcome.error);
}

void TextPrinter::note(const std::string& text)
{
    flush();
    line(text);
}

} // namespace krvdbg
