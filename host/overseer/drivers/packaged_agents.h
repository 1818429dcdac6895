#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

#include "common/result.h"
#include "drivers/apply.h"
#include "drivers/project.h"
#include "root/controller_root.h"

namespace overseer {

/// The plug-in of a packaged agent, in the package's unpacked copy. Fails where it is no regular
/// file in there, links that lead out included.
/// @param library  relative to the copy, as a manifest or the project names it
Result<boost::filesystem::path> agentLibrary(const ControllerRoot& root,
                                             const std::string& fileName,
                                             const std::string& library);

/// Puts an applied package among the project's agents. Where the project cannot be written, it is
/// as it was.
/// @param name     empty for the one that the manifest gives
/// @param library  plug-in in the package, where the manifest names none that is in there
/// @return the agent's entry
Result<ProjectEntry> enterAgent(Project& project, const ControllerRoot& root,
                                const std::string& fileName, const AppliedDriver& applied,
                                const std::string& name, const std::string& library);

/// Keeps the project true after a package was applied: one that its manifest now marks as an
/// agent's becomes one, and an agent gets the library that its package now names. Writes only what
/// changed.
Result<> followAgent(Project& project, const ControllerRoot& root, const std::string& fileName,
                     const AppliedDriver& applied);

/// Gives a driver that a person brings in its place in the project: an agent's package one among
/// the agents, any other a device, unless it has one. Where the project cannot be written, it is
/// as it was.
/// @return whether it had no place before
Result<bool> giveItsPlace(Project& project, const ControllerRoot& root, const std::string& fileName,
                          const AppliedDriver& driver);

}  // namespace overseer
