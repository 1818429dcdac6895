#pragma once

#include <nvhost/regular_file.h>

#include "root/controller_root.h"

namespace overseer {

/// The right to be the one host of a root, for as long as the object lives. A process that ends, or
/// that executes another program in its place, gives it up.
class RootLock {
  public:
    /// Fails at once, naming the process that has it, when another one has.
    static Result<RootLock> acquire(const ControllerRoot& root);

  private:
    explicit RootLock(nv::hosting::Descriptor file) : file_(std::move(file)) {}

    nv::hosting::Descriptor file_;
};

}  // namespace overseer
