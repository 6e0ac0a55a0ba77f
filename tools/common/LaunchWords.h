// What both front ends need to launch a VM: a free loopback port for its
// debug agent, and words quoted for the launcher's command line (the
// library splits the parameters as a shell would).
#pragma once

#include <string>

namespace krvdbg {

// A port on 127.0.0.1 that nobody listens on right now; 0 when none is had.
int freeLocalPort();
// `word` as one shell word: unchanged when it is plain, else in single quotes.
std::string quoteWord(const std::string& word);

} // namespace krvdbg
