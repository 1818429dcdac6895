#pragma once

#include <boost/filesystem/path.hpp>
#include <vector>

#include "common/result.h"
#include "drivers/apply.h"
#include "drivers/project.h"
#include "root/controller_root.h"

namespace overseer {

/// What became of one file that was to be installed.
struct InstalledFile {
    boost::filesystem::path file;
    Result<AppliedDriver> outcome;
};

/// Puts driver files in place, applies them and gives each a place in the project: an agent's
/// package among the agents, any other a device, unless it has one. A file that fails leaves what
/// was in its place as it was; those behind it are still handled. Only while the root's lock is
/// held.
std::vector<InstalledFile> installDrivers(const std::vector<boost::filesystem::path>& files,
                                          const ControllerRoot& root,
                                          DriverApplication& application, Project& project);

}  // namespace overseer
