#include "recording_host.h"

#include <stdexcept>

namespace support {

namespace {

std::string flag(bool value) {
    return value ? "true" : "false";
}

}  // namespace

RecordingHost::RecordingHost(Journal& journal, boost::asio::io_context& context)
    : scheduler(journal), journal_(journal), context_(context) {}

void RecordingHost::AddVariable(const VariableDeclaration& variable) {
    journal_.add("add variable " + std::to_string(variable.id) + " " + variable.name + " " +
                 std::to_string(static_cast<int>(variable.type)) + " '" + variable.value + "' " +
                 flag(variable.readOnly) + " " + flag(variable.hidden) + " " +
                 variable.description);
}

void RecordingHost::ChangeVariable(unsigned int id, const std::string& value) {
    journal_.add("variable " + std::to_string(id) + " = " + value);
}

void RecordingHost::RemoveVariable(unsigned int id) {
    journal_.add("remove variable " + std::to_string(id));
}

void RecordingHost::RecordHistory(const HistoryEvent& event) {
    journal_.add("history " + event.text + " | " + event.category + " | " + event.subcategory +
                 " | " + event.result);
}

void RecordingHost::SendToUserInterfaces(const nv::XmlNode::Ptr& notification) {
    journal_.add("notify " + notification->ToText());
}

RESULTX RecordingHost::RegisterListener(unsigned int emitterId, unsigned int eventId) {
    journal_.add("listen " + std::to_string(emitterId) + " " + std::to_string(eventId));
    return listenerAnswer;
}

boost::asio::io_context& RecordingHost::GetDeviceIoContext(std::uint32_t deviceId) {
    if (deviceId != kDeviceId) throw std::logic_error("not the driver's own device");
    return context_;
}

int RecordingHost::GetInstalledVersion(const std::string& fileName) {
    journal_.add("installed version " + fileName);
    const auto found = installedVersions.find(fileName);
    return found == installedVersions.end() ? 0 : found->second;
}

std::string RecordingHost::GetVersionDocument() {
    journal_.add("version document");
    return versionDocument;
}

RESULTX RecordingHost::UpdateDriver(const std::string& fileName) {
    journal_.add("update " + fileName);
    return refusedUpdates.count(fileName) != 0 ? -1 : 0;
}

void RecordingHost::Restart() {
    journal_.add("restart");
}

void RecordingHost::ShowMessage(const std::string& text, int severity) {
    journal_.add("message " + std::to_string(severity) + " " + text);
}

std::vector<AgentFile> RecordingHost::GetLoadedAgents() {
    std::vector<AgentFile> agents;
    for (const std::string& file : agentFiles) agents.push_back({"agent in " + file, file});
    return agents;
}

RESULTX RecordingHost::AddAgent(const std::string& name, const std::string& library,
                                const std::string& fileName) {
    journal_.add("add agent " + name + " | " + library + " | " + fileName);
    return addAnswer;
}

void RecordingHost::AddDriverFileNames(std::set<std::string>& names) const {
    names.insert(driverFiles.begin(), driverFiles.end());
}

void RecordingHost::AddAgentFileNames(std::set<std::string>& names) const {
    names.insert(agentFiles.begin(), agentFiles.end());
}

std::vector<std::uint32_t> RecordingHost::GetDeviceIds(const std::string& fileName) const {
    journal_.add("device ids " + fileName);
    const auto found = deviceIds.find(fileName);
    return found == deviceIds.end() ? std::vector<std::uint32_t>() : found->second;
}

IInstance* RecordingHost::GetInstance(const std::string& guid) {
    return hasScheduler && guid == "3A7C51E2-94B0-4d1e-A6F3-7B2C90D84E15" ? &scheduler : nullptr;
}

StatsdResult RecordingHost::Count(const std::string& nameSpace, const std::string& name,
                                  const std::string& tag) {
    journal_.add("count " + nameSpace + " " + name + " " + tag);
    return {};
}

StatsdResult RecordingHost::Count(const std::string& nameSpace, const std::string& name, int value,
                                  int sampleRate) {
    journal_.add("plain count " + nameSpace + " " + name + " " + std::to_string(value) + " " +
                 std::to_string(sampleRate));
    return {};
}

}  // namespace support
