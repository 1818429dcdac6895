// The scheduler's own clockwork: looks at the clock, finds what is due, and lets it out when its
// time has come. Entered by the timer; the rest of the scheduler only asks for it to be armed.

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <tuple>

#include "services/scheduler.h"

namespace overseer {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// How far the wall clock moved between two readings.
milliseconds between(const timespec& from, const timespec& to) {
    return milliseconds(toUtcMilliseconds(to) - toUtcMilliseconds(from));
}

log4cplus::Logger logger() {
    return log4cplus::Logger::getRoot();
}

}  // namespace

void Scheduler::step() {
    if (!running_) return;
    if (surroundings_.looked) surroundings_.looked();
    followClock();
    collectDue();
    deliverDue();
    if (running_) arm();
}

void Scheduler::followClock() {
    const timespec wall = surroundings_.clock->wallTime();
    const steady_clock::time_point steady = surroundings_.clock->steadyTime();
    const auto jump =
        between(lastWall_, wall) - std::chrono::duration_cast<milliseconds>(steady - lastSteady_);
    lastWall_ = wall;
    lastSteady_ = steady;
    // Everything is planned anew, since the zone may have changed. What the clock jumped over is
    // not made up; a loop that was late without a jump still delivers what came due meanwhile.
    planAll(jump > kClockTolerance || jump < -kClockTolerance);
}

void Scheduler::collectDue() {
    const std::time_t now = lastWall_.tv_sec;
    for (auto& [id, entry] : entries_) {
        if (!entry.next || entry.next->instant > now) continue;
        const local_time::Occurrence occurrence = *entry.next;
        enqueue(entry, occurrence);
        // From now on, and not from the occurrence: several that a blocked loop missed are one.
        entry.stored.lastOccurrence = occurrence.date;
        plan(entry, now);
    }
    std::sort(pending_.begin(), pending_.end(), [](const Pending& left, const Pending& right) {
        return std::tie(left.instant, left.eventId, left.deviceId) <
               std::tie(right.instant, right.eventId, right.deviceId);
    });
}

void Scheduler::enqueue(const Entry& entry, const local_time::Occurrence& occurrence) {
    for (const std::uint32_t deviceId : entry.listeners)
        pending_.push_back(
            {occurrence.instant, entry.stored.id, deviceId, occurrence.date, lastSteady_});
}

void Scheduler::deliverDue() {
    // One at a time: a delivery may start a run, and then the network is no longer idle; and it may
    // change the schedule, and then the list is another one.
    for (;;) {
        const bool idle = surroundings_.networkIdle();
        const auto next = std::find_if(pending_.begin(), pending_.end(),
                                       [&](const Pending& held) { return mayGo(held, idle); });
        if (next == pending_.end()) return;
        const Pending delivery = *next;
        pending_.erase(next);
        deliverByClock(delivery);
        if (!running_) return;
    }
}

bool Scheduler::mayGo(const Pending& pending, bool idle) const {
    const steady_clock::time_point now = surroundings_.clock->steadyTime();
    const auto last = lastDeliveries_.find(pending.deviceId);
    if (last != lastDeliveries_.end() && now - last->second < kGap) return false;
    return idle || now - pending.dueSince >= kLongestWait;
}

void Scheduler::deliverByClock(const Pending& pending) {
    const auto found = entries_.find(pending.eventId);
    if (found == entries_.end()) return;
    // On record before the delivery: one that ends the process must not come again.
    noteDelivery(found->second);
    lastDeliveries_[pending.deviceId] = surroundings_.clock->steadyTime();
    surroundings_.deliver(pending.deviceId, pending.eventId);
}

void Scheduler::noteDelivery(Entry& entry) {
    entry.stored.lastDelivery = toUtcMilliseconds(surroundings_.clock->wallTime());
    if (auto stored = surroundings_.store.update(entry.stored); !stored)
        LOG4CPLUS_ERROR(logger(), "scheduler: " << stored.error().message);
}

void Scheduler::arm() {
    wait_.reset();
    if (entries_.empty()) return;
    wait_ = surroundings_.clock->after(surroundings_.context, untilNextLook(), [this] { step(); });
}

milliseconds Scheduler::untilNextLook() const {
    milliseconds wait = kLongestStep;
    const timespec wall = surroundings_.clock->wallTime();
    const steady_clock::time_point steady = surroundings_.clock->steadyTime();
    for (const auto& [id, entry] : entries_)
        if (entry.next) wait = std::min(wait, between(wall, timespec{entry.next->instant, 0}));
    for (const Pending& held : pending_) {
        const auto last = lastDeliveries_.find(held.deviceId);
        const auto gap =
            last == lastDeliveries_.end()
                ? milliseconds::zero()
                : std::chrono::duration_cast<milliseconds>(last->second + kGap - steady);
        wait = std::min(wait, std::max<milliseconds>(gap, kIdlePoll));
    }
    // Rounded up: a look that comes a moment early would only be followed by another one.
    return std::max(wait + milliseconds(1), milliseconds(1));
}

}  // namespace overseer
