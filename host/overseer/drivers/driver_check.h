#pragma once

#include <set>
#include <string>
#include <vector>

#include "common/result.h"
#include "drivers/apply.h"

namespace overseer {

/// What became of one driver file at a start.
struct CheckedDriver {
    std::string fileName;
    Result<AppliedDriver> outcome;
};

/// Looks at every driver file of the project at a start: each is applied where it is not in use as
/// it lies there (an update was interrupted, a copy was damaged). Unchanged ones cost a look at
/// names and sizes. Ends early when the host is told to stop. The caller logs the failures.
std::vector<CheckedDriver> checkDrivers(const std::set<std::string>& fileNames,
                                        DriverApplication& application);

}  // namespace overseer
