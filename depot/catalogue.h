#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "depot/file_descriptor.h"
#include "depot/file_stamp.h"
#include "depot/result.h"
#include "depot/snapshot.h"

namespace depot {

/// The packages of one folder as a catalogue that follows the folder: a file that is added, changed
/// or removed, or whose sidecar is, shows at the latest one refresh interval later, and at once
/// after an idle time. A package that cannot be read is left out and reported once per change;
/// names that begin with a dot are skipped, so a file is best written under such a name and then
/// renamed.
///
/// All members may be called from any thread; only one at a time looks at the folder, the others go
/// on with what was known.
class Catalogue {
  public:
    using Report = std::function<void(const std::string& line)>;

    /// @param folder    the folder of packages; subfolders are not looked into
    /// @param report    takes one line without a newline per problem; called from any thread
    /// @param interval  the shortest time between two looks at the folder
    Catalogue(std::string folder, Report report,
              std::chrono::milliseconds interval = std::chrono::seconds(1));

    /// Looks at the folder now. Fails when the folder cannot be listed.
    Result<void> refresh();

    /// The catalogue, after a look at the folder when the last one is older than the interval.
    /// While another thread looks, it is what was known before, at first nothing: call refresh()
    /// once before threads share this.
    std::shared_ptr<const Snapshot> snapshot();

    /// A package file opened for reading, and the entry that was read from exactly this file.
    struct OpenPackage {
        FileDescriptor file;
        Snapshot::Entry entry;
    };
    enum class OpenFailure {
        kNotFound,  ///< no such document
        kChanging,  ///< the file is not (or no longer) what its document says; worth a retry
    };
    /// Opens the package of that name. A file that changed since the last look is read again first.
    tl::expected<OpenPackage, OpenFailure> open(const std::string& filename);

  private:
    /// The files that make one document.
    struct Stamps {
        FileStamp package;
        std::optional<FileStamp> sidecar;
        bool operator==(const Stamps&) const = default;
    };
    struct Known {
        Stamps stamps;
        bool settled = false;   ///< false: a later change may carry the same stamps
        Snapshot::Entry entry;  ///< null when the package is left out
    };
    using Listing = std::map<std::string, Stamps>;

    Result<Listing> listFolder() const;
    Result<void> refreshLocked();
    Known readEntry(const std::string& filename, const Stamps& stamps, bool changed) const;
    std::optional<Stamps> stampsNow(const std::string& filename) const;
    tl::expected<OpenPackage, OpenFailure> openKnown(const std::string& filename);
    std::shared_ptr<const Snapshot> current() const;
    std::string pathOf(const std::string& filename) const { return folder_ + "/" + filename; }

    const std::string folder_;
    const Report report_;
    const std::chrono::milliseconds interval_;

    std::mutex refreshing_;  ///< guards the members down to `folderFailed_`
    std::map<std::string, Known> known_;
    std::chrono::steady_clock::time_point lastLook_;
    bool looked_ = false;
    bool folderFailed_ = false;

    mutable std::mutex
        publishing_;  ///< guards `snapshot_`; may be taken while `refreshing_` is held
    std::shared_ptr<const Snapshot> snapshot_ = std::make_shared<Snapshot>();
};

}  // namespace depot
