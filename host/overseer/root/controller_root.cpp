#include "root/controller_root.h"

#include <sys/stat.h>
#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <cerrno>

#include "common/system_failure.h"

namespace overseer {
namespace fs = boost::filesystem;

namespace {

bool mayStandInACommandLine(const std::string& path) {
    return std::none_of(path.begin(), path.end(), [](char c) {
        return c == '"' || static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
    });
}

bool isPresent(const fs::path& file) {
    boost::system::error_code error;
    return fs::symlink_status(file, error).type() > fs::file_not_found;
}

Result<> createFolder(const fs::path& folder, mode_t mode) {
    if (::mkdir(folder.c_str(), mode) == 0) return {};
    const int reason = errno;
    boost::system::error_code error;
    if (fs::is_directory(folder, error)) return {};
    if (reason == EEXIST) {
        return failure("{} is in the way: it is no folder; move it away", folder.string());
    }
    return systemFailure("the folder " + folder.string() + " cannot be made", reason);
}

}  // namespace

Result<ControllerRoot> ControllerRoot::at(const fs::path& folder) {
    if (folder.empty()) return failure("no controller root is named; say --root DIR");
    boost::system::error_code error;
    const fs::path canonical = fs::weakly_canonical(fs::absolute(folder), error);
    if (error) return failure("the controller root {}: {}", folder.string(), error.message());
    if (!mayStandInACommandLine(canonical.string())) {
        return failure(
            "the controller root {} has a double quote or a control character in its path; choose "
            "another folder",
            canonical.string());
    }
    return ControllerRoot(canonical);
}

Result<ControllerRoot> ControllerRoot::open(const fs::path& folder) {
    Result<ControllerRoot> root = at(folder);
    if (!root) return root;
    if (!root->exists()) {
        return failure("{} is no controller root; `overseer --root DIR init` makes one",
                       root->path().string());
    }
    for (const fs::path& file : {root->configurationFile(), root->projectFile()}) {
        if (isPresent(file)) continue;
        return failure("{} is missing; put it back before starting", file.string());
    }
    if (const Result<> made = root->createFolders(); !made) {
        return tl::unexpected<Error>(made.error());
    }
    return root;
}

bool ControllerRoot::exists() const {
    return isPresent(configurationFile()) || isPresent(projectFile()) || isPresent(database());
}

Result<> ControllerRoot::createFolders() const {
    constexpr mode_t kForAll = 0755;
    constexpr mode_t kForOwner = 0700;
    const std::pair<fs::path, mode_t> folders[] = {
        {path_, kForAll},
        {path_ / "drivers", kForAll},
        {packagedDrivers(), kForAll},
        {plainDrivers(), kForAll},
        {configuration(), kForAll},
        {certificates(), kForAll},
        {state(), kForOwner},
        {appliedPackages(), kForOwner},
        {previousPackages(), kForOwner},
        {agentNodes(), kForOwner},
        {logs(), kForAll},
        {run(), kForOwner},
        {temporary(), kForOwner},
    };
    for (const auto& [folder, mode] : folders) {
        if (Result<> made = createFolder(folder, mode); !made) return made;
    }
    return {};
}

}  // namespace overseer
