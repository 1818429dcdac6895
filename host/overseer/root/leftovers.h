#pragma once

#include "root/controller_root.h"

namespace overseer {

/// Removes what a crash left behind: siblings that were being prepared, staging folders of
/// unpacking, and everything in tmp/; and the output of `unzip` about packages that are not there,
/// where a folder holds nothing else. Fails, without emptying it, when tmp/ is not a real folder.
/// Only while the root's lock is held.
Result<> removeLeftovers(const ControllerRoot& root);

}  // namespace overseer
