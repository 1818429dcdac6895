#pragma once

#include <nvhost/clock.h>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <optional>
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

/// What a subscriber reads next: a notification, or that some are missing.
struct NotificationEvent {
    std::uint64_t lagged = 0;  ///< how many are missing; 0 for a notification
    Notification notification;
};

/// Notifications to user interfaces: numbered, kept for replay, and handed to subscribers that pull
/// at their own pace. I/O thread only.
///
/// A subscriber holds no copies: it is a place in the one record that all share. Numbers that were
/// lost with an earlier process show as missing, never as silence.
class Notifications {
  public:
    static constexpr std::size_t kKept = 100'000;
    static constexpr std::size_t kQueueLimit = 10'000;
    /// The record is bounded in bytes as well, oldest out first.
    static constexpr std::size_t kKeptBytes = 32u << 20;
    static constexpr const char* kCounter = "notification";

    using Observer = std::function<void(const Notification&)>;

    /// One reader. Destroying it ends it; `wake` is not called any more then. The Notifications
    /// outlive it.
    class Subscription {
      public:
        ~Subscription();
        Subscription(const Subscription&) = delete;
        Subscription& operator=(const Subscription&) = delete;

        /// The next event; nothing when there is none yet, or when it has ended.
        /// "Lagged" comes first when numbers asked for are no longer kept, and reading goes on with
        /// the oldest. It comes last when the reader fell more than its limit behind what was
        /// published since it began: then it has ended, and asks again from its last number.
        std::optional<NotificationEvent> next();
        bool ended() const { return ended_; }

      private:
        friend class Notifications;
        Subscription(Notifications& owner, std::uint64_t from, std::function<void()> wake,
                     std::size_t limit);
        void published();

        Notifications& owner_;
        std::uint64_t next_;      ///< number that is read next
        std::uint64_t liveFrom_;  ///< first number that counts against the limit
        std::size_t limit_;
        std::optional<std::uint64_t> overflowAt_;  ///< first number that is no longer handed out
        bool wantsWaking_ = false;  ///< it read all there was, and was not woken since
        bool ended_ = false;
        std::function<void()> wake_;
    };

    /// Reads where the numbers stand. `store` outlives it.
    static Result<std::unique_ptr<Notifications>> open(RunStore& store,
                                                       std::shared_ptr<nv::hosting::Clock> clock,
                                                       std::size_t kept = kKept);
    /// Notes the last number, so that the next process goes on right behind it.
    ~Notifications();
    Notifications(const Notifications&) = delete;
    Notifications& operator=(const Notifications&) = delete;

    /// Numbers and keeps a notification, and wakes subscribers. @return its number
    std::uint64_t publish(const std::string& agent, std::string xml);
    /// A reader from number `from` on (0: only what comes). `wake` is called inside `publish`, once
    /// after each time that `next` had nothing; it may only note that there is something to read.
    std::unique_ptr<Subscription> subscribe(std::uint64_t from, std::function<void()> wake,
                                            std::size_t limit = kQueueLimit);
    /// Up to `limit` of those kept, from number `from` on, ascending.
    std::vector<Notification> page(std::uint64_t from, std::size_t limit) const;
    /// Number of the oldest kept, the next one to be given out when none is.
    std::uint64_t oldestNumber() const { return oldest(); }
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
    std::uint64_t oldest() const { return last_ + 1 - record_.size(); }

    RunStore& store_;
    std::shared_ptr<nv::hosting::Clock> clock_;
    std::uint64_t last_;
    std::uint64_t reserved_;  ///< up to here a crash cannot hand numbers out twice
    std::size_t kept_;
    std::size_t bytes_ = 0;
    std::set<std::string> agents_;  ///< names are kept once, not with each notification
    std::deque<Kept> record_;
    std::list<Subscription*> subscriptions_;
    std::vector<Observer> observers_;
};

}  // namespace overseer
