// `overseer install`: driver files from anywhere, put into a controller that does not run.

#include "drivers/install.h"

#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cstdio>

#include "common/system_failure.h"
#include "drivers/file_names.h"
#include "drivers/packaged_agents.h"
#include "drivers/staged_driver.h"
#include "root/placement.h"

namespace overseer {
namespace fs = boost::filesystem;

namespace {

Result<AppliedDriver> applyOrPutBack(const std::string& name, const fs::path& target,
                                     const fs::path& before, DriverApplication& application) {
    Result<AppliedDriver> applied = application.apply(name, Occasion::kInstall);
    if (applied) return applied;
    if (::rename(before.c_str(), target.c_str()) == 0) {
        // Best effort: what was in use before is so again.
        (void)application.apply(name, Occasion::kInstall);
        return applied;
    }
    if (const int reason = errno; reason != ENOENT) {
        // The new file is whole, and better than none: the next start applies it.
        return inContext(applied.error().message,
                         systemFailure("the file before it could not be put back", reason).value());
    }
    boost::system::error_code ignored;
    fs::remove(target, ignored);
    return applied;
}

Result<AppliedDriver> installOne(const fs::path& file, const ControllerRoot& root,
                                 DriverApplication& application, Project& project) {
    const std::string name = file.filename().string();
    Result<StagedDriver> staged = StagedDriver::prepare(file, name, root);
    if (!staged) return tl::unexpected<Error>(staged.error());
    const fs::path target = driverFile(root, name);
    const HiddenSibling before(target.parent_path());
    boost::system::error_code error;
    Result<> done;
    if (fs::symlink_status(target, error).type() != fs::file_not_found) {
        done = linkInPlace(target, before.path());
    }
    if (done) done = staged->putInPlace();
    if (!done) return inContext(file.string(), done.error());
    Result<AppliedDriver> applied = applyOrPutBack(name, target, before.path(), application);
    if (!applied) return applied;
    const Result<bool> placed = giveItsPlace(project, root, name, *applied);
    if (!placed) return inContext(file.string(), placed.error());
    return applied;
}

}  // namespace

std::vector<InstalledFile> installDrivers(const std::vector<fs::path>& files,
                                          const ControllerRoot& root,
                                          DriverApplication& application, Project& project) {
    std::vector<InstalledFile> installed;
    for (const fs::path& file : files) {
        installed.push_back({file, installOne(file, root, application, project)});
    }
    if (const Result<> flushed = application.flushFolders(); !flushed && !installed.empty()) {
        installed.back().outcome = tl::unexpected<Error>(flushed.error());
    }
    return installed;
}

}  // namespace overseer
