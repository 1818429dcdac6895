#include "runtime/driver_desk.h"

#include <nv/file.h>

#include <set>

#include "common/log.h"
#include "drivers/driver_check.h"
#include "drivers/file_names.h"
#include "drivers/manifest.h"
#include "drivers/package.h"
#include "drivers/project.h"
#include "drivers/restore.h"

namespace overseer {

namespace {

constexpr RESULTX kRefused = -1;

/// The version that the manifest of a file in place states; nothing when it cannot be read.
std::optional<int> versionInPlace(const ControllerRoot& root, const std::string& fileName) {
    const boost::filesystem::path file = driverFile(root, fileName);
    std::string text;
    if (isPackageName(fileName)) {
        const Result<Package> package = Package::open(file);
        if (!package) return std::nullopt;
        Result<std::string> manifest = package->manifestText();
        if (!manifest) return std::nullopt;
        text = std::move(*manifest);
    } else if (FileX::Load(file.string(), text) < 0) {
        return std::nullopt;
    }
    const Result<Manifest> manifest = parseManifest(text, file.string());
    return manifest ? std::optional(manifest->version) : std::nullopt;
}

}  // namespace

DriverDesk::DriverDesk(const ControllerRoot& root, Project& project, DriverLedger& ledger)
    : root_(root), project_(project), ledger_(ledger), application_(root, ledger) {}

Result<> DriverDesk::checkAll() {
    std::set<std::string> names;
    project_.AddDriverFileNames(names);
    project_.AddAgentFileNames(names);
    for (const CheckedDriver& checked : checkDrivers(names, application_)) {
        if (!checked.outcome) {
            log::error(fmt::format("driver {} cannot be used as it lies there: {}",
                                   checked.fileName, checked.outcome.error().message));
        }
    }
    return flush();
}

RESULTX DriverDesk::update(const std::string& fileName) {
    const Result<AppliedDriver> applied = application_.apply(fileName, Occasion::kUpdate);
    if (applied) return 0;
    log::error("driver not applied: " + applied.error().message);
    return kRefused;
}

int DriverDesk::installedVersion(const std::string& fileName) {
    const Result<std::optional<DriverRecord>> record = ledger_.find(fileName);
    if (!record) {
        log::error(fmt::format("the installed version of {} is unknown: {}", fileName,
                               record.error().message));
        return 0;
    }
    return *record ? (*record)->version : 0;
}

Result<std::vector<control::DriverInformation>> DriverDesk::list() {
    std::set<std::string> agents;
    project_.AddAgentFileNames(agents);
    std::set<std::string> names = agents;
    project_.AddDriverFileNames(names);
    std::vector<control::DriverInformation> list;
    list.reserve(names.size());
    for (const std::string& name : names) {
        const Result<std::optional<DriverRecord>> record = ledger_.find(name);
        if (!record) return tl::unexpected(record.error());
        list.push_back(describe(name, agents.count(name) != 0, record->value_or(DriverRecord())));
    }
    return list;
}

control::DriverInformation DriverDesk::describe(const std::string& fileName, bool agent,
                                                const DriverRecord& record) const {
    control::DriverInformation driver;
    driver.file = fileName;
    driver.agent = agent;
    for (const ProjectEntry& entry : agent ? project_.agents() : project_.devices()) {
        if (entry.file == fileName) driver.devices.push_back({entry.id, entry.name});
    }
    driver.installedVersion = record.version;
    driver.versionInPlace = versionInPlace(root_, fileName);
    driver.appliedMd5 = record.appliedMd5;
    driver.previousMd5 = record.previousMd5;
    return driver;
}

Result<control::RestoredDriver> DriverDesk::restore(const std::string& fileName) {
    const Result<std::optional<DriverRecord>> before = ledger_.find(fileName);
    if (!before) return tl::unexpected(before.error());
    const Result<AppliedDriver> restored = restoreDriver(fileName, root_, ledger_, application_);
    if (!restored) return tl::unexpected(restored.error());
    log::info(fmt::format("driver {} was restored to version {}", fileName, restored->version));
    if (Result<> flushed = flush(); !flushed) log::error(flushed.error().message);
    control::RestoredDriver driver;
    driver.file = fileName;
    driver.version = restored->version;
    const Result<std::optional<DriverRecord>> after = ledger_.find(fileName);
    driver.previous = *before && after && *after && (*before)->appliedMd5 != (*after)->appliedMd5;
    return driver;
}

}  // namespace overseer
