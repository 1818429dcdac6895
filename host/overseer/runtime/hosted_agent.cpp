#include "runtime/hosted_agent.h"

#include <cstdio>
#include <utility>

#include "common/log.h"
#include "root/temporary_folder.h"
#include "runtime/command_message.h"
#include "runtime/guard.h"
#include "services/agent_settings.h"
#include "services/history.h"
#include "services/notifications.h"
#include "services/scheduler.h"
#include "services/variables.h"

namespace overseer {

HostedAgent::HostedAgent(const AgentSurroundings& surroundings,
                         std::shared_ptr<PluginLibrary> library, std::string name,
                         std::uint32_t deviceId)
    : surroundings_(surroundings),
      library_(std::move(library)),
      name_(std::move(name)),
      context_{*this, deviceId} {}

HostedAgent::~HostedAgent() {
    surroundings_.scheduler.removeListeners(deviceId());
    if (driver_) logged("its destructor", [&] { driver_.reset(); });
    surroundings_.variables.removeDevice(deviceId());
}

template <typename Call>
bool HostedAgent::logged(const std::string& what, Call&& call) {
    const Result<> called = guarded(what, std::forward<Call>(call));
    if (!called) log::error(fmt::format("agent {}: {}", name_, called.error().message));
    return called.has_value();
}

Result<> HostedAgent::start() {
    Result<PluginLibrary::Driver> created = library_->create(context_);
    if (!created) return tl::unexpected(created.error());
    driver_ = std::move(*created);

    nv::XmlNode::Ptr configuration = nv::CreateXmlNode();
    Result<nv::XmlNode::Ptr> persisted = surroundings_.settings.restore(name_);
    if (!persisted) return inContext("settings of agent " + name_, persisted.error());
    logged("Initialize", [&] { operations().Initialize(deviceId(), configuration, *persisted); });
    logged("RegisterCommands", [&] { operations().RegisterCommands(); });
    logged("RegisterConditionals", [&] { operations().RegisterConditionals(); });
    logged("RegisterVariables", [&] { operations().RegisterVariables(); });
    RESULTX ready = 0;
    logged("LateInitialize", [&] { ready = operations().LateInitialize(); });
    if (ready < 0) {
        log::error(
            fmt::format("agent {}: LateInitialize answered {}; it runs without what it "
                        "could not set up",
                        name_, ready));
    }
    persist();
    return {};
}

Result<std::optional<std::string>> HostedAgent::runCommand(
    const std::string& command, const std::map<std::string, std::string>& parameters) {
    surroundings_.temporary.keep();
    const CommandMessage message(command, parameters);
    nv::XmlNode::Ptr answer;
    bool known = false;
    const Result<> called = guarded("the command " + command, [&] {
        IAgent* agent = operations().GetAgent();
        known = agent != nullptr && (agent->GetUICmdDispatcher().DispatchUICmd(message, answer) ||
                                     agent->GetCmdDispatcher().DispatchCmd(message));
    });
    const Result<> stored = persist();
    if (!called) {
        log::error(fmt::format("agent {}: {}", name_, called.error().message));
        return tl::unexpected(called.error());
    }
    if (!known) return failure("the agent {} knows no command {}", name_, command);
    if (!stored) return inContext(command + " is done, but a restart loses it", stored.error());
    if (!answer || answer->IsEmpty()) return std::optional<std::string>();
    return std::optional<std::string>(answer->ToText(true));
}

void HostedAgent::deliver(std::uint32_t eventId) {
    surroundings_.temporary.keep();
    logged("the delivery of event " + std::to_string(eventId),
           [&] { operations().OnSchedulerEvent(eventId); });
    persist();
}

Result<> HostedAgent::persist() {
    Result<> collected = surroundings_.settings.collect(name_, operations());
    if (!collected) {
        log::error(fmt::format("settings of agent {} could not be stored: {}", name_,
                               collected.error().message));
    }
    unstored_ = !collected;
    return collected;
}

void HostedAgent::persistAgain() {
    if (unstored_) persist();
}

void HostedAgent::persistFinally() {
    if (persist()) return;
    std::string lost;
    logged("GetPersistData", [&] { lost = surroundings_.settings.unstored(name_, operations()); });
    if (lost.empty()) return;
    const std::string text = fmt::format(
        "settings of agent {} are lost with this stop, since they could not be stored; "
        "set them again: {}",
        name_, lost);
    log::error(text);
    // The log lies on the same disk.
    std::fprintf(stderr, "overseer: %s\n", text.c_str());
}

nv::XmlNode::Ptr HostedAgent::persistedNode() {
    nv::XmlNode::Ptr node;
    logged("GetPersistData", [&] { node = operations().GetPersistData(); });
    return node;
}

std::vector<std::string> HostedAgent::plainCommands() {
    std::vector<std::string> names;
    logged("its list of commands", [&] {
        if (IAgent* agent = operations().GetAgent())
            names = agent->GetCmdDispatcher().GetCmdNames();
    });
    return names;
}

std::vector<std::string> HostedAgent::answeringCommands() {
    std::vector<std::string> names;
    logged("its list of commands", [&] {
        if (IAgent* agent = operations().GetAgent()) {
            names = agent->GetUICmdDispatcher().GetUICmdNames();
        }
    });
    return names;
}

void HostedAgent::AddVariable(const VariableDeclaration& variable) {
    surroundings_.variables.declare(deviceId(), variable);
}

void HostedAgent::ChangeVariable(unsigned int id, const std::string& value) {
    surroundings_.variables.change(deviceId(), id, value);
}

void HostedAgent::RemoveVariable(unsigned int id) {
    surroundings_.variables.remove(deviceId(), id);
}

void HostedAgent::RecordHistory(const HistoryEvent& event) {
    const Result<HistoryRecord> recorded = surroundings_.history.record(name_, event);
    if (!recorded) {
        log::error(fmt::format("the history record \"{}\" could not be stored: {}", event.text,
                               recorded.error().message));
    }
}

void HostedAgent::SendToUserInterfaces(const nv::XmlNode::Ptr& notification) {
    if (notification) surroundings_.notifications.publish(name_, notification->ToText());
}

RESULTX HostedAgent::RegisterListener(unsigned int emitterId, unsigned int eventId) {
    if (emitterId != surroundings_.scheduler.GetId()) return -1;
    return surroundings_.scheduler.addListener(deviceId(), eventId);
}

}  // namespace overseer
