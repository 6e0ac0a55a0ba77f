// Parsing of krvdbg's command line. Options come first; the first word that
// is not an option is the main class and everything after it belongs to the
// debuggee, so a program argument that looks like an option is passed on.
#include "CommandLine.h"

#include <charconv>

namespace krvdbg {

namespace {

bool parsePort(const std::string& text, int& port)
{
    int value = 0;
    const char* end = text.data() + text.size();
    auto [ptr, ec] = std::from_chars(text.data(), end, value);
    if (ec != std::errc() || ptr != end || value < 1 || value > 65535)
        return false;
    port = value;
    return true;
}

// "host:port" or "[v6-address]:port"; the port is after the last colon.
bool parseHostPort(const std::string& text, std::string& host, int& port)
{
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0)
        return false;
    host = text.substr(0, colon);
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    return !host.empty() && parsePort(text.substr(colon + 1), port);
}

std::vector<std::string> splitList(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= text.size()) {
        const size_t end = text.find(separator, start);
        const std::string part = text.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (!part.empty())
            parts.push_back(part);
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
    return parts;
}

} // namespace

CommandLine::Result CommandLine::parse(const std::vector<std::string>& args)
{
    Result r;
    Options& o = r.options;
    bool sawShmem = false;
    bool sawAttach = false;
    size_t i = 0;
    auto fail = [&](const std::string& message) {
        r.ok = false;
        r.error = message;
        return r;
    };
    auto value = [&](const std::string& name, std::string& out) {
        if (i + 1 >= args.size())
            return false;
        out = args[++i];
        (void)name;
        return true;
    };

    for (; i < args.size(); ++i) {
        const std::string& a = args[i];
        std::string v;
        if (a == "--") {
            ++i;
            break;
        }
        if (a.empty() || a[0] != '-')
            break;
        if (a == "-h" || a == "--help") {
            o.showHelp = true;
        } else if (a == "--version") {
            o.showVersion = true;
        } else if (a == "--json") {
            o.json = true;
        } else if (a == "--quiet" || a == "-q") {
            o.quiet = true;
        } else if (a == "--trace") {
            o.trace = true;
        } else if (a == "--shmem") {
            sawShmem = true;
        } else if (a == "--attach") {
            if (!value(a, v))
                return fail("--attach needs HOST:PORT");
            if (!parseHostPort(v, o.attachHost, o.attachPort))
                return fail("--attach needs HOST:PORT with a port from 1 to 65535, not '" + v + "'");
            sawAttach = true;
        } else if (a == "--java") {
            if (!value(a, v) || v.empty())
                return fail("--java needs the path of the java launcher");
            o.javaPath = v;
        } else if (a == "-cp" || a == "--classpath" || a == "--class-path") {
            if (!value(a, v))
                return fail(a + " needs a class path");
            o.classPath = v;
        } else if (a == "--target") {
            if (!value(a, v) || v.empty())
                return fail("--target needs a class name or a pattern (pkg.Name, com.acme.*)");
            o.targets.push_back(v);
        } else if (a == "--exclude") {
            if (!value(a, v) || v.empty())
                return fail("--exclude needs a class-name pattern (e.g. org.slf4j.*)");
            o.excludes.push_back(v);
        } else if (a == "--sourcepath") {
            if (!value(a, v))
                return fail("--sourcepath needs a list of folders separated by ':'");
            for (auto& dir : splitList(v, ':'))
                o.sourcePath.push_back(dir);
        } else if (a == "--script") {
            if (!value(a, v) || v.empty())
                return fail("--script needs a file of commands");
            o.scriptFile = v;
        } else if (a == "--vm-option" || a == "-J") {
            if (!value(a, v) || v.empty())
                return fail(a + " needs an option for the VM (e.g. -Xmx64m)");
            o.vmOptions.push_back(v);
        } else if (a.rfind("-J", 0) == 0 && a.size() > 2) {
            o.vmOptions.push_back(a.substr(2));
        } else if (a == "--no-echo") {
            o.echo = false;
        } else {
            return fail("unknown option '" + a + "' (krvdbg --help lists the options)");
        }
    }
    if (o.showHelp || o.showVersion) {
        r.ok = true;
        return r;
    }
    if (sawShmem && sawAttach)
        return fail("--shmem and --attach exclude each other");
    o.mode = sawAttach ? LaunchMode::Attach : sawShmem ? LaunchMode::SharedMemory : LaunchMode::Socket;
    if (i < args.size()) {
        o.mainClass = args[i++];
        for (; i < args.size(); ++i)
            o.programArgs.push_back(args[i]);
    }
    if (o.mode != LaunchMode::Attach && o.mainClass.empty())
        return fail("no main class given: krvdbg [options] MAINCLASS [ARGS...] (or --attach HOST:PORT)");
    if (o.mode == LaunchMode::Attach && !o.programArgs.empty())
        return fail("--attach debugs a VM that is already running: program arguments make no sense there");
    r.ok = true;
    return r;
}

std::string CommandLine::usage()
{
    return "usage: krvdbg [options] MAINCLASS [ARGS...]\n"
           "       krvdbg [options] --attach HOST:PORT [MAINCLASS]\n"
           "\n"
           "Debugs a Java program over JDWP: launches `java` with the debug agent on a free\n"
           "local port (or over shared memory, or attaches to a VM that listens), then reads\n"
           "commands from the terminal, from --script FILE, or from standard input.\n"
           "\n"
           "options:\n"
           "  -cp, --classpath PATH   class path of the program\n"
           "  --java PATH             the java launcher (default: java on the PATH)\n"
           "  -J OPTION, --vm-option OPTION   one more option for the VM\n"
           "  --shmem                 use the shared-memory transport instead of a socket\n"
           "  --attach HOST:PORT      attach to a VM started with\n"
           "                          -agentlib:jdwp=transport=dt_socket,server=y,address=PORT\n"
           "  --target CLASS|PATTERN  classes of the program besides those in the class path's\n"
           "                          folders (their stops are shown, step enters them), e.g.\n"
           "                          com.acme.* for classes in a jar, which is a library else\n"
           "  --exclude PATTERN       classes whose events are not wanted (e.g. org.slf4j.*)\n"
           "  --sourcepath DIRS       folders of the sources (':'-separated), to show stop lines\n"
           "  --script FILE           read the commands from FILE\n"
           "  --json                  JSON lines on standard output: events and command results\n"
           "  --trace                 every JDWP packet sent and received, one line each\n"
           "  -q, --quiet             hide the progress lines (\" *** ...\")\n"
           "  --no-echo               do not echo script commands (text output)\n"
           "  --version, -h, --help\n"
           "\n"
           "Type `help` at the prompt for the commands.\n"
           "Exit status: 0 the program ran to its end or the session was quit; 1 bad usage;\n"
           "2 the VM could not be started or reached; 3 the main class could not be loaded.\n";
}

} // namespace krvdbg
