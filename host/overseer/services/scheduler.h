#pragma once

#include <nv/asio_forward.h>
#include <nv/result.h>
#include <nv/scheduler.h>
#include <nvhost/clock.h>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "services/local_time.h"
#include "state/schedule_store.h"

namespace overseer {

/// An entry of the schedule, as users see it.
struct ScheduleListing {
    std::uint32_t id = 0;
    std::string name;
    std::uint32_t deviceId = 0;
    bool enabled = true;
    std::optional<UtcMilliseconds> next;          ///< none when it never fires again
    std::optional<UtcMilliseconds> lastDelivery;  ///< none when it was never delivered
    unsigned int intervalDays = 1;
    std::vector<std::uint32_t> listeners;  ///< device ids
};

/// The host's schedule: entries that survive restarts, listeners that register anew each time.
///
/// Deliveries by the clock to one device are at least kGap apart, and wait until the network is
/// idle, kLongestWait at most; those due at one instant go in order of id. An occurrence that
/// passed while the host was down, before its entry was made, or in a jump of the clock is not made
/// up; one that was delivered is not repeated when the clock is set back. I/O thread only.
class Scheduler : public nv::scheduler::IScheduler {
  public:
    static constexpr std::uint32_t kId = 100;
    static constexpr std::chrono::seconds kGap{60};
    static constexpr std::chrono::seconds kLongestWait{3600};
    /// The clock is looked at again at least so often, and this often while a delivery is held.
    static constexpr std::chrono::seconds kLongestStep{3600};
    static constexpr std::chrono::seconds kIdlePoll{5};
    /// Wall clock against steady clock: more than this between two looks is a clock that was set.
    static constexpr std::chrono::seconds kClockTolerance{60};
    /// A last occurrence this far in the future comes from a clock that was wrong, and is
    /// forgotten.
    static constexpr int kForgottenFutureDays = 7;

    /// Hands an event to a device; catches what the device throws.
    using Delivery = std::function<void(std::uint32_t deviceId, std::uint32_t eventId)>;

    /// What it stands on; all of it outlives the scheduler.
    struct Surroundings {
        boost::asio::io_context& context;
        std::shared_ptr<nv::hosting::Clock> clock;
        ScheduleStore& store;
        std::function<bool()> networkIdle;
        Delivery deliver;
        /// Called at each look at the clock, before anything is delivered; may be empty.
        std::function<void()> looked = {};
    };

    explicit Scheduler(Surroundings surroundings);
    ~Scheduler() override;
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;

    /// Reads the entries and starts the clock; to be called once, before the first agent.
    Result<> start();
    /// No delivery by the clock after this.
    void stop();

    std::uint32_t GetId() const override { return kId; }
    std::uint32_t FindEventId(const std::string& name) const override;
    bool RenameEvent(std::uint32_t eventId, const std::string& name) override;
    std::uint32_t AddEntry(const boost::shared_ptr<nv::scheduler::schedule_entry>& entry) override;

    /// 0 on success, also when it is registered already; negative for an unknown event.
    RESULTX addListener(std::uint32_t deviceId, std::uint32_t eventId);
    /// Forgets all listeners of a device that goes, and what waits for it.
    void removeListeners(std::uint32_t deviceId);
    /// Delivers to all listeners at once, for a person who asks; leaves the times as they are.
    /// @return to how many devices; an error when there is no such entry or nobody listens
    Result<std::size_t> fire(std::uint32_t eventId);
    /// Those that users are shown, in order of id.
    std::vector<ScheduleListing> list() const;

  private:
    struct Entry {
        StoredScheduleEntry stored;
        std::optional<local_time::Occurrence> next;
        std::set<std::uint32_t> listeners;
    };
    /// A delivery that is due and was not made yet.
    struct Pending {
        std::time_t instant = 0;
        std::uint32_t eventId = 0;
        std::uint32_t deviceId = 0;
        boost::gregorian::date date;
        std::chrono::steady_clock::time_point dueSince;
    };

    void step();
    void followClock();
    void planAll(bool dueOnesToo);
    void plan(Entry& entry, std::time_t after);
    void collectDue();
    void enqueue(const Entry& entry, const local_time::Occurrence& occurrence);
    void deliverDue();
    bool mayGo(const Pending& pending, bool idle) const;
    void deliverByClock(const Pending& pending);
    void noteDelivery(Entry& entry);
    void arm();
    std::chrono::milliseconds untilNextLook() const;

    Surroundings surroundings_;
    bool running_ = false;
    std::map<std::uint32_t, Entry> entries_;
    std::vector<Pending> pending_;
    std::map<std::uint32_t, std::chrono::steady_clock::time_point> lastDeliveries_;
    timespec lastWall_{};
    std::chrono::steady_clock::time_point lastSteady_;
    nv::hosting::Clock::Wait wait_;
};

}  // namespace overseer
