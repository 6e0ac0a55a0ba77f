// The options of krvdbg as the user gives them on its command line, and the
// parser that turns argv into them (or into one line saying what is wrong).
#pragma once

#include <string>
#include <vector>

namespace krvdbg {

enum class LaunchMode { Socket, SharedMemory, Attach };

struct Options {
    LaunchMode mode = LaunchMode::Socket;
    std::string javaPath = "java";
    std::string classPath;
    std::string mainClass; // as the user writes it: pkg.Name
    std::vector<std::string> programArgs;
    std::vector<std::string> vmOptions; // extra words for the VM, before the main class
    std::string attachHost;
    int attachPort = 0;
    std::vector<std::string> targets;  // --target, Java form
    std::vector<std::string> excludes; // --exclude patterns
    std::vector<std::string> sourcePath;
    std::string scriptFile; // --script; empty: stdin
    bool json = false;
    bool quiet = false;
    bool trace = false;
    bool echo = true; // script commands are echoed in text mode
    bool showHelp = false;
    bool showVersion = false;
};

class CommandLine {
public:
    struct Result {
        bool ok = false;
        std::string error; // one line, when !ok
        Options options;
    };

    // `args` are the arguments after the program name.
    static Result parse(const std::vector<std::string>& args);
    static std::string usage();
};

} // namespace krvdbg
