#pragma once

#include <nv/driver_host.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/result.h"
#include "runtime/plugin_library.h"

namespace overseer {

class AgentSettings;
class History;
class Notifications;
class Scheduler;
class TemporaryFolder;
class Variables;

/// What every agent of the host stands on. All of it outlives the agents.
struct AgentSurroundings {
    IOverseer& overseer;
    IConfigManager& folders;
    IInstanceManager& instances;
    IStatsdClient& metrics;
    Variables& variables;
    History& history;
    Notifications& notifications;
    Scheduler& scheduler;
    AgentSettings& settings;
    TemporaryFolder& temporary;
};

/// One agent: the object out of its library, and the host as this object sees it.
///
/// Every call into the agent is made here and nowhere else; what it throws becomes an error, and
/// what it persists is collected after each command and delivery. I/O thread only.
class HostedAgent : public IDriverHost {
  public:
    HostedAgent(const AgentSurroundings& surroundings, std::shared_ptr<PluginLibrary> library,
                std::string name, std::uint32_t deviceId);
    ~HostedAgent() override;
    HostedAgent(const HostedAgent&) = delete;
    HostedAgent& operator=(const HostedAgent&) = delete;

    const std::string& name() const { return name_; }
    std::uint32_t deviceId() const { return context_.deviceId; }
    const PluginLibrary& library() const { return *library_; }

    /// Creates the agent, gives it back what it persisted, and has it register its commands and
    /// variables. An error when it could not be created; what it throws later is logged.
    Result<> start();
    /// Runs a command. @return the answer's XML text, nothing for a plain command or an empty node
    Result<std::optional<std::string>> runCommand(
        const std::string& command, const std::map<std::string, std::string>& parameters);
    /// Hands an event of the schedule over; what the agent throws is logged.
    void deliver(std::uint32_t eventId);
    /// Stores what the agent persists, when it changed. A failure is logged too, and the next call
    /// tries again.
    Result<> persist();
    /// The same, where the last time failed: for whenever the disk may have room again.
    void persistAgain();
    /// The same for the last time; says what is lost when it fails.
    void persistFinally();
    /// What would be stored now; a null node when there is none.
    nv::XmlNode::Ptr persistedNode();
    std::vector<std::string> plainCommands();
    std::vector<std::string> answeringCommands();

    IOverseer& GetOverseer() override { return surroundings_.overseer; }
    IConfigManager& GetConfigManager() override { return surroundings_.folders; }
    IInstanceManager& GetInstanceManager() override { return surroundings_.instances; }
    IStatsdClient& GetStatsdClient() override { return surroundings_.metrics; }
    void AddVariable(const VariableDeclaration& variable) override;
    void ChangeVariable(unsigned int id, const std::string& value) override;
    void RemoveVariable(unsigned int id) override;
    void RecordHistory(const HistoryEvent& event) override;
    void SendToUserInterfaces(const nv::XmlNode::Ptr& notification) override;
    RESULTX RegisterListener(unsigned int emitterId, unsigned int eventId) override;

  private:
    IDriverOperations& operations() { return driver_->GetOperations(); }
    /// Makes one call into the agent; false and an ERROR line when it threw.
    template <typename Call>
    bool logged(const std::string& what, Call&& call);

    AgentSurroundings surroundings_;
    std::shared_ptr<PluginLibrary> library_;
    std::string name_;
    CreationContext context_;
    bool unstored_ = false;
    PluginLibrary::Driver driver_;  ///< last, since it uses all the others until it is gone
};

}  // namespace overseer
