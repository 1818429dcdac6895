#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "common/result.h"
#include "control/control_records.h"
#include "drivers/file_stamp.h"
#include "drivers/project.h"
#include "root/controller_root.h"
#include "state/driver_ledger.h"

namespace overseer {

/// What people are shown of the driver files. It comes from the record: a file is opened only when
/// it is not as it was when it was last applied, and once. I/O thread only.
class DriverListing {
  public:
    /// All of it outlives this.
    DriverListing(const ControllerRoot& root, const Project& project, DriverLedger& ledger)
        : root_(root), project_(project), ledger_(ledger) {}

    /// Every driver file of the project, in ascending order.
    Result<std::vector<control::DriverInformation>> all();
    /// The driver file of that name; nothing when it is neither in the project nor in its folder.
    Result<std::optional<control::DriverInformation>> find(const std::string& fileName);

  private:
    struct Seen {
        FileStamp stamp;
        std::optional<int> version;
    };

    /// The project's files, without what is on record of them.
    std::map<std::string, control::DriverInformation> ofProject() const;
    void complete(control::DriverInformation& driver, const DriverRecord& record);
    std::optional<int> versionOf(const FileStamp& stamp, const DriverRecord& record,
                                 const std::string& fileName);

    const ControllerRoot& root_;
    const Project& project_;
    DriverLedger& ledger_;
    std::map<std::string, Seen> seen_;  ///< files that differ from what was applied
};

}  // namespace overseer
