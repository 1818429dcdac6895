#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/result.h"
#include "drivers/project.h"
#include "runtime/hosted_agent.h"

namespace overseer {

/// A packaged agent whose library is not in use: a device, and nothing more.
struct UnloadedAgent {
    std::string name;
    std::uint32_t deviceId = 0;
    std::string library;  ///< as the project names it
    std::string problem;
};

/// The agents that the host runs, built-in ones first. I/O thread only.
class Agents {
  public:
    /// Built-in agents have no place in the project; their devices are numbered from here on, far
    /// above the project's.
    static constexpr std::uint32_t kFirstBuiltInDevice = 1'000'000;

    /// What `surroundings` refers to outlives the agents.
    explicit Agents(const AgentSurroundings& surroundings) : surroundings_(surroundings) {}

    /// Loads a library and starts every agent in it. An error when it could not be loaded, or an
    /// agent not be created; agents that were started before stay.
    Result<> load(const std::string& library);
    /// Loads the library of a packaged agent; the first agent in it is the project's device. One
    /// that cannot be loaded or created stays a device, and an ERROR line says why.
    /// @param file  where the library lies, or why it cannot be used
    void loadPackaged(const ProjectEntry& entry, const Result<boost::filesystem::path>& file);
    /// Destroys all agents, last one first; each has persisted before. Their libraries stay.
    void destroy();

    const std::vector<std::unique_ptr<HostedAgent>>& all() const { return agents_; }
    const std::vector<UnloadedAgent>& unloaded() const { return unloaded_; }
    /// Null when there is no such agent.
    HostedAgent* find(const std::string& name) const;
    HostedAgent* find(std::uint32_t deviceId) const;

  private:
    Result<> startAll(const std::string& library, std::optional<std::uint32_t> firstDevice);

    AgentSurroundings surroundings_;
    /// Outlive the agents, and the loop's last handlers that came out of them.
    std::vector<std::shared_ptr<PluginLibrary>> libraries_;
    std::vector<std::unique_ptr<HostedAgent>> agents_;
    std::vector<UnloadedAgent> unloaded_;
    std::uint32_t nextDevice_ = kFirstBuiltInDevice;
};

}  // namespace overseer
