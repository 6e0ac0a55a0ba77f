// The numbers DAP hands out for frames and expandable values (frameId,
// variablesReference). They are valid only while the program stays stopped:
// every resume clears them, and the numbers keep counting up so that a stale
// number from before a resume is refused instead of naming something else.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

namespace krvdbg {

struct FrameRef {
    double threadID = 0;
    double frameID = 0;
    int index = 0; // 0: the thread's top frame
    double classID = 0;
    double methodID = 0;
    double codeIndex = 0;
};

struct Container {
    enum class Kind { Locals, Statics, Object, Array };
    Kind kind = Kind::Locals;
    int64_t frame = 0; // Locals: the frameId
    double id = 0;     // Statics: class id; Object, Array: object id
    std::string type;  // Array: its signature ([I, [Lpkg/Name;)
};

class VariableStore {
public:
    int64_t addFrame(const FrameRef& frame);
    const FrameRef* frame(int64_t id) const;
    // One number per container while stopped: asking twice for the same
    // object gives the same number.
    int64_t addContainer(const Container& c);
    const Container* container(int64_t id) const;
    // The program resumed: every number handed out so far is stale.
    void reset();
    size_t size() const { return frames_.size() + containers_.size(); }

private:
    int64_t next_ = 1;
    std::unordered_map<int64_t, FrameRef> frames_;
    std::unordered_map<int64_t, Container> containers_;
    std::unordered_map<std::string, int64_t> byKey_;
};

} // namespace krvdbg
