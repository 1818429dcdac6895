#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include <nv/asio_forward.h>
#include <nv/result.h>

/// The controller's project: the devices and agents that were put into it.
class IProject {
  public:
    virtual ~IProject() = default;
    /// Adds the driver files of the project's devices; a packaged agent's file is never among them.
    virtual void AddDriverFileNames(std::set<std::string>& names) const = 0;
    /// Adds the files of the packaged agents; the built-in plug-in has none.
    virtual void AddAgentFileNames(std::set<std::string>& names) const = 0;
};

/// The devices of the project, by the driver file that they are built from.
class IDeviceRegistry {
  public:
    virtual ~IDeviceRegistry() = default;
    /// Ids of the devices built from the file of exactly this name, those of agents included; empty
    /// when nothing uses the file.
    virtual std::vector<std::uint32_t> GetDeviceIds(const std::string& fileName) const = 0;
};

/// An agent of the project that came as a package.
struct AgentFile {
    std::string name;      ///< as the project has it
    std::string fileName;  ///< its package
};

/// The host, as a driver sees it. Called on the I/O thread; valid as long as the driver lives.
class IOverseer {
  public:
    virtual ~IOverseer() = default;
    /// The loop on which everything that concerns this device runs.
    virtual boost::asio::io_context& GetDeviceIoContext(std::uint32_t deviceId) = 0;
    virtual IProject& GetProject() = 0;
    virtual IDeviceRegistry& GetDeviceRegistry() = 0;
    /// Version that the file had when the host last applied it, 0 when it never did.
    virtual int GetInstalledVersion(const std::string& fileName) = 0;
    /// `<versions><version name="Overseer" version="major.minor.build"/>…</versions>`
    virtual std::string GetVersionDocument() = 0;
    /// Applies the driver file of that name as it now lies in its folder; negative when refused.
    virtual RESULTX UpdateDriver(const std::string& fileName) = 0;
    /// Restarts the host once the present call has returned and its caller was answered.
    virtual void Restart() = 0;
    /// Shows a message to whoever watches the host. @param severity  0 is information
    virtual void ShowMessage(const std::string& text, int severity) = 0;
    /// The packaged agents, loaded or not: the built-in plug-ins have no file and are left out.
    virtual std::vector<AgentFile> GetLoadedAgents() = 0;
    /// Applies an agent's package as it now lies in its folder and puts the agent into the project;
    /// its library is loaded when the host next starts. Negative when refused: no such package, or
    /// none that can be used.
    /// @param name     the agent's name in the project; empty for the one in its manifest
    /// @param library  plug-in inside the package; empty for the one that its manifest names
    virtual RESULTX AddAgent(const std::string& name, const std::string& library,
                             const std::string& fileName) = 0;
};
