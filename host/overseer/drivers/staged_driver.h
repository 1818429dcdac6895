#pragma once

#include <boost/filesystem/path.hpp>
#include <memory>
#include <string>

#include "common/result.h"
#include "drivers/apply.h"
#include "drivers/project.h"
#include "root/controller_root.h"

namespace overseer {

/// A hidden name in a folder; whatever lies there is removed with the object, unless it was moved
/// away.
class HiddenSibling {
  public:
    explicit HiddenSibling(const boost::filesystem::path& folder);
    ~HiddenSibling();
    HiddenSibling(const HiddenSibling&) = delete;
    HiddenSibling& operator=(const HiddenSibling&) = delete;
    const boost::filesystem::path& path() const { return path_; }

  private:
    boost::filesystem::path path_;
};

/// A driver file on its way into its folder: a copy that lies hidden beside its place, and whose
/// whole content was read and found good. Gone with the object unless it was put in place.
class StagedDriver {
  public:
    /// Takes a copy of the regular file `file`, which stays, for the place of `name`.
    static Result<StagedDriver> prepare(const boost::filesystem::path& file,
                                        const std::string& name, const ControllerRoot& root);

    /// What applying it will come to.
    const AppliedDriver& driver() const { return driver_; }
    /// Flushes the copy and renames it into its place; once.
    Result<> putInPlace();

  private:
    StagedDriver(std::unique_ptr<HiddenSibling> copy, boost::filesystem::path target,
                 AppliedDriver driver);

    std::unique_ptr<HiddenSibling> copy_;
    boost::filesystem::path target_;
    AppliedDriver driver_;
};

/// What came of a file that was put in place.
struct PlacedFile {
    AppliedDriver driver;
    bool added = false;  ///< it is new to the project
};

/// Puts a driver file from anywhere in place under `name`, and gives it its place in the project.
/// It is in use only once it was applied. Where that fails, the file that was there is there still.
Result<PlacedFile> placeDriver(const boost::filesystem::path& file, const std::string& name,
                               const ControllerRoot& root, Project& project);

}  // namespace overseer
