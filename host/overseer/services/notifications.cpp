#include "services/notifications.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace overseer {
namespace {

/// Numbers are set apart in blocks, so that not every notification costs a write.
constexpr std::uint64_t kNumbersPerBlock = 10'000;

/// Leaves out control characters, which nodes write as "&#01;" to "&#31;": XML has no way to carry
/// them, and strict readers refuse the whole text.
std::string strict(std::string xml) {
    constexpr std::size_t kReference = 5;
    std::size_t at = xml.find("&#");
    if (at == std::string::npos) return xml;
    std::string kept;
    kept.reserve(xml.size());
    std::size_t begin = 0;
    for (; at != std::string::npos; at = xml.find("&#", at)) {
        const int code = std::atoi(xml.c_str() + at + 2);
        const bool carried = code >= 32 || code == '\t' || code == '\n' || code == '\r';
        const bool isReference = xml.compare(at + kReference - 1, 1, ";") == 0;
        if (isReference && !carried) {
            kept.append(xml, begin, at - begin);
            begin = at + kReference;
        }
        at += isReference ? kReference : 1;
    }
    return kept.append(xml, begin, std::string::npos);
}

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
    record_.push_back({toUtcMilliseconds(clock_->wallTime()), &*agents_.insert(agent).first,
                       strict(std::move(xml))});
    ++last_;
    bytes_ += sizeof(Kept) + record_.back().xml.size();
    dropOldest();
    const std::uint64_t number = last_;
    // A copy: who is told may publish.
    const Notification published = notificationAt(last_);
    for (const Observer& observer : observers_) observer(published);
    return number;
}

Notification Notifications::notificationAt(std::uint64_t number) const {
    const Kept& kept = record_[number - oldestNumber()];
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
    std::vector<Notification> notifications;
    for (std::uint64_t number = std::max(from, oldestNumber());
         number <= last_ && notifications.size() < limit; ++number)
        notifications.push_back(notificationAt(number));
    return notifications;
}

}  // namespace overseer
