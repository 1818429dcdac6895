#pragma once

#include <nvhost/clock.h>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "services/notifications.h"
#include "services/run_summary.h"
#include "services/statsd_client.h"
#include "state/history_store.h"
#include "state/run_store.h"

namespace overseer {

/// What a run is about, as the host knows it when the run starts.
struct RunStart {
    bool forced = false;
    std::set<std::string> files;     ///< of the project: drivers and packaged agents
    std::set<std::string> excluded;  ///< of these, what the agent's settings exclude
};

/// Keeps account of each agent's runs, from what the agent lets the host see: notifications,
/// history records, timings and ERROR lines. The host says when a run starts and when the network
/// is idle; everything between belongs to the run. I/O thread only.
class RunJournal {
  public:
    /// Of the refused files that a run did not ask for, as many are listed.
    static constexpr std::size_t kStrangersListed = 1000;

    using VersionOf = std::function<int(const std::string& fileName)>;

    /// `store` and what `versionOf` asks outlive it.
    RunJournal(RunStore& store, std::shared_ptr<nv::hosting::Clock> clock, VersionOf versionOf);

    /// A run begins; one that is still under way goes on instead and takes the new files in.
    void runStarted(const std::string& agent, const RunStart& start);
    /// What should have made the run did not: counts as a query that failed for this reason.
    void runFailed(const std::string& agent, const std::string& reason);
    /// Nothing is in flight any more: ends all runs under way.
    /// @return the failure to store one; the runs are ended all the same
    Result<> networkIdle();

    /// To be told of every notification, history record and metric.
    void notified(const Notification& notification);
    void recorded(const HistoryRecord& record);
    void measured(const Metric& metric);
    /// To be told of every download that failed: what the agent tells of that file only names what
    /// came of it.
    void downloadFailed(const std::string& file, const std::string& reason);
    /// To be told of every ERROR line; any thread. A query's failure is logged with its cause
    /// before it is notified without.
    void errorLogged(const std::string& text);

    /// The run under way, else the last one, of this process or an earlier one, with what is known
    /// of the catalogue.
    Result<RunRecord> find(const std::string& agent);

  private:
    struct Run {
        RunSummary summary;
        std::map<std::string, FileResult> files;
        std::set<std::string> excluded;
        std::map<std::string, std::string> downloadFailures;  ///< reasons by file
        std::size_t strangers = 0;  ///< reports of refused files that the run did not ask for
    };

    static bool isBeyondListing(Run& run, const std::string& file, FileOutcome outcome);
    static FileResult& fileOf(Run& run, const std::string& name);
    void take(Run& run, const RunStart& start) const;
    void report(const std::string& agent, const std::string& file, FileOutcome outcome,
                const std::string& reason);
    void queryFailed(const std::string& agent, const std::string& reason);
    std::string takeErrorDetail();
    Result<> end(const std::string& agent, Run& run);
    void settle(const Run& run, FileResult& file) const;
    Result<RunRecord*> recordOf(const std::string& agent);
    UtcMilliseconds now() const;

    RunStore& store_;
    std::shared_ptr<nv::hosting::Clock> clock_;
    VersionOf versionOf_;
    std::map<std::string, Run> running_;
    std::map<std::string, RunRecord> records_;  ///< read from the store when first asked
    std::mutex errorMutex_;
    std::string errorDetail_;  ///< guarded by errorMutex_
};

}  // namespace overseer
