#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "depot/publish/package_check.h"
#include "depot/publish/release_folder.h"
#include "depot/publish/solr_site.h"
#include "depot/result.h"

namespace depot {

/// What became of the catalogue, or would become of it.
struct PublishOutcome {
    enum class Kind {
        kPublished,
        kUnchanged,  ///< these very documents are what is served
        kPlanned,    ///< nothing was touched, as asked for
        kRefused,    ///< packages have errors; nothing was touched
    };
    Kind kind = Kind::kRefused;
    std::string release;
    std::optional<std::string> previous;
    std::size_t added = 0;
    std::size_t changed = 0;
    std::size_t removed = 0;
    std::vector<CheckedPackage> packages;
    std::vector<std::string> warnings;  ///< what went wrong after the switch and costs nothing
};

/// A release as a person sees it.
struct ReleaseState {
    std::string id;
    std::size_t packages = 0;
    std::size_t agents = 0;
    bool served = false;    ///< by files and by Solr
    bool complete = false;  ///< files and collections are there: it can be gone back to
    std::string remark;     ///< what is missing, empty when nothing is
};

/// Puts releases out and takes them back. Everything before the switch leaves what is served
/// untouched, and a switch that fails half way is undone. The caller holds the folder's lock.
class Publisher {
  public:
    struct Settings {
        std::vector<std::string> caches;  ///< nginx's cache folders, emptied after a switch
        std::size_t keep = 3;             ///< former releases that stay
        bool dryRun = false;
        bool allowOlder = false;  ///< versions below the published ones are warnings
        /// How long an answer that was under way at the switch may take to reach a cache, which is
        /// therefore emptied a second time.
        std::chrono::milliseconds settle = std::chrono::milliseconds(2200);
        std::function<void(const std::string& text)> progress = [](const std::string&) {};
        /// Asked before and within each step up to the switch; true gives the release up.
        std::function<bool()> interrupted = [] { return false; };
    };

    /// Folder and site must outlive the publisher.
    Publisher(ReleaseFolder& folder, SolrSite& site, Settings settings)
        : folder_(folder), site_(site), settings_(std::move(settings)) {}

    /// @param packages  checked before; one with errors makes the outcome a refusal
    /// @return a failure says what was being done, and what is served now
    Result<PublishOutcome> publish(std::vector<CheckedPackage> packages);

    /// Goes back to a kept release, by default the one that was served before this one, or where
    /// that is gone, the newest one that is older.
    Result<std::string> rollback(const std::optional<std::string>& id);

    Result<std::vector<ReleaseState>> releases();

    /// What the last call left undone without harm.
    const std::vector<std::string>& warnings() const { return warnings_; }

  private:
    /// What is served by files and by Solr.
    struct Served {
        std::optional<std::string> files;  ///< a release's id
        std::optional<std::string> drivers;
        std::optional<std::string> agents;        ///< collections
        bool is(const std::string& id) const;     ///< all of it is that release's
        bool names(const std::string& id) const;  ///< something of it is
    };

    Result<Served> served();
    bool isWhole(const Release& release);
    Result<void> removeLeftovers(const ReleaseFolder::Listing& listing, const Served& now);
    Result<void> build(const Release& release, const std::vector<CheckedPackage>& packages);
    Result<void> buildCollection(Core core, const Release& release);
    Result<void> verify(const Release& release);
    Result<void> switchTo(const std::string& id, const Served& before);
    std::string undoSwitch(const Served& before);
    Result<void> discard(const std::string& id);
    void purge();
    void prune(const Release& current);
    Result<void> tell(const std::string& progress) const;
    Result<void> inStep(const std::string& step, Result<void> done) const;

    ReleaseFolder& folder_;
    SolrSite& site_;
    const Settings settings_;
    std::vector<std::string> warnings_;
};

}  // namespace depot
