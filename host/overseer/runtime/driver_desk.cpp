#include "runtime/driver_desk.h"

#include <nvhost/children.h>

#include <set>

#include "common/log.h"
#include "drivers/driver_check.h"
#include "drivers/file_names.h"
#include "drivers/packaged_agents.h"
#include "drivers/project.h"
#include "drivers/restore.h"
#include "drivers/staged_driver.h"

namespace overseer {

namespace {

constexpr RESULTX kRefused = -1;

}  // namespace

DriverDesk::DriverDesk(const ControllerRoot& root, Project& project, DriverLedger& ledger)
    : root_(root),
      project_(project),
      ledger_(ledger),
      application_(root, ledger),
      listing_(root, project, ledger) {}

Result<> DriverDesk::checkAll() {
    std::set<std::string> names;
    project_.AddDriverFileNames(names);
    project_.AddAgentFileNames(names);
    for (const CheckedDriver& checked : checkDrivers(names, application_)) {
        if (!checked.outcome) {
            const Error& why = checked.outcome.error();
            log::error(fmt::format("driver {} {}: {}", checked.fileName,
                                   why.ofMachine ? "could not be looked at and counts as it did"
                                                 : "cannot be used as it lies there",
                                   why.message));
            continue;
        }
        follow(checked.fileName, *checked.outcome);
    }
    return flush();
}

RESULTX DriverDesk::update(const std::string& fileName) {
    // However long the list that a command works off: the host stops between two files.
    if (nv::hosting::childrenStopped()) return kRefused;
    const Result<AppliedDriver> applied = application_.apply(fileName, Occasion::kUpdate);
    if (!applied) {
        log::error("driver not applied: " + applied.error().message);
        return kRefused;
    }
    follow(fileName, *applied);
    return 0;
}

void DriverDesk::follow(const std::string& fileName, const AppliedDriver& applied) {
    // The driver is in use all the same; the next apply or start comes back to this.
    const Result<> followed = followAgent(project_, root_, fileName, applied);
    if (!followed) {
        log::error(fmt::format("the project does not know what {} brings: {}", fileName,
                               followed.error().message));
    }
}

RESULTX DriverDesk::addAgent(const std::string& name, const std::string& library,
                             const std::string& fileName) {
    const auto refuse = [&fileName](const std::string& why) {
        log::error(fmt::format("agent {} not added: {}", fileName, why));
        return kRefused;
    };
    if (!isPackageName(fileName)) return refuse("an agent comes as a package (.nvz)");
    const Result<AppliedDriver> applied = application_.apply(fileName, Occasion::kAdd);
    if (!applied) return refuse(applied.error().message);
    const Result<ProjectEntry> agent =
        enterAgent(project_, root_, fileName, *applied, name, library);
    if (!agent) return refuse(agent.error().message);
    if (!library.empty() && agent->library != library) {
        log::warn(fmt::format("{} holds no library {}; what its manifest names counts", fileName,
                              library));
    }
    log::info(fmt::format(
        "agent {} was added out of {}, version {}, {}", agent->name, fileName, applied->version,
        agent->library.empty() ? "without a library"
                               : "its library is loaded when the host next starts"));
    return 0;
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

Result<control::PlacedDriver> DriverDesk::place(const std::string& fileName,
                                                const std::string& path) {
    if (!boost::filesystem::path(path).is_absolute()) {
        return failure("\"{}\" is no absolute path", path);
    }
    const Result<PlacedFile> placed = placeDriver(path, fileName, root_, project_);
    if (!placed) return tl::unexpected(placed.error());
    log::info(fmt::format("driver {} of version {} was put in place from {}", fileName,
                          placed->driver.version, path));
    control::PlacedDriver driver;
    driver.file = fileName;
    driver.version = placed->driver.version;
    driver.library = placed->driver.library;
    driver.added = placed->added;
    return driver;
}

Result<control::RestoredDriver> DriverDesk::restore(const std::string& fileName) {
    const Result<std::optional<DriverRecord>> before = ledger_.find(fileName);
    if (!before) return tl::unexpected(before.error());
    const Result<AppliedDriver> restored = restoreDriver(fileName, root_, ledger_, application_);
    if (!restored) return tl::unexpected(restored.error());
    follow(fileName, *restored);
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
