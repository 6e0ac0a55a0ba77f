// The interactive prompt. With libedit the line editor runs in its callback
// mode, fed by the message pump when the terminal has input; without it, a
// plain prompt reads whole lines the same way.
#include "TerminalReader.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <jdwpkrvdbg/platform/MessagePump.h>

#include "Interrupt.h"

#ifdef KRVDBG_HAVE_LIBEDIT
#include <editline/readline.h>
#endif

namespace krvdbg {

namespace {

constexpr const char* kPrompt = "krvdbg> ";
constexpr int kPumpSliceMs = 100;

// The line editor's callback has no context argument.
TerminalReader* gActiveReader = nullptr;

#ifdef KRVDBG_HAVE_LIBEDIT
void onEditedLine(char* line)
{
    if (gActiveReader)
        gActiveReader->lineDone(line);
    if (line)
        std::free(line);
    // Taken down at once so the editor does not draw the prompt again
    // before the command has run.
    rl_callback_handler_remove();
}
#endif

} // namespace

TerminalReader::TerminalReader(Printer& printer) : printer_(printer)
{
#ifdef KRVDBG_HAVE_LIBEDIT
    rl_readline_name = "krvdbg";
    // Ctrl-C is krvdbg's own (it ends a wait), not the editor's.
    rl_catch_signals = 0;
    using_history();
#endif
    printer_.setOutputHooks([this] { beforeOutput(); }, [this] { afterOutput(); });
}

TerminalReader::~TerminalReader()
{
    printer_.setOutputHooks(nullptr, nullptr);
    if (gActiveReader == this)
        gActiveReader = nullptr;
}

void TerminalReader::beforeOutput()
{
    // Output that arrives while the prompt is shown goes above it.
    if (prompting_)
        std::fputs("\r\033[K", stdout);
}

void TerminalReader::afterOutput()
{
    if (!prompting_)
        return;
#ifdef KRVDBG_HAVE_LIBEDIT
    rl_forced_update_display();
#else
    std::fputs(kPrompt, stdout);
    std::fputs(plainBuffer_.c_str(), stdout);
    std::fflush(stdout);
#endif
}

void TerminalReader::lineDone(const char* line)
{
    done_ = true;
    if (!line) {
        eof_ = true;
        return;
    }
    line_ = line;
#ifdef KRVDBG_HAVE_LIBEDIT
    if (!line_.empty())
        add_history(line);
#endif
}

void TerminalReader::readPlain()
{
    char chunk[512];
    const ssize_t n = ::read(STDIN_FILENO, chunk, sizeof chunk);
    if (n < 0 && (errno == EINTR || errno == EAGAIN))
        return;
    if (n <= 0) {
        if (plainBuffer_.empty()) {
            lineDone(nullptr);
        } else {
            std::string last = plainBuffer_;
            plainBuffer_.clear();
            lineDone(last.c_str());
        }
        return;
    }
    plainBuffer_.append(chunk, static_cast<size_t>(n));
    const size_t nl = plainBuffer_.find('\n');
    if (nl != std::string::npos) {
        // The terminal echoed the line; what follows it is kept for later.
        std::string line = plainBuffer_.substr(0, nl);
        plainBuffer_.erase(0, nl + 1);
        lineDone(line.c_str());
    }
}

std::optional<std::string> TerminalReader::next()
{
    done_ = false;
    eof_ = false;
    line_.clear();
    gActiveReader = this;
    auto& pump = jdwpkrvdbg::MessagePump::instance();
#ifdef KRVDBG_HAVE_LIBEDIT
    rl_callback_handler_install(kPrompt, onEditedLine);
    const int watch = pump.addWatch(STDIN_FILENO, POLLIN, [](short) { rl_callback_read_char(); });
#else
    std::fputs(kPrompt, stdout);
    std::fflush(stdout);
    // A line may already be waiting in the buffer.
    const size_t nl = plainBuffer_.find('\n');
    if (nl != std::string::npos) {
        std::string line = plainBuffer_.substr(0, nl);
        plainBuffer_.erase(0, nl + 1);
        lineDone(line.c_str());
    }
    const int watch = pump.addWatch(STDIN_FILENO, POLLIN, [this](short) { readPlain(); });
#endif
    prompting_ = true;
    while (!done_ && Interrupt::endingSignal() == 0) {
        pump.pumpOnce(kPumpSliceMs);
        printer_.flush();
        if (Interrupt::take() && !done_) {
            // Ctrl-C at the prompt drops the line being typed.
#ifdef KRVDBG_HAVE_LIBEDIT
            rl_replace_line("", 0);
            std::fputs("\n", stdout);
            rl_forced_update_display();
#else
            plainBuffer_.clear();
            std::fputs("\n", stdout);
            std::fputs(kPrompt, stdout);
            std::fflush(stdout);
#endif
        }
    }
    prompting_ = false;
    pump.removeWatch(watch);
#ifdef KRVDBG_HAVE_LIBEDIT
    rl_callback_handler_remove();
#endif
    if (eof_ || !done_) {
        std::fputs("\n", stdout);
        std::fflush(stdout);
        return std::nullopt;
    }
    return line_;
}

} // namespace krvdbg
