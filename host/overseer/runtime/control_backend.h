#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "control/control_services.h"

namespace overseer {

class Agents;
class AgentSettings;
class DriverDesk;
class History;
class IdleWatch;
class Notifications;
class RunJournal;
class Scheduler;
class UpdateRuns;
class Variables;

/// The host, as the control interface asks it: hands each question to the service that knows, and
/// puts answers into the interface's own records. I/O thread only.
class ControlBackend : public control::ControlServices {
  public:
    /// What it stands on; all of it outlives this.
    struct Surroundings {
        Agents& agents;
        AgentSettings& settings;
        DriverDesk& drivers;
        History& history;
        IdleWatch& idle;
        Notifications& notifications;
        RunJournal& journal;
        Scheduler& scheduler;
        UpdateRuns& runs;
        Variables& variables;
    };

    ControlBackend(const Surroundings& surroundings, control::HostInformation host);

    control::HostInformation host() override { return host_; }
    std::vector<control::AgentInformation> agents() override;
    Result<std::optional<std::string>> runCommand(
        const std::string& agent, const std::string& command,
        const std::map<std::string, std::string>& parameters) override;
    Result<std::uint64_t> startRun(const std::string& agent, bool forced) override;
    std::optional<control::RunReport> lastRun(const std::string& agent) override;
    bool networkIdle() override;
    std::string settings(const std::string& agent) override;
    control::CatalogueContact catalogueContact(const std::string& agent) override;
    std::vector<control::VariableInformation> variables() override;
    Result<std::vector<control::HistoryRecord>> history(
        const control::HistoryQuery& query) override;
    control::NotificationPage notifications(std::uint64_t from, std::size_t limit) override;
    void observeNotifications(control::NotificationObserver* observer) override;
    std::vector<control::ScheduledEvent> schedule() override;
    Result<> fire(std::uint32_t id) override;
    Result<std::vector<control::DriverInformation>> drivers() override;
    Result<std::optional<control::DriverInformation>> driver(const std::string& file) override;
    Result<control::PlacedDriver> place(const std::string& file, const std::string& path) override;
    Result<control::RestoredDriver> restore(const std::string& file) override;

  private:
    /// What the last runs made of each file, and when.
    using Outcomes = std::map<std::string, std::pair<control::FileOutcome, control::Instant>>;

    Outcomes lastOutcomes();
    static void addOutcome(const Outcomes& outcomes, control::DriverInformation& driver);
    std::string ownerOf(std::uint32_t deviceId) const;

    Surroundings surroundings_;
    control::HostInformation host_;
    control::NotificationObserver* observer_ = nullptr;
};

}  // namespace overseer
