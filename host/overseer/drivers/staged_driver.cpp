// Driver files from anywhere, checked and put in place.

#include "drivers/staged_driver.h"

#include <nv/file.h>
#include <nvhost/replacement.h>

#include <boost/filesystem/operations.hpp>

#include "drivers/file_names.h"
#include "drivers/packaged_agents.h"
#include "root/placement.h"

namespace overseer {
namespace fs = boost::filesystem;

namespace {

/// The failure of a copy, told of the file that people know in its stead.
tl::unexpected<Error> failureOf(const fs::path& copy, const fs::path& known, const Error& cause) {
    Error told = cause;
    const std::string& name = copy.string();
    const std::size_t place = told.message.find(name);
    if (place == std::string::npos) return inContext(known.string(), cause);
    told.message.replace(place, name.size(), known.string());
    return tl::unexpected<Error>(std::move(told));
}

Result<AppliedDriver> checkContent(const fs::path& file, const std::string& name) {
    const Result<std::string> text = readManifestText(file, name);
    if (!text) return tl::unexpected<Error>(text.error());
    const Result<Manifest> manifest = parseManifest(*text, name);
    if (!manifest) return tl::unexpected<Error>(manifest.error());
    if (!isPackageName(name)) return describeDriver(name, *manifest, nullptr);

    const Result<Package> package = Package::open(file);
    if (!package) return tl::unexpected<Error>(package.error());
    if (const Result<> whole = package->checkContent(); !whole) {
        return tl::unexpected<Error>(whole.error());
    }
    return describeDriver(name, *manifest, &*package);
}

}  // namespace

HiddenSibling::HiddenSibling(const fs::path& folder) : path_(folder / nv::hosting::siblingName()) {}

HiddenSibling::~HiddenSibling() {
    boost::system::error_code ignored;
    fs::remove(path_, ignored);
}

StagedDriver::StagedDriver(std::unique_ptr<HiddenSibling> copy, fs::path target,
                           AppliedDriver driver)
    : copy_(std::move(copy)), target_(std::move(target)), driver_(std::move(driver)) {}

Result<StagedDriver> StagedDriver::prepare(const fs::path& file, const std::string& name,
                                           const ControllerRoot& root) {
    if (const Result<> named = checkOfferedFileName(name); !named) {
        return tl::unexpected<Error>(named.error());
    }
    fs::path target = driverFile(root, name);
    auto copy = std::make_unique<HiddenSibling>(target.parent_path());
    if (const Result<> copied = copyInPlace(file, copy->path()); !copied) {
        return failureOf(copy->path(), target, copied.error());
    }
    Result<AppliedDriver> driver = checkContent(copy->path(), name);
    if (!driver) return failureOf(copy->path(), file, driver.error());
    return StagedDriver(std::move(copy), std::move(target), std::move(*driver));
}

Result<> StagedDriver::putInPlace() {
    boost::system::error_code error;
    nv::file::replace(copy_->path(), target_, error);
    if (!error) return {};
    // The caller hears of it here; nobody else is to be told at the next update.
    nv::hosting::takeReplacementFailure(target_.filename().string());
    return failure("it could not be put at {}: {}", target_.string(), error.message());
}

Result<PlacedFile> placeDriver(const fs::path& file, const std::string& name,
                               const ControllerRoot& root, Project& project) {
    Result<StagedDriver> staged = StagedDriver::prepare(file, name, root);
    if (!staged) return tl::unexpected<Error>(staged.error());
    if (const Result<> placed = staged->putInPlace(); !placed) {
        return inContext(file.string(), placed.error());
    }
    const Result<bool> added = giveItsPlace(project, root, name, staged->driver());
    if (!added) return inContext(name + " is in place, but in no device", added.error());
    return PlacedFile{staged->driver(), *added};
}

}  // namespace overseer
