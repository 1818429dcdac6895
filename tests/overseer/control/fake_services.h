#pragma once

#include <functional>
#include <map>
#include <set>
#include <stdexcept>

#include "control/control_services.h"

namespace overseer::control {

/// A host with one agent, whose every fact a test can set. I/O thread only.
class FakeServices : public ControlServices {
  public:
    static constexpr const char* kAgent = "updater";

    struct Sent {
        std::string command;
        std::map<std::string, std::string> parameters;
    };

    std::vector<AgentInformation> agentList{
        {kAgent,
         7,
         "/lib/updater.so",
         true,
         "",
         {"SET_STATE", "SET_EXCLUDE", "EXECUTE_AUTO_UPDATE", "THROW"},
         {"GET_STATE", "EMPTY"}}};
    std::vector<Sent> sent;
    std::function<void()> onCommand;
    std::string settingsXml =
        "<persist_data><auto_update_enabled>true</auto_update_enabled>"
        "<excluded_files></excluded_files></persist_data>";
    bool idle = true;
    std::optional<RunReport> run;
    std::function<void()> onStart;  ///< what a started run does to `run` and `idle`
    std::vector<Notification> kept;
    std::uint64_t newest = 0;
    NotificationObserver* observer = nullptr;
    std::vector<std::uint32_t> fired;
    std::set<std::string> inPlace;                            ///< names of driver files
    std::vector<std::pair<std::string, std::string>> placed;  ///< names, and files put there
    std::map<std::string, std::string> answers;  ///< XML by command, of those without one here

    void publish(std::string xml) {
        kept.push_back({++newest, Instant{}, kAgent, std::move(xml), "", 0});
        if (observer != nullptr) {
            observer->notificationsAdded();
        }
    }

    HostInformation host() override { return {"3.1.4", "/root/of/it", 42, Instant{}}; }
    std::vector<AgentInformation> agents() override { return agentList; }
    Result<std::optional<std::string>> runCommand(
        const std::string&, const std::string& command,
        const std::map<std::string, std::string>& parameters) override {
        sent.push_back({command, parameters});
        if (onCommand) {
            onCommand();
        }
        if (command == "THROW") {
            return failure("parameter missing: \"drivers\"");
        }
        if (command == "SET_EXCLUDE") {
            settingsXml =
                "<persist_data><auto_update_enabled>true</auto_update_enabled>"
                "<excluded_files>" +
                parameters.at("exclude") + "</excluded_files></persist_data>";
        }
        if (const auto given = answers.find(command); given != answers.end()) {
            return given->second;
        }
        return command == "GET_STATE" ? std::optional<std::string>("<state>on</state>")
                                      : std::nullopt;
    }
    Result<std::uint64_t> startRun(const std::string&, bool forced) override {
        run.emplace();
        run->id = 11;
        run->kind = forced ? RunKind::kForced : RunKind::kNormal;
        idle = false;
        if (onStart) {
            onStart();
        }
        return 11;
    }
    std::optional<RunReport> lastRun(const std::string&) override { return run; }
    bool networkIdle() override { return idle; }
    std::string settings(const std::string&) override { return settingsXml; }
    CatalogueContact catalogueContact(const std::string&) override {
        return {Instant{}, std::nullopt, "refused"};
    }
    std::vector<VariableInformation> variables() override {
        return {
            {kAgent, 1000, "LAST_MESSAGE", "string", "Türklingel.nvz updated", true, false, ""}};
    }
    Result<std::vector<HistoryRecord>> history(const HistoryQuery& query) override {
        if (query.limit == 13) {
            throw std::runtime_error("the history broke");
        }
        return std::vector<HistoryRecord>{{1, Instant{}, kAgent, "text \xff end",
                                           "Driver Update Agent", "Auto Update", "Failed"}};
    }
    NotificationPage notifications(std::uint64_t from, std::size_t limit) override {
        NotificationPage page{kept.empty() ? newest + 1 : kept.front().number, newest, {}};
        for (const Notification& notification : kept) {
            if (notification.number >= from && page.entries.size() < limit) {
                page.entries.push_back(notification);
            }
        }
        return page;
    }
    void observeNotifications(NotificationObserver* next) override { observer = next; }
    std::vector<ScheduledEvent> schedule() override {
        ScheduledEvent event;
        event.id = 3;
        event.name = "Daily";
        event.next = Instant{};
        event.listeners = {kAgent};
        return {event};
    }
    Result<> fire(std::uint32_t id) override {
        fired.push_back(id);
        return {};
    }
    Result<std::vector<DriverInformation>> drivers() override {
        DriverInformation driver;
        driver.file = "Türklingel.nvz";
        driver.installedVersion = 12;
        driver.inPlace = true;
        driver.versionInPlace = 13;
        driver.devices = {{1, "Haustür"}};
        DriverInformation plain;
        plain.file = "dimmer.nvi";
        plain.installedVersion = 3;
        return std::vector<DriverInformation>{driver, plain};
    }
    Result<std::optional<DriverInformation>> driver(const std::string& file) override {
        if (file.front() == '.') {
            return failure("\"{}\" cannot be the name of a driver file", file);
        }
        if (inPlace.count(file) == 0) {
            return std::nullopt;
        }
        DriverInformation driver;
        driver.file = file;
        driver.inPlace = true;
        return driver;
    }
    Result<PlacedDriver> place(const std::string& file, const std::string& path) override {
        if (file == "blocked.nvi") {
            return failure("{}: a folder is in the way", path);
        }
        placed.emplace_back(file, path);
        const bool added = inPlace.insert(file).second;
        return PlacedDriver{file, 13, file == "agent.nvz" ? "agent.so" : "", added};
    }
    Result<RestoredDriver> restore(const std::string& file) override {
        if (file == "nothing.nvz") {
            return failure("{}: no earlier package is kept", file);
        }
        return RestoredDriver{file, 11, true};
    }
};

}  // namespace overseer::control
