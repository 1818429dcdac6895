#include "runtime/overseer_interface.h"

#include <utility>

#include "drivers/project.h"
#include "runtime/driver_desk.h"
#include "services/version_document.h"

namespace overseer {

OverseerInterface::OverseerInterface(Surroundings surroundings)
    : surroundings_(std::move(surroundings)) {}

boost::asio::io_context& OverseerInterface::GetDeviceIoContext(std::uint32_t) {
    // One loop serves all devices: nothing that concerns an agent ever runs beside it.
    return surroundings_.context;
}

IProject& OverseerInterface::GetProject() {
    return surroundings_.project;
}

IDeviceRegistry& OverseerInterface::GetDeviceRegistry() {
    return surroundings_.project;
}

int OverseerInterface::GetInstalledVersion(const std::string& fileName) {
    return surroundings_.drivers.installedVersion(fileName);
}

std::string OverseerInterface::GetVersionDocument() {
    return versionDocument(hostVersion());
}

RESULTX OverseerInterface::UpdateDriver(const std::string& fileName) {
    return surroundings_.drivers.update(fileName);
}

void OverseerInterface::Restart() {
    surroundings_.restart();
}

void OverseerInterface::ShowMessage(const std::string& text, int severity) {
    surroundings_.messages.show("", text, severity);
}

std::vector<AgentFile> OverseerInterface::GetLoadedAgents() {
    std::vector<AgentFile> agents;
    for (const ProjectEntry& agent : surroundings_.project.agents()) {
        agents.push_back({agent.name, agent.file});
    }
    return agents;
}

RESULTX OverseerInterface::AddAgent(const std::string& name, const std::string& library,
                                    const std::string& fileName) {
    return surroundings_.drivers.addAgent(name, library, fileName);
}

}  // namespace overseer
