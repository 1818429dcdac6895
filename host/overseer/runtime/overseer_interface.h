#pragma once

#include <nv/overseer.h>

#include <functional>

#include "services/messages.h"

namespace overseer {

class DriverDesk;
class Project;

/// The host as drivers see it: each operation goes to the service that does it. I/O thread only.
class OverseerInterface : public IOverseer {
  public:
    /// What it stands on; all of it outlives this.
    struct Surroundings {
        boost::asio::io_context& context;
        Project& project;
        DriverDesk& drivers;
        Messages& messages;
        std::function<void()> restart;  ///< notes a restart, and returns
    };

    explicit OverseerInterface(Surroundings surroundings);

    boost::asio::io_context& GetDeviceIoContext(std::uint32_t deviceId) override;
    IProject& GetProject() override;
    IDeviceRegistry& GetDeviceRegistry() override;
    int GetInstalledVersion(const std::string& fileName) override;
    std::string GetVersionDocument() override;
    RESULTX UpdateDriver(const std::string& fileName) override;
    void Restart() override;
    void ShowMessage(const std::string& text, int severity) override;
    std::vector<AgentFile> GetLoadedAgents() override;
    RESULTX AddAgent(const std::string& name, const std::string& library,
                     const std::string& fileName) override;

  private:
    Surroundings surroundings_;
};

}  // namespace overseer
