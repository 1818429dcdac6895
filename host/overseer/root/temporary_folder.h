#pragma once

#include <nvhost/regular_file.h>

#include <boost/filesystem/path.hpp>
#include <memory>

#include "common/result.h"
#include "root/controller_root.h"

namespace overseer {

/// The root's tmp/ as the folder in which the process works, for as long as the object lives.
///
/// Whoever asks for a temporary folder that is gone gets no path, and goes on with a relative one.
/// From in here that leads to tmp/ or, once it was removed, nowhere. I/O thread only.
class TemporaryFolder {
  public:
    static Result<std::unique_ptr<TemporaryFolder>> enter(const ControllerRoot& root);
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// Makes the folder anew where somebody has removed it, and says so in the log, once.
    void keep();

  private:
    TemporaryFolder(boost::filesystem::path folder, nv::hosting::Descriptor before);

    boost::filesystem::path folder_;
    nv::hosting::Descriptor before_;
    bool lost_ = false;
};

}  // namespace overseer
