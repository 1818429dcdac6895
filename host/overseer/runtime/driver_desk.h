#pragma once

#include <nv/result.h>

#include <string>

#include "common/result.h"
#include "control/control_records.h"
#include "drivers/apply.h"
#include "root/controller_root.h"
#include "runtime/driver_listing.h"
#include "state/driver_ledger.h"

namespace overseer {

class Project;

/// The controller's drivers, as the rest of the host asks for them. Failures that no caller hears
/// of are logged here. I/O thread only.
class DriverDesk {
  public:
    /// All of it outlives this.
    DriverDesk(const ControllerRoot& root, Project& project, DriverLedger& ledger);

    /// Looks at every driver of the project; those that cannot be used as they lie there are logged
    /// and keep the version that they had.
    Result<> checkAll();
    /// Applies the file of that name as it lies in its folder; negative, and an ERROR line that
    /// names the way back, when it was refused.
    RESULTX update(const std::string& fileName);
    /// Applies an agent's package as it lies in its folder and puts the agent into the project;
    /// negative, and an ERROR line, when it was refused.
    /// @param name, library  empty for what the manifest says
    RESULTX addAgent(const std::string& name, const std::string& library,
                     const std::string& fileName);
    /// Version of the last successful apply, 0 when there was none.
    int installedVersion(const std::string& fileName);
    /// Brings what was applied to the disk, for when a run is over.
    Result<> flush() { return application_.flushFolders(); }

    DriverListing& listing() { return listing_; }
    /// Puts a file of this machine in place under that name, for a later `update`.
    Result<control::PlacedDriver> place(const std::string& fileName, const std::string& path);
    /// Puts a kept package back and applies it.
    Result<control::RestoredDriver> restore(const std::string& fileName);

  private:
    void follow(const std::string& fileName, const AppliedDriver& applied);

    const ControllerRoot& root_;
    Project& project_;
    DriverLedger& ledger_;
    DriverApplication application_;
    DriverListing listing_;
};

}  // namespace overseer
