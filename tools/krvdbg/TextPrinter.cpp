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

void TextPrinter::message(const std::string& Prompt, int32_t Buttons, const std::string& Title)
{
    flush();
    std::string text = unixLines(Prompt);
    std::string indented;
    for (char c : trimLineEnds(text)) {
        indented += c;
        if (c == '\n')
            indented += "  ";
    }
    line("Message [" + Title + "]: " + indented);
}

void TextPrinter::breakpoint(double threadID, const std::string& ClassName, int32_t LineNr, int32_t Offset,
                             StopCause cause)
{
    flush();
    stopPending_ = true;
    pendingLabel_ = cause == StopCause::Step        ? "Step completed"
                    : cause == StopCause::StopPoint ? "Stop point hit"
                                                    : "Breakpoint hit";
    pendingPlace_ = "thread=" + threadText(threadID) + " " + stopPlace(ClassName, LineNr, Offset);
    pendingClass_ = ClassName;
    pendingLine_ = LineNr;
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

void TextPrinter::exception(const std::string& s)
{
    // The text is the exception's class name, CR LF, then its own text.
    const std::string text = trimLineEnds(unixLines(s));
    const size_t nl = text.find('\n');
    const std::string detail = nl == std::string::npos ? text : text.substr(nl + 1);
    std::string shown = "  Exception: ";
    for (char c : detail.empty() ? text : detail) {
        shown += c;
        if (c == '\n')
            shown += "  ";
    }
    if (stopPending_) {
        pendingLabel_ = "Exception stop";
        pendingException_ = shown;
        return;
    }
    line(shown);
}

void TextPrinter::logpoint(double, const std::string& ClassName, int32_t LineNr, const std::string& text)
{
    flush();
    line("log " + ClassNames::toJava(ClassName) + ":" + std::to_string(LineNr) + ": " + trimLineEnds(unixLines(text)));
}

void TextPrinter::conditionFailed(double, const std::string& ClassName, int32_t LineNr, const std::string& condition,
                                  const std::string& reason)
{
    flush();
    line("The condition " + condition + " at " + ClassNames::toJava(ClassName) + ":" + std::to_string(LineNr) +
         " could not be evaluated: " + reason);
}

void TextPrinter::stateChanged(jdwpkrvdbg::VMState NewState, bool late)
{
    // A person would read it as the VM running on after the stop.
    if (late)
        return;
    if (stopPending_ && pendingState_.empty()) {
        pendingState_ = "VM state: " + stateName(NewState);
        return;
    }
    flush();
    line("VM state: " + stateName(NewState));
}

void TextPrinter::openConnection()
{
    flush();
    line("Connection open");
}

void TextPrinter::closeConnection()
{
    flush();
    line("Connection closed");
}

void TextPrinter::debugMessage(const std::string& s)
{
    flush();
    line(trimLineEnds(unixLines(s)));
}

void TextPrinter::consoleMessage(const std::string& s)
{
    flush();
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
