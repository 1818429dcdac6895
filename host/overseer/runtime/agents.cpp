#include "runtime/agents.h"

#include <utility>

#include "common/log.h"

namespace overseer {

Result<> Agents::load(const std::string& library) {
    Result<std::shared_ptr<PluginLibrary>> loaded = PluginLibrary::load(library);
    if (!loaded) return tl::unexpected(loaded.error());
    libraries_.push_back(*loaded);
    for (const std::string& name : (*loaded)->names()) {
        if (find(name) != nullptr) {
            return failure("{} holds an agent \"{}\", and one of that name runs already", library,
                           name);
        }
        auto agent = std::make_unique<HostedAgent>(surroundings_, *loaded, name, nextDevice_++);
        // In the list before it starts: what it sets off finds it there.
        agents_.push_back(std::move(agent));
        if (Result<> started = agents_.back()->start(); !started) {
            agents_.pop_back();
            return started;
        }
        log::info(fmt::format("agent {} runs, out of {}", name, library));
    }
    return {};
}

void Agents::destroy() {
    while (!agents_.empty()) {
        agents_.back()->persist();
        agents_.pop_back();
    }
}

HostedAgent* Agents::find(const std::string& name) const {
    for (const auto& agent : agents_) {
        if (agent->name() == name) return agent.get();
    }
    return nullptr;
}

HostedAgent* Agents::find(std::uint32_t deviceId) const {
    for (const auto& agent : agents_) {
        if (agent->deviceId() == deviceId) return agent.get();
    }
    return nullptr;
}

}  // namespace overseer
