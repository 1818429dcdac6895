// What a crash leaves behind, removed at the next start.

#include "root/leftovers.h"

#include <nvhost/replacement.h>

#include <boost/filesystem/operations.hpp>
#include <functional>
#include <vector>

namespace overseer {
namespace fs = boost::filesystem;

namespace {

using Chooser = std::function<bool(const fs::path&)>;

Result<> removeFrom(const fs::path& folder, const Chooser& chosen) {
    boost::system::error_code error;
    std::vector<fs::path> doomed;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        if (chosen(entry->path())) doomed.push_back(entry->path());
    }
    if (error) return failure("the folder {} cannot be read: {}", folder.string(), error.message());
    for (const fs::path& path : doomed) {
        fs::remove_all(path, error);
        if (error) return failure("{} cannot be removed: {}", path.string(), error.message());
    }
    return {};
}

bool isSibling(const fs::path& path) {
    return nv::hosting::isSiblingName(path.filename().string());
}

bool isWithoutPackage(const fs::path& folder) {
    boost::system::error_code error;
    return fs::symlink_status(folder, error).type() == fs::directory_file &&
           fs::symlink_status(folder.string() + ".nvz", error).type() == fs::file_not_found;
}

/// A folder into which a package was being unpacked: the package's stem, a dot and eight
/// hexadecimal digits. A package may itself be called so; then the folder is its copy.
bool isStagingFolder(const fs::path& path) {
    const std::string extension = path.extension().string();
    return extension.size() == 9 &&
           extension.find_first_not_of("0123456789abcdef", 1) == std::string::npos &&
           !path.stem().empty() && isWithoutPackage(path);
}

/// What an evaluation of a package that is not there leaves: a folder of its stem with nothing in
/// it but what `unzip` said.
bool isLogOfNothing(const fs::path& path) {
    boost::system::error_code error;
    if (!isWithoutPackage(path)) return false;
    fs::directory_iterator entry(path, error);
    const fs::directory_iterator end;
    if (error || entry == end || entry->path().filename() != "unzip.out" ||
        entry->symlink_status(error).type() != fs::regular_file)
        return false;
    entry.increment(error);
    return !error && entry == end;
}

Result<> emptyTemporaryFolder(const fs::path& folder) {
    boost::system::error_code error;
    if (fs::symlink_status(folder, error).type() != fs::directory_file) {
        return failure("{} is not a folder of its own; remove it, and it is made anew",
                       folder.string());
    }
    return removeFrom(folder, [](const fs::path&) { return true; });
}

}  // namespace

Result<> removeLeftovers(const ControllerRoot& root) {
    Result<> done = emptyTemporaryFolder(root.temporary());
    for (const fs::path& folder :
         {root.path(), root.plainDrivers(), root.configuration(), root.certificates(),
          root.appliedPackages(), root.previousPackages(), root.agentNodes()}) {
        if (done) done = removeFrom(folder, isSibling);
    }
    if (done) {
        done = removeFrom(root.packagedDrivers(), [](const fs::path& path) {
            return isSibling(path) || isStagingFolder(path) || isLogOfNothing(path);
        });
    }
    return done;
}

}  // namespace overseer
