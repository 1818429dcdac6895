#pragma once

#include <string>

#include "common/result.h"
#include "drivers/apply.h"
#include "root/controller_root.h"
#include "state/driver_ledger.h"

namespace overseer {

/// Puts back a driver file that was good and applies it: the last applied one where the file in
/// place was never applied, else the one before it. Restoring again goes back to where it began.
/// The caller says that the next run would fetch the newer file again, unless it is excluded.
Result<AppliedDriver> restoreDriver(const std::string& fileName, const ControllerRoot& root,
                                    DriverLedger& ledger, DriverApplication& application);

}  // namespace overseer
