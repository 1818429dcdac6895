#include "control/service_desk.h"

#include <utility>

namespace overseer::control {

ServiceDesk::ServiceDesk(ControlServices& services, Post post)
    : services_(services), post_(std::move(post)), alive_(std::make_shared<int>()) {
    services_.observeNotifications(this);
}

ServiceDesk::~ServiceDesk() {
    services_.observeNotifications(nullptr);
}

void ServiceDesk::whenAvailable(std::uint64_t from, std::weak_ptr<void> owner, PageReady ready) {
    if (auto page = pageFrom(from)) {
        ready(std::move(*page), false);
        return;
    }
    std::erase_if(waiting_, [](const Subscriber& other) { return other.owner.expired(); });
    waiting_.push_back({from, std::move(owner), std::move(ready)});
}

void ServiceDesk::notificationsAdded() {
    // Called from inside an agent, possibly thousands of times in a row: all of them are one wake.
    if (waiting_.empty() || wakePosted_) {
        return;
    }
    wakePosted_ = true;
    post_([this, alive = std::weak_ptr<void>(alive_)] {
        if (!alive.expired()) {
            wakePosted_ = false;
            serveWaiting();
        }
    });
}

std::optional<NotificationPage> ServiceDesk::pageFrom(std::uint64_t from) {
    NotificationPage page = services_.notifications(from, NotificationCursor::kPageSize);
    if (page.entries.empty() && from > page.newest + 1) {
        page = services_.notifications(page.oldest, NotificationCursor::kPageSize);
    }
    return page.entries.empty() ? std::nullopt : std::optional(std::move(page));
}

void ServiceDesk::serveWaiting() {
    std::vector<Subscriber> subscribers;
    subscribers.swap(waiting_);
    for (Subscriber& subscriber : subscribers) {
        if (auto page = pageFrom(subscriber.from)) {
            subscriber.ready(std::move(*page), true);
        } else {
            waiting_.push_back(std::move(subscriber));
        }
    }
}

}  // namespace overseer::control
