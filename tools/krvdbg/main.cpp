// krvdbg: a command-line debugger for Java programs built on the JDWPKrvDbg
// library (and a host of it that uses only its public headers).
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <memory>

#include <jdwpkrvdbg/version.h>

#include "CommandLine.h"
#include "Controller.h"
#include "Interrupt.h"
#include "JsonPrinter.h"
#include "ScriptReader.h"
#include "Session.h"
#include "SourceLines.h"
#include "TerminalReader.h"
#include "TextPrinter.h"

using namespace krvdbg;

int main(int argc, char** argv)
{
    const CommandLine::Result parsed = CommandLine::parse(std::vector<std::string>(argv + 1, argv + argc));
    if (!parsed.ok) {
        std::fprintf(stderr, "krvdbg: %s\n", parsed.error.c_str());
        return kExitUsage;
    }
    const Options& options = parsed.options;
    if (options.showHelp) {
        std::fputs(CommandLine::usage().c_str(), stdout);
        return kExitOk;
    }
    if (options.showVersion) {
        std::printf("krvdbg %s\n", JDWPKRVDBG_VERSION);
        return kExitOk;
    }

    SourceLines sources(options.sourcePath);
    std::unique_ptr<Printer> printer;
    if (options.json)
        printer = std::make_unique<JsonPrinter>();
    else
        printer = std::make_unique<TextPrinter>(sources);

    std::unique_ptr<LineReader> reader;
    if (!options.scriptFile.empty() || !::isatty(STDIN_FILENO)) {
        auto script = std::make_unique<ScriptReader>(options.scriptFile);
        if (!script->opened()) {
            std::fprintf(stderr, "krvdbg: cannot read the script %s\n", options.scriptFile.c_str());
            return kExitUsage;
        }
        reader = std::move(script);
    } else {
        reader = std::make_unique<TerminalReader>(*printer);
    }

    Interrupt::install();
    int status = kExitOk;
    {
        Session session(options, *printer);
        Controller controller(session, *reader);
        status = controller.run();
    }
    reader.reset();
    std::fflush(stdout);
    Interrupt::finishEnding();
    return status;
}
