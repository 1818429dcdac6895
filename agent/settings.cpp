// Settings: whether drivers are updated by themselves, whether the dealer said so, and which files
// are left alone; restored at the start, collected by the host, changed and shown by commands.
// Entered from the host and its dispatchers; isExcluded from the answers of the catalogue.
// GET_STATE leaves to the daily events. Writes autoUpdateEnabled, autoUpdateSetByDealer and
// excludedFiles.
#include "norvane_agent_driverupdate.h"

#include <algorithm>
#include <string_view>

RESULTX norvane_agent_driverupdate::Initialize(unsigned int deviceId,
                                               nv::XmlNode::Ptr& configuration,
                                               nv::XmlNode::Ptr persisted) {
    NVBaseAgentDriver::Initialize(deviceId, configuration, persisted);
    if (!persisted || persisted->IsEmpty()) return 0;
    if (!persisted->IsName("persist_data")) return 0;

    if (persisted->ChildExists("auto_update_set_by_dealer")) {
        autoUpdateSetByDealer = persisted->GetChildDataBool("auto_update_set_by_dealer");
    }
    // Only a dealer's own choice keeps updating switched off over a restart.
    const bool storedChoiceCounts =
        autoUpdateSetByDealer && persisted->ChildExists("auto_update_enabled");
    autoUpdateEnabled =
        storedChoiceCounts ? persisted->GetChildDataBool("auto_update_enabled") : true;

    excludedFiles = persisted->ChildExists("excluded_files")
                        ? persisted->GetChildData("excluded_files")
                        : std::string();
    return 0;
}

void norvane_agent_driverupdate::ResetSettings() {
    autoUpdateEnabled = true;
}

nv::XmlNode::Ptr norvane_agent_driverupdate::GetPersistData() {
    nv::XmlNode::Ptr node = nv::CreateXmlNode();
    node->Initialize("persist_data", "");
    node->AddChild("auto_update_enabled", autoUpdateEnabled);
    node->AddChild("auto_update_set_by_dealer", autoUpdateSetByDealer);
    node->AddChild("excluded_files", excludedFiles.c_str());
    return node;
}

bool norvane_agent_driverupdate::isExcluded(const std::string& fileName) const {
    // In place, without a list of copies: an answer may ask a hundred thousand times.
    if (fileName.empty()) return false;
    for (std::string_view rest = excludedFiles; !rest.empty();) {
        const std::size_t end = std::min(rest.find(','), rest.size());
        if (rest.substr(0, end) == fileName) return true;
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return false;
}

nv::XmlNode::Ptr norvane_agent_driverupdate::OnCmdGetState(const ICmdMessage&) {
    // An event that was deleted behind the agent's back comes back when somebody looks.
    scheduleAutoUpdateEvent();
    nv::XmlNode::Ptr state = nv::CreateXmlNode("state", "");
    state->AddChild("auto_update_enabled", autoUpdateEnabled);
    state->AddChild("auto_update_set_by_dealer", autoUpdateSetByDealer);
    return state;
}

void norvane_agent_driverupdate::OnCmdSetState(const ICmdMessage& message) {
    autoUpdateEnabled = message.GetBoolParameter("auto_update_enabled");
    autoUpdateSetByDealer = true;
}

void norvane_agent_driverupdate::OnCmdSetExclude(const ICmdMessage& message) {
    excludedFiles = message.GetStringParameter("exclude");
}
