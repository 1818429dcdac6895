#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "depot/file_descriptor.h"
#include "depot/publish/package_check.h"
#include "depot/publish/release.h"
#include "depot/result.h"

namespace depot {

/// The package files of all releases, as nginx serves them:
///
///   FILES/current              a link to the release that is served
///   FILES/releases/ID/         a release's packages
///   FILES/releases/ID/.release.json   what it holds; written last, so it marks a whole one
///
/// One process at a time, which holds the lock. Blocks.
class ReleaseFolder {
  public:
    /// Told after each file; its failure stops the work.
    using Tick = std::function<Result<void>(std::size_t done, std::size_t total)>;

    explicit ReleaseFolder(std::string files) : files_(std::move(files)) {}

    /// Makes what is missing and takes the lock, which holds as long as this object; fails at once
    /// when another process has it.
    Result<void> lock();

    struct Listing {
        std::vector<Release> whole;           ///< ascending by id
        std::vector<std::string> incomplete;  ///< folders of releases that were never finished
    };
    /// What is there; needs no lock.
    Result<Listing> list() const;

    /// The release that is served, by id; nothing when there is none yet.
    Result<std::optional<std::string>> current() const;

    /// Copies the packages of a new release. Fails when one is not what was checked any more.
    Result<void> write(const Release& release, const std::vector<CheckedPackage>& packages,
                       const Tick& tick) const;

    /// Compares every file of a release with what the release says of it.
    Result<void> verify(const Release& release) const;

    /// Serves another release, in one step; nothing takes the link away.
    Result<void> switchTo(const std::optional<std::string>& id) const;

    Result<void> remove(const std::string& id) const;

  private:
    std::string folderOf(const std::string& id) const { return files_ + "/releases/" + id; }

    const std::string files_;
    FileDescriptor lock_;
};

}  // namespace depot
