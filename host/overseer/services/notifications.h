#pragma once

#include <nvhost/clock.h>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "state/run_store.h"

namespace overseer {

/// A notification to user interfaces.
struct Notification {
    std::uint64_t number = 0;  ///< grows by one with each, over restarts too
    UtcMilliseconds time = 0;
    std::string agent;
    std::string xml;  ///< the node as text, not indented
};

/// Notifications to user interfaces: numbered, and kept so that whoever follows them reads at a
/// pace of its own. I/O thread only.
///
/// Numbers that were lost with an earlier process, or are no longer kept, show as missing.
class Notifications {
  public:
    static constexpr std::size_t kKept = 100'000;
    /// The record is bounded in bytes as well, oldest out first.
    static constexpr std::size_t kKeptBytes = 32u << 20;
    static constexpr const char* kCounter = "notification";

    using Observer = std::function<void(const Notification&)>;

    /// Reads where the numbers stand. `store` outlives it.
    static Result<std::unique_ptr<Notifications>> open(RunStore& store,
                                                       std::shared_ptr<nv::hosting::Clock> clock,
                                                       std::size_t kept = kKept);
    /// Notes the last number, so that the next process goes on right behind it.
    ~Notifications();
    Notifications(const Notifications&) = delete;
    Notifications& operator=(const Notifications&) = delete;

    /// Numbers and keeps a notification, and tells the observers. @return its number
    std::uint64_t publish(const std::string& agent, std::string xml);
    /// Up to `limit` of those kept, from number `from` on, ascending.
    std::vector<Notification> page(std::uint64_t from, std::size_t limit) const;
    /// Number of the oldest kept, the next one to be given out when none is.
    std::uint64_t oldestNumber() const { return last_ + 1 - record_.size(); }
    /// The last number given out, 0 when none ever was.
    std::uint64_t lastNumber() const { return last_; }
    /// Called for each notification, inside `publish`, for as long as the object lives.
    void observe(Observer observer) { observers_.push_back(std::move(observer)); }

  private:
    Notifications(RunStore& store, std::shared_ptr<nv::hosting::Clock> clock, std::uint64_t last,
                  std::size_t kept);
    /// A notification as it is kept: the number follows from the place.
    struct Kept {
        UtcMilliseconds time;
        const std::string* agent;  ///< in agents_
        std::string xml;
    };

    Notification notificationAt(std::uint64_t number) const;
    void reserveNumbers();
    void dropOldest();

    RunStore& store_;
    std::shared_ptr<nv::hosting::Clock> clock_;
    std::uint64_t last_;
    std::uint64_t reserved_;  ///< up to here a crash cannot hand numbers out twice
    std::size_t kept_;
    std::size_t bytes_ = 0;
    std::set<std::string> agents_;  ///< names are kept once, not with each notification
    std::deque<Kept> record_;
    std::vector<Observer> observers_;
};

}  // namespace overseer
