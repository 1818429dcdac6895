#pragma once

#include "root/controller_root.h"
#include "runtime/configuration.h"

namespace overseer {

/// `overseer install`: puts the files in place, one printed line for each. While no host runs; the
/// caller holds the root's lock.
/// @return the exit code: 0 when every file was installed
int installFiles(const ControllerRoot& root, const Invocation& invocation);

}  // namespace overseer
