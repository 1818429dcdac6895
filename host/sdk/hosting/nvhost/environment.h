#pragma once

#include <boost/filesystem/path.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include <nvhost/clock.h>

namespace nv::hosting {

/// What the SDK's free functions and value types take from the host that runs them. They have no
/// object to ask, so the host installs this once, before it loads the first driver.
struct Environment {
    std::string solrDriversUrl;  ///< see nv::UrlVault
    unsigned int majorVersion = 0;
    unsigned int minorVersion = 0;
    unsigned int buildNumber = 0;
    std::shared_ptr<Clock> clock = systemClock();
    boost::filesystem::path commandLog;          ///< output of nv::system; empty for /dev/null
    boost::filesystem::path temporaryFolder;     ///< TMPDIR of children; empty for the own one
    std::chrono::seconds commandTimeLimit{600};  ///< for each child of nv::system
    std::function<void()> initializeLogging;     ///< see nv::Logger; empty for standard error
};

/// The environment in force. Read on any thread, installed before other threads start.
const Environment& environment();

/// Installs an environment for as long as it lives, then puts the previous one back.
class EnvironmentScope {
  public:
    explicit EnvironmentScope(Environment environment);
    ~EnvironmentScope();
    EnvironmentScope(const EnvironmentScope&) = delete;
    EnvironmentScope& operator=(const EnvironmentScope&) = delete;

  private:
    Environment previous_;
};

}  // namespace nv::hosting
