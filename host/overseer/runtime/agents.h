#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/result.h"
#include "runtime/hosted_agent.h"

namespace overseer {

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
    /// Destroys all agents, last one first; each has persisted before. Their libraries stay.
    void destroy();

    const std::vector<std::unique_ptr<HostedAgent>>& all() const { return agents_; }
    /// Null when there is no such agent.
    HostedAgent* find(const std::string& name) const;
    HostedAgent* find(std::uint32_t deviceId) const;

  private:
    AgentSurroundings surroundings_;
    /// Outlive the agents, and the loop's last handlers that came out of them.
    std::vector<std::shared_ptr<PluginLibrary>> libraries_;
    std::vector<std::unique_ptr<HostedAgent>> agents_;
    std::uint32_t nextDevice_ = kFirstBuiltInDevice;
};

}  // namespace overseer
