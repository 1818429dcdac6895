#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "control/control_services.h"
#include "control/resources.h"

namespace overseer::control {

/// The control interface's half on the I/O thread: answers what connections pass on, and keeps
/// those that wait for the next notification. I/O thread only.
class ServiceDesk : public NotificationObserver {
  public:
    /// What a subscriber is given. @param waited  it had to wait, since there was nothing
    using PageReady = std::function<void(NotificationPage page, bool waited)>;
    /// Runs a function on the I/O thread, later.
    using Post = std::function<void(std::function<void()>)>;

    /// `services` must outlive this object.
    ServiceDesk(ControlServices& services, Post post);
    ~ServiceDesk() override;
    ServiceDesk(const ServiceDesk&) = delete;
    ServiceDesk& operator=(const ServiceDesk&) = delete;

    ControlServices& services() { return services_; }
    /// Gives the notifications from a number on, once there is one. Where the numbers began anew
    /// since the subscriber's last, it is given everything that is kept.
    /// @param owner  the subscriber; once it is gone, `ready` is dropped
    void whenAvailable(std::uint64_t from, std::weak_ptr<void> owner, PageReady ready);
    void notificationsAdded() override;

  private:
    struct Subscriber {
        std::uint64_t from;
        std::weak_ptr<void> owner;
        PageReady ready;
    };
    std::optional<NotificationPage> pageFrom(std::uint64_t from);
    void serveWaiting();

    ControlServices& services_;
    Post post_;
    std::vector<Subscriber> waiting_;
    bool wakePosted_ = false;
    std::shared_ptr<void> alive_;  ///< what was posted tests it: the desk may be gone by then
};

}  // namespace overseer::control
