#pragma once

#include <nv/driver_host.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "journal.h"
#include "recording_scheduler.h"

namespace support {

/// The host behind one driver, in memory: everything that a driver asks of it or tells it goes into
/// the journal, and what it answers is set by the test in the public members.
///
/// Journal entries, beside those of RecordingScheduler:
///   "add variable ID NAME TYPE VALUE FLAG FLAG DESCRIPTION", "variable ID = VALUE",
///   "remove variable ID", "history TEXT | CATEGORY | SUBCATEGORY | RESULT", "notify XML",
///   "count NAMESPACE NAME TAG", "plain count NAMESPACE NAME VALUE RATE", "listen EMITTER EVENT",
///   "installed version NAME", "device ids NAME", "version document", "update NAME", "restart",
///   "message SEVERITY TEXT", "add agent NAME | LIBRARY | FILE"
class RecordingHost : public IDriverHost,
                      public IOverseer,
                      public IProject,
                      public IDeviceRegistry,
                      public IConfigManager,
                      public IInstanceManager,
                      public IStatsdClient {
  public:
    static constexpr std::uint32_t kDeviceId = 100002;

    RecordingHost(Journal& journal, boost::asio::io_context& context);

    // What a test sets.
    std::set<std::string> driverFiles;                            ///< of the project's devices
    std::set<std::string> agentFiles;                             ///< of the packaged agents
    std::map<std::string, std::vector<std::uint32_t>> deviceIds;  ///< by file; others have none
    std::map<std::string, int> installedVersions;                 ///< others are 0
    std::string versionDocument =
        R"(<versions><version name="Overseer" version="3.4.0"/></versions>)";
    std::set<std::string> refusedUpdates;  ///< files whose update the host refuses
    RESULTX addAnswer = 0;
    RESULTX listenerAnswer = 0;
    bool hasScheduler = true;
    std::string packagedFolder;
    std::string plainFolder;
    std::string configurationFolder;
    std::string certificateFolder;
    RecordingScheduler scheduler;

    // IDriverHost
    IOverseer& GetOverseer() override { return *this; }
    IConfigManager& GetConfigManager() override { return *this; }
    IInstanceManager& GetInstanceManager() override { return *this; }
    IStatsdClient& GetStatsdClient() override { return *this; }
    void AddVariable(const VariableDeclaration& variable) override;
    void ChangeVariable(unsigned int id, const std::string& value) override;
    void RemoveVariable(unsigned int id) override;
    void RecordHistory(const HistoryEvent& event) override;
    void SendToUserInterfaces(const nv::XmlNode::Ptr& notification) override;
    RESULTX RegisterListener(unsigned int emitterId, unsigned int eventId) override;

    // IOverseer
    boost::asio::io_context& GetDeviceIoContext(std::uint32_t deviceId) override;
    IProject& GetProject() override { return *this; }
    IDeviceRegistry& GetDeviceRegistry() override { return *this; }
    int GetInstalledVersion(const std::string& fileName) override;
    std::string GetVersionDocument() override;
    RESULTX UpdateDriver(const std::string& fileName) override;
    void Restart() override;
    void ShowMessage(const std::string& text, int severity) override;
    std::vector<AgentFile> GetLoadedAgents() override;
    RESULTX AddAgent(const std::string& name, const std::string& library,
                     const std::string& fileName) override;

    // IProject
    void AddDriverFileNames(std::set<std::string>& names) const override;
    void AddAgentFileNames(std::set<std::string>& names) const override;

    // IDeviceRegistry
    std::vector<std::uint32_t> GetDeviceIds(const std::string& fileName) const override;

    // IConfigManager
    std::string GetPackagedDriverFolder() const override { return packagedFolder; }
    std::string GetPlainDriverFolder() const override { return plainFolder; }
    std::string GetConfigurationFolder() const override { return configurationFolder; }
    std::string GetCertificateFolder() const override { return certificateFolder; }

    // IInstanceManager
    IInstance* GetInstance(const std::string& guid) override;

    // IStatsdClient
    StatsdResult Count(const std::string& nameSpace, const std::string& name,
                       const std::string& tag) override;
    StatsdResult Count(const std::string& nameSpace, const std::string& name, int value,
                       int sampleRate) override;

  private:
    Journal& journal_;
    boost::asio::io_context& context_;
};

}  // namespace support
