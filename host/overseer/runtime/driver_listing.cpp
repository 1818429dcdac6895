#include "runtime/driver_listing.h"

#include <boost/filesystem/operations.hpp>

#include "drivers/file_names.h"
#include "drivers/manifest.h"

namespace overseer {

namespace {

bool isInPlace(const ControllerRoot& root, const std::string& fileName) {
    boost::system::error_code error;
    const auto status = boost::filesystem::symlink_status(driverFile(root, fileName), error);
    return status.type() != boost::filesystem::file_not_found;
}

/// The version that the manifest of a file in place states; nothing when it cannot be read.
std::optional<int> readVersion(const ControllerRoot& root, const std::string& fileName) {
    const Result<std::string> text = readManifestText(driverFile(root, fileName), fileName);
    if (!text) return std::nullopt;
    const Result<Manifest> manifest = parseManifest(*text, fileName);
    return manifest ? std::optional(manifest->version) : std::nullopt;
}

}  // namespace

Result<std::vector<control::DriverInformation>> DriverListing::all() {
    const Result<std::vector<DriverRecord>> records = ledger_.all();
    if (!records) return tl::unexpected(records.error());
    std::map<std::string, const DriverRecord*> byName;
    for (const DriverRecord& record : *records) byName[record.fileName] = &record;
    std::vector<control::DriverInformation> list;
    for (auto& [name, driver] : ofProject()) {
        const auto known = byName.find(name);
        complete(driver, known != byName.end() ? *known->second : DriverRecord());
        list.push_back(std::move(driver));
    }
    return list;
}

Result<std::optional<control::DriverInformation>> DriverListing::find(const std::string& fileName) {
    if (const Result<> named = checkDriverFileName(fileName); !named) {
        return tl::unexpected(named.error());
    }
    std::map<std::string, control::DriverInformation> known = ofProject();
    if (!known.contains(fileName) && !isInPlace(root_, fileName)) return std::nullopt;
    const Result<std::optional<DriverRecord>> record = ledger_.find(fileName);
    if (!record) return tl::unexpected(record.error());
    control::DriverInformation& driver = known[fileName];
    driver.file = fileName;
    complete(driver, record->value_or(DriverRecord()));
    return std::move(driver);
}

std::map<std::string, control::DriverInformation> DriverListing::ofProject() const {
    std::map<std::string, control::DriverInformation> files;
    const auto take = [&files](const std::vector<ProjectEntry>& entries, bool agents) {
        for (const ProjectEntry& entry : entries) {
            const auto [found, isNew] = files.try_emplace(entry.file);
            if (isNew) found->second.agent = agents;
            if (found->second.agent != agents) continue;
            found->second.file = entry.file;
            found->second.devices.push_back({entry.id, entry.name});
        }
    };
    take(project_.agents(), true);
    take(project_.devices(), false);
    return files;
}

void DriverListing::complete(control::DriverInformation& driver, const DriverRecord& record) {
    driver.installedVersion = record.version;
    driver.appliedMd5 = record.appliedMd5;
    driver.previousMd5 = record.previousMd5;
    const Result<FileStamp> stamp = FileStamp::of(driverFile(root_, driver.file));
    driver.inPlace = stamp || isInPlace(root_, driver.file);
    if (stamp) driver.versionInPlace = versionOf(*stamp, record, driver.file);
}

std::optional<int> DriverListing::versionOf(const FileStamp& stamp, const DriverRecord& record,
                                            const std::string& fileName) {
    if (stamp.isOf(record)) {
        seen_.erase(fileName);
        return record.version;
    }
    const auto known = seen_.find(fileName);
    if (known != seen_.end() && known->second.stamp == stamp) return known->second.version;
    return (seen_[fileName] = {stamp, readVersion(root_, fileName)}).version;
}

}  // namespace overseer
