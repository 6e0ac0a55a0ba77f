// Frame and variable handles (see VariableStore.h).
#include "VariableStore.h"

namespace krvdbg {

namespace {
std::string keyOf(const Container& c)
{
    return std::to_string(static_cast<int>(c.kind)) + ":" + std::to_string(c.frame) + ":" +
           std::to_string(static_cast<int64_t>(c.id));
}
} // namespace

int64_t VariableStore::addFrame(const FrameRef& frame)
{
    const int64_t id = next_++;
    frames_.emplace(id, frame);
    return id;
}

const FrameRef* VariableStore::frame(int64_t id) const
{
    auto it = frames_.find(id);
    return it == frames_.end() ? nullptr : &it->second;
}

int64_t VariableStore::addContainer(const Container& c)
{
    const std::string key = keyOf(c);
    if (auto it = byKey_.find(key); it != byKey_.end())
        return it->second;
    const int64_t id = next_++;
    containers_.emplace(id, c);
    byKey_.emplace(key, id);
    return id;
}

const Container* VariableStore::container(int64_t id) const
{
    auto it = containers_.find(id);
    return it == containers_.end() ? nullptr : &it->second;
}

void VariableStore::reset()
{
    frames_.clear();
    containers_.clear();
    byKey_.clear();
}

} // namespace krvdbg
