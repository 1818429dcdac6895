#include "services/notifications.h"

#include <algorithm>
#include <utility>

namespace overseer {
namespace {

/// Numbers are set apart in blocks, so that not every notification costs a write.
constexpr std::uint64_t kNumbersPerBlock = 1000;

}  // namespace

Result<std::unique_ptr<Notifications>> Notifications::open(
    RunStore& store, std::shared_ptr<nv::hosting::Clock> clock, std::size_t kept) {
    const Result<std::int64_t> last = store.counter(kCounter);
    if (!last) return inContext("cannot number notifications", last.error());
    const auto number = static_cast<std::uint64_t>(std::max<std::int64_t>(*last, 0));
    return std::unique_ptr<Notifications>(new Notifications(store, std::move(clock), number, kept));
}

Notifications::Notifications(RunStore& store, std::shared_ptr<nv::hosting::Clock> clock,
                             std::uint64_t last, std::size_t kept)
    : store_(store), clock_(std::move(clock)), last_(last), reserved_(last), kept_(kept) {}

Notifications::~Notifications() {
    // Where this fails the next process begins with the next block: a gap, never a number twice.
    if (reserved_ != last_) (void)store_.setCounter(kCounter, static_cast<std::int64_t>(last_));
}

std::uint64_t Notifications::publish(const std::string& agent, std::string xml) {
    if (last_ == reserved_) reserveNumbers();
    record_.push_back(
        {toUtcMilliseconds(clock_->wallTime()), &*agents_.insert(agent).first, std::move(xml)});
    ++last_;
    bytes_ += sizeof(Kept) + record_.back().xml.size();
    dropOldest();
    const std::uint64_t number = last_;
    // Copies: who is told may subscribe, unsubscribe or publish.
    const Notification published = notificationAt(last_);
    for (Subscription* subscription : std::list<Subscription*>(subscriptions_))
        if (std::find(subscriptions_.begin(), subscriptions_.end(), subscription) !=
            subscriptions_.end())
            subscription->published();
    for (const Observer& observer : observers_) observer(published);
    return number;
}

Notification Notifications::notificationAt(std::uint64_t number) const {
    const Kept& kept = record_[number - oldest()];
    return {number, kept.time, *kept.agent, kept.xml};
}

void Notifications::reserveNumbers() {
    // Goes on without where the disk is full: user interfaces matter more than the numbers.
    reserved_ += kNumbersPerBlock;
    (void)store_.setCounter(kCounter, static_cast<std::int64_t>(reserved_));
}

void Notifications::dropOldest() {
    while (record_.size() > 1 && (record_.size() > kept_ || bytes_ > kKeptBytes)) {
        bytes_ -= sizeof(Kept) + record_.front().xml.size();
        record_.pop_front();
    }
}

std::vector<Notification> Notifications::page(std::uint64_t from, std::size_t limit) const {
    const std::uint64_t first = std::max(from, oldest());
    if (first > last_) return {};
    const auto begin = record_.begin() + static_cast<std::ptrdiff_t>(first - oldest());
    const auto size = std::min<std::size_t>(limit, last_ + 1 - first);
    return {begin, begin + static_cast<std::ptrdiff_t>(size)};
}

std::unique_ptr<Notifications::Subscription> Notifications::subscribe(std::uint64_t from,
                                                                      std::function<void()> wake,
                                                                      std::size_t limit) {
    std::unique_ptr<Subscription> subscription(
        new Subscription(*this, from == 0 ? last_ + 1 : from, std::move(wake), limit));
    subscriptions_.push_back(subscription.get());
    return subscription;
}

Notifications::Subscription::Subscription(Notifications& owner, std::uint64_t from,
                                          std::function<void()> wake, std::size_t limit)
    : owner_(owner),
      // A number that is yet to come would leave its client waiting in silence.
      next_(std::min(from, owner.last_ + 1)),
      liveFrom_(owner.last_ + 1),
      limit_(limit),
      wake_(std::move(wake)) {}

Notifications::Subscription::~Subscription() {
    owner_.subscriptions_.remove(this);
}

void Notifications::Subscription::published() {
    const std::uint64_t unread = owner_.last_ + 1 - std::max(next_, liveFrom_);
    if (!overflowAt_ && unread > limit_) overflowAt_ = owner_.last_;
    if (!wantsWaking_) return;
    wantsWaking_ = false;
    wake_();
}

std::optional<NotificationEvent> Notifications::Subscription::next() {
    if (ended_) return std::nullopt;
    const std::uint64_t oldest = owner_.oldest();
    if (next_ < oldest) {
        NotificationEvent event;
        event.lagged = oldest - std::exchange(next_, oldest);
        return event;
    }
    if (overflowAt_ && next_ >= *overflowAt_) {
        ended_ = true;
        NotificationEvent event;
        event.lagged = owner_.last_ + 1 - next_;
        return event;
    }
    if (next_ > owner_.last_) {
        wantsWaking_ = true;
        return std::nullopt;
    }
    return NotificationEvent{0, owner_.notificationAt(next_++)};
}

}  // namespace overseer
