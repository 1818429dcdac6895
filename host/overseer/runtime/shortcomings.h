#pragma once

#include <nvhost/transport.h>

#include <cstddef>

#include "drivers/project.h"
#include "root/controller_root.h"
#include "runtime/configuration.h"

namespace overseer {

/// Says in WARN lines at a start what would else be noticed only when a run fails: no catalogue,
/// no usable CA bundle, folders that cannot be written, fewer descriptors than a run over the whole
/// project may need.
void warnOfShortcomings(const Configuration& configuration, const ControllerRoot& root,
                        const Project& project, nv::hosting::Transport& transport,
                        std::size_t descriptors);

}  // namespace overseer
