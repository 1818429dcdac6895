#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

#include <nv/config_manager.h>

#include "common/result.h"

namespace overseer {

/// The one folder that holds everything of a controller, and where in it what lies. The path is
/// absolute and canonical, without double quotes and control characters, so that every path below
/// it can stand in a command line. Immutable; any thread.
class ControllerRoot : public IConfigManager {
  public:
    /// A root at that path, whether or not there is one yet.
    static Result<ControllerRoot> at(const boost::filesystem::path& folder);
    /// The root at that path: fails with what to do where there is none, or where its
    /// configuration or project file is gone. Creates folders that are missing.
    static Result<ControllerRoot> open(const boost::filesystem::path& folder);

    /// Whether anything that makes a controller root is there.
    bool exists() const;

    const boost::filesystem::path& path() const { return path_; }
    boost::filesystem::path configurationFile() const { return path_ / "overseer.conf"; }
    boost::filesystem::path projectFile() const { return path_ / "project.xml"; }
    boost::filesystem::path packagedDrivers() const { return path_ / "drivers/packaged"; }
    boost::filesystem::path plainDrivers() const { return path_ / "drivers/plain"; }
    boost::filesystem::path configuration() const { return path_ / "config"; }
    boost::filesystem::path certificates() const { return path_ / "certs"; }
    boost::filesystem::path caBundle() const { return path_ / "certs/ca-bundle.crt"; }
    boost::filesystem::path state() const { return path_ / "state"; }
    boost::filesystem::path database() const { return path_ / "state/overseer.db"; }
    boost::filesystem::path appliedPackages() const { return path_ / "state/applied"; }
    boost::filesystem::path previousPackages() const { return path_ / "state/previous"; }
    boost::filesystem::path agentNodes() const { return path_ / "state/agents"; }
    boost::filesystem::path logs() const { return path_ / "log"; }
    boost::filesystem::path commandLog() const { return path_ / "log/commands.log"; }
    boost::filesystem::path run() const { return path_ / "run"; }
    boost::filesystem::path lockFile() const { return path_ / "run/overseer.lock"; }
    boost::filesystem::path controlSocket() const { return path_ / "run/overseer.sock"; }
    boost::filesystem::path temporary() const { return path_ / "tmp"; }

    /// Creates the folders that are missing; only the owner may look into state, run and tmp.
    Result<> createFolders() const;

    std::string GetPackagedDriverFolder() const override { return packagedDrivers().string(); }
    std::string GetPlainDriverFolder() const override { return plainDrivers().string(); }
    std::string GetConfigurationFolder() const override { return configuration().string(); }
    std::string GetCertificateFolder() const override { return certificates().string(); }

  private:
    explicit ControllerRoot(boost::filesystem::path path) : path_(std::move(path)) {}

    boost::filesystem::path path_;
};

}  // namespace overseer
