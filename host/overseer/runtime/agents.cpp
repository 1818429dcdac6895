#include "runtime/agents.h"

#include <utility>

#include "common/log.h"

namespace overseer {

Result<> Agents::load(const std::string& library) {
    return startAll(library, std::nullopt);
}

void Agents::loadPackaged(const ProjectEntry& entry, const Result<boost::filesystem::path>& file) {
    const Result<> started =
        file ? startAll(file->string(), entry.id) : Result<>(tl::unexpected(file.error()));
    if (started) return;
    const std::string& why = started.error().message;
    log::error(fmt::format("agent {} ({}) is not loaded and stays a device: {}", entry.name,
                           entry.file, why));
    unloaded_.push_back({entry.name, entry.id, entry.library, why});
}

Result<> Agents::startAll(const std::string& library, std::optional<std::uint32_t> firstDevice) {
    Result<std::shared_ptr<PluginLibrary>> loaded = PluginLibrary::load(library);
    if (!loaded) return tl::unexpected(loaded.error());
    libraries_.push_back(*loaded);
    const std::size_t before = agents_.size();
    for (const std::string& name : (*loaded)->names()) {
        if (find(name) != nullptr) {
            agents_.resize(before);
            return failure("{} holds an agent \"{}\", and one of that name runs already", library,
                           name);
        }
        const std::uint32_t device = firstDevice ? *firstDevice : nextDevice_++;
        firstDevice.reset();
        auto agent = std::make_unique<HostedAgent>(surroundings_, *loaded, name, device);
        // In the list before it starts: what it sets off finds it there.
        agents_.push_back(std::move(agent));
        if (Result<> started = agents_.back()->start(); !started) {
            // A library is loaded with all its agents or with none.
            agents_.resize(before);
            return started;
        }
        log::info(fmt::format("agent {} runs, out of {}", name, library));
    }
    return {};
}

void Agents::destroy() {
    while (!agents_.empty()) {
        agents_.back()->persistFinally();
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
