// `overseer install`: driver files from anywhere, put into a controller that does not run.

#include "drivers/install.h"

#include <nv/file.h>
#include <nvhost/replacement.h>

#include <boost/filesystem/operations.hpp>
#include <cstdio>

#include "drivers/file_names.h"
#include "drivers/manifest.h"
#include "drivers/package.h"
#include "root/descriptor.h"
#include "root/placement.h"

namespace overseer {
namespace fs = boost::filesystem;

namespace {

/// A hidden file that is removed again unless it was moved away.
class HiddenSibling {
  public:
    explicit HiddenSibling(const fs::path& folder) : path_(folder / nv::hosting::siblingName()) {}
    ~HiddenSibling() {
        boost::system::error_code ignored;
        fs::remove(path_, ignored);
    }
    HiddenSibling(const HiddenSibling&) = delete;
    HiddenSibling& operator=(const HiddenSibling&) = delete;
    const fs::path& path() const { return path_; }

  private:
    fs::path path_;
};

Result<> checkName(const std::string& name) {
    if (Result<> named = checkDriverFileName(name); !named) return named;
    if (isPackageName(name) || fs::path(name).extension() == ".nvi") return {};
    return failure("{} is neither a package (.nvz) nor a bare driver (.nvi)", name);
}

Result<> checkContent(const fs::path& file, const std::string& name) {
    std::string text;
    if (isPackageName(name)) {
        const Result<Package> package = Package::open(file);
        if (!package) return tl::unexpected<Error>(package.error());
        Result<std::string> manifest = package->manifestText();
        if (!manifest) return tl::unexpected<Error>(manifest.error());
        text = std::move(*manifest);
    } else if (FileX::Load(file.string(), text) < 0) {
        return failure("not a readable file of at most 16 MB");
    }
    const Result<Manifest> manifest = parseManifest(text, name);
    if (!manifest) return tl::unexpected<Error>(manifest.error());
    return {};
}

Result<> giveItsPlace(Project& project, const std::string& name, const AppliedDriver& driver) {
    if (driver.agent) {
        project.addAgent(name, driver.name, driver.library);
    } else if (project.deviceIds(name).empty()) {
        project.addDevice(name, driver.name);
    } else {
        return {};
    }
    return project.save();
}

Result<AppliedDriver> applyOrPutBack(const std::string& name, const fs::path& target,
                                     const fs::path& before, DriverApplication& application) {
    Result<AppliedDriver> applied = application.apply(name, Occasion::kInstall);
    if (applied) return applied;
    if (::rename(before.c_str(), target.c_str()) == 0) {
        // Best effort: what was in use before is so again.
        (void)application.apply(name, Occasion::kInstall);
    } else {
        boost::system::error_code ignored;
        fs::remove(target, ignored);
    }
    return applied;
}

Result<AppliedDriver> installOne(const fs::path& file, const ControllerRoot& root,
                                 DriverApplication& application, Project& project) {
    const std::string name = file.filename().string();
    Result<> done = checkName(name);
    if (!done) return tl::unexpected<Error>(done.error());
    const fs::path target = driverFile(root, name);
    const HiddenSibling staged(target.parent_path());
    const HiddenSibling before(target.parent_path());

    done = copyInPlace(file, staged.path());
    if (done) done = checkContent(staged.path(), name);
    boost::system::error_code error;
    if (done && fs::symlink_status(target, error).type() != fs::file_not_found) {
        done = linkInPlace(target, before.path());
    }
    if (!done) return inContext(file.string(), done.error());
    nv::file::replace(staged.path(), target, error);
    if (error) {
        return failure("{} could not be put at {}: {}", file.string(), target.string(),
                       error.message());
    }
    Result<AppliedDriver> applied = applyOrPutBack(name, target, before.path(), application);
    if (!applied) return applied;
    done = giveItsPlace(project, name, *applied);
    if (!done) return inContext(file.string(), done.error());
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
