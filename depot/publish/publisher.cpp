// The order of things: everything new beside what is served, compared, then the switch.
#include "depot/publish/publisher.h"

#include <algorithm>
#include <ctime>
#include <map>
#include <set>
#include <thread>

#include "depot/publish/answer_cache.h"
#include "depot/publish/published_versions.h"

namespace depot {
namespace {

constexpr Core kCores[] = {Core::kDrivers, Core::kAgents};

std::string collectionOf(Core core, const std::string& id) {
    return coreName(core) + "_" + id;
}

/// The release of a collection's name, empty when it is of none.
std::string releaseOf(const std::string& collection) {
    const std::string id = collection.substr(collection.find('_') + 1);
    for (const Core core : kCores) {
        if (isReleaseId(id) && collection == collectionOf(core, id)) return id;
    }
    return {};
}

const Release* find(const ReleaseFolder::Listing& listing, const std::string& id) {
    const auto found = std::find_if(listing.whole.begin(), listing.whole.end(),
                                    [&](const Release& each) { return each.id == id; });
    return found == listing.whole.end() ? nullptr : &*found;
}

Release newRelease(const std::vector<CheckedPackage>& packages,
                   const ReleaseFolder::Listing& listing) {
    Release release;
    for (const CheckedPackage& package : packages) release.documents.push_back(*package.document);
    release.digest = digestOf(release.documents);
    release.fileTime = std::time(nullptr);
    std::string last;
    for (const Release& each : listing.whole) {
        // A file's time must never be that of a former release's: caches tell files by it.
        release.fileTime = std::max(release.fileTime, each.fileTime + 1);
        last = std::max(last, each.id);
    }
    for (const std::string& each : listing.incomplete) last = std::max(last, each);
    release.id = releaseId(std::time(nullptr), release.digest, last);
    return release;
}

PublishedVersions versionsOf(const Release* release) {
    PublishedVersions versions;
    if (release == nullptr) return versions;
    for (const Document& document : release->documents)
        versions[document.filename] = {document.version, document.md5sum};
    return versions;
}

void countChanges(const Release* before, const Release& after, PublishOutcome& outcome) {
    PublishedVersions old = versionsOf(before);
    for (const Document& document : after.documents) {
        const auto found = old.find(document.filename);
        if (found == old.end()) {
            ++outcome.added;
            continue;
        }
        outcome.changed += found->second.md5sum != document.md5sum;
        old.erase(found);
    }
    outcome.removed = old.size();
}

bool anyRefused(const std::vector<CheckedPackage>& packages) {
    return std::any_of(packages.begin(), packages.end(), [](const CheckedPackage& package) {
        return !package.document || hasErrors(package.findings);
    });
}

void compareWithServed(std::vector<CheckedPackage>& packages, const Release* served,
                       bool allowOlder) {
    const PublishedVersions versions = versionsOf(served);
    for (CheckedPackage& package : packages) {
        const std::size_t before = package.findings.size();
        compareVersions(package, versions);
        for (std::size_t at = before; allowOlder && at < package.findings.size(); ++at)
            package.findings[at].severity = Finding::Severity::kWarning;
    }
}

}  // namespace

bool Publisher::Served::is(const std::string& id) const {
    return files == id && drivers == collectionOf(Core::kDrivers, id) &&
           agents == collectionOf(Core::kAgents, id);
}

Result<Publisher::Served> Publisher::served() {
    Served now;
    const auto files = folder_.current();
    if (!files) return tl::make_unexpected(files.error());
    const auto drivers = site_.current(Core::kDrivers);
    if (!drivers) return tl::make_unexpected(drivers.error());
    const auto agents = site_.current(Core::kAgents);
    if (!agents) return tl::make_unexpected(agents.error());
    return Served{*files, *drivers, *agents};
}

Result<void> Publisher::inStep(const std::string& step, Result<void> done) const {
    if (done) return done;
    return failure("stopped while " + step, done.error());
}

Result<PublishOutcome> Publisher::publish(std::vector<CheckedPackage> packages) {
    warnings_.clear();
    settings_.progress("asking " + site_.description());
    if (auto healthy = site_.requireHealthy(); !healthy)
        return failure("nothing was touched", healthy.error());
    const auto now = served();
    if (!now) return failure("nothing was touched", now.error());
    const auto listing = folder_.list();
    if (!listing) return failure("nothing was touched", listing.error());
    const Release* before = now->files ? find(*listing, *now->files) : nullptr;

    PublishOutcome outcome;
    compareWithServed(packages, before, settings_.allowOlder);
    outcome.packages = std::move(packages);
    if (anyRefused(outcome.packages)) return outcome;
    const Release release = newRelease(outcome.packages, *listing);
    outcome.previous = now->files;
    countChanges(before, release, outcome);
    if (before != nullptr && before->digest == release.digest && now->is(before->id)) {
        outcome.kind = PublishOutcome::Kind::kUnchanged;
        outcome.release = before->id;
        return outcome;
    }
    outcome.release = release.id;
    if (settings_.dryRun) {
        outcome.kind = PublishOutcome::Kind::kPlanned;
        return outcome;
    }

    Result<void> done =
        inStep("removing what an earlier run left", removeLeftovers(*listing, *now));
    if (done) done = build(release, outcome.packages);
    if (done) done = switchTo(release.id, *now);
    if (!done) {
        std::string message = done.error().message + "; release " + release.id +
                              " was given up, what is served is " +
                              now->files.value_or("as before");
        const auto after = served();
        const bool stillNew = after && (after->files == release.id || after->is(release.id));
        if (!stillNew) {
            if (auto gone = discard(release.id); !gone)
                message += "; its remains are still there (" + gone.error().message +
                           "), the next run removes them";
        }
        return failure(message);
    }
    outcome.kind = PublishOutcome::Kind::kPublished;
    purge();
    prune(release.id);
    outcome.warnings = warnings_;
    return outcome;
}

Result<void> Publisher::removeLeftovers(const ReleaseFolder::Listing& listing, const Served& now) {
    // Only one publisher works at a time, so what is incomplete is left over from one that ended.
    for (const std::string& id : listing.incomplete) {
        if (now.files == id)
            return failure("the release that is served, " + id +
                           ", is not whole; look at it first");
        if (auto removed = folder_.remove(id); !removed) return removed;
    }
    for (const auto& served : {now.drivers, now.agents}) {
        const std::string id = served ? releaseOf(*served) : std::string();
        if (id.empty() || find(listing, id) != nullptr) continue;
        // Another folder's releases, or a lost folder: nothing here tells what is left over.
        warnings_.push_back("Solr serves release " + id +
                            ", which is not in this folder of files: collections of releases that "
                            "are not here were left alone");
        return {};
    }
    const auto collections = site_.collections();
    if (!collections) return tl::make_unexpected(collections.error());
    for (const std::string& collection : *collections) {
        const std::string id = releaseOf(collection);
        if (id.empty() || find(listing, id) != nullptr) continue;
        if (now.drivers == collection || now.agents == collection) continue;
        if (auto dropped = site_.drop(collection); !dropped) return dropped;
    }
    return {};
}

Result<void> Publisher::build(const Release& release, const std::vector<CheckedPackage>& packages) {
    const auto tick = [this](std::size_t done, std::size_t total) {
        settings_.progress("copying files: " + std::to_string(done) + " of " +
                           std::to_string(total));
    };
    if (auto done = inStep("copying files", folder_.write(release, packages, tick)); !done)
        return done;
    for (const Core core : kCores) {
        if (auto done = buildCollection(core, release); !done) return done;
    }
    return verify(release);
}

Result<void> Publisher::buildCollection(Core core, const Release& release) {
    const std::string collection = collectionOf(core, release.id);
    settings_.progress("making collection " + collection);
    auto done = inStep("making collection " + collection, site_.create(collection));
    if (!done) return done;
    const auto documents = documentsOf(core, release.documents);
    return inStep("loading collection " + collection,
                  site_.load(collection, documents, [&](std::size_t at, std::size_t total) {
                      settings_.progress("loading " + collection + ": " + std::to_string(at) +
                                         " of " + std::to_string(total));
                  }));
}

Result<void> Publisher::verify(const Release& release) {
    settings_.progress("comparing files and documents with what was checked");
    auto done = inStep("comparing the files", folder_.verify(release));
    for (const Core core : kCores) {
        const std::string collection = collectionOf(core, release.id);
        if (done)
            done = inStep("comparing collection " + collection,
                          site_.verify(collection, documentsOf(core, release.documents)));
    }
    if (done) done = inStep("looking at Solr's state before the switch", site_.requireHealthy());
    return done;
}

Result<void> Publisher::switchTo(const std::string& id, const Served& before) {
    settings_.progress("switching to " + id);
    auto done = inStep("switching the files", folder_.switchTo(id));
    for (const Core core : kCores) {
        if (done)
            done =
                inStep("switching " + coreName(core), site_.switchTo(core, collectionOf(core, id)));
    }
    if (done) return done;
    const std::string undone = undoSwitch(before);
    purge();  // an answer of the release that was given up may have reached it
    return failure(done.error().message + undone);
}

std::string Publisher::undoSwitch(const Served& before) {
    std::string trouble;
    const auto note = [&trouble](const Result<void>& done) {
        if (!done) trouble += "; " + done.error().message;
    };
    for (const auto& [core, collection] :
         {std::pair{Core::kAgents, before.agents}, std::pair{Core::kDrivers, before.drivers}}) {
        const auto now = site_.current(core);
        // What did not change, or cannot be asked, is not set again needlessly.
        if (!now || *now != collection) note(site_.switchTo(core, collection));
    }
    note(folder_.switchTo(before.files));
    if (trouble.empty()) return {};
    return "; going back failed too, files and collections may be of different releases: run "
           "rollback when Solr is well again" +
           trouble;
}

Result<void> Publisher::discard(const std::string& id) {
    Result<void> done = folder_.remove(id);
    const auto collections = site_.collections();
    if (!collections) return tl::make_unexpected(collections.error());
    for (const std::string& collection : *collections) {
        if (releaseOf(collection) != id) continue;
        if (auto dropped = site_.drop(collection); !dropped) done = dropped;
    }
    return done;
}

void Publisher::purge() {
    if (settings_.caches.empty()) return;
    settings_.progress("emptying nginx's cache");
    for (int round = 0; round < 2; ++round) {
        if (round > 0) std::this_thread::sleep_for(settings_.settle);
        for (const std::string& cache : settings_.caches) {
            if (auto purged = purgeAnswerCache(cache); !purged)
                warnings_.push_back(purged.error().message +
                                    " (its answers are out of date until they expire)");
        }
    }
}

void Publisher::prune(const std::string& current) {
    settings_.progress("removing old releases");
    const auto listing = folder_.list();
    if (!listing) return warnings_.push_back(listing.error().message);
    std::vector<std::string> former;
    for (const Release& release : listing->whole) {
        if (release.id != current) former.push_back(release.id);
    }
    const std::size_t excess = former.size() - std::min(former.size(), settings_.keep);
    for (std::size_t at = 0; at < excess; ++at) {
        if (auto gone = discard(former[at]); !gone)
            warnings_.push_back("old release " + former[at] + ": " + gone.error().message);
    }
}

Result<std::string> Publisher::rollback(const std::optional<std::string>& wanted) {
    warnings_.clear();
    if (auto healthy = site_.requireHealthy(); !healthy)
        return failure("nothing was touched", healthy.error());
    const auto now = served();
    if (!now) return failure("nothing was touched", now.error());
    const auto listing = folder_.list();
    if (!listing) return failure("nothing was touched", listing.error());
    const Release* target = nullptr;
    for (const Release& release : listing->whole) {
        if (wanted ? release.id == *wanted : now->files && release.id < *now->files)
            target = &release;
    }
    if (target == nullptr)
        return failure(wanted ? "there is no release " + *wanted
                              : std::string("there is no release before the one that is served"));
    if (now->is(target->id)) return target->id;
    if (auto whole = verify(*target); !whole)
        return failure("release " + target->id + " cannot be gone back to: " +
                       whole.error().message + "; nothing was switched");
    if (auto done = switchTo(target->id, *now); !done) return tl::make_unexpected(done.error());
    purge();
    return target->id;
}

Result<std::vector<ReleaseState>> Publisher::releases() {
    const auto now = served();
    if (!now) return tl::make_unexpected(now.error());
    const auto listing = folder_.list();
    if (!listing) return tl::make_unexpected(listing.error());
    const auto names = site_.collections();
    if (!names) return tl::make_unexpected(names.error());
    const std::set<std::string> collections(names->begin(), names->end());
    std::map<std::string, ReleaseState> states;
    for (const Release& release : listing->whole) {
        ReleaseState& state = states[release.id];
        state.packages = release.documents.size();
        state.agents = documentsOf(Core::kAgents, release.documents).size();
    }
    for (const std::string& id : listing->incomplete) states[id].remark = "files are incomplete";
    for (const std::string& collection : collections) {
        const std::string id = releaseOf(collection);
        if (!id.empty() && states.count(id) == 0) states[id].remark = "has no files";
    }
    std::vector<ReleaseState> result;
    for (auto& [id, state] : states) {
        state.id = id;
        for (const Core core : kCores) {
            if (state.remark.empty() && collections.count(collectionOf(core, id)) == 0)
                state.remark = "collection " + collectionOf(core, id) + " is missing";
        }
        state.complete = state.remark.empty();
        state.served = now->is(id);
        const bool partly = now->files == id || now->drivers == collectionOf(Core::kDrivers, id) ||
                            now->agents == collectionOf(Core::kAgents, id);
        if (partly && !state.served && state.remark.empty())
            state.remark = "served in part: run rollback or publish again";
        result.push_back(state);
    }
    return result;
}

}  // namespace depot
