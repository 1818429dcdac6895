#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <variant>

#include "control/control_services.h"
#include "control/http_message.h"
#include "control/notification_cursor.h"

namespace overseer::control {

/// An answer that is not there yet: asked again at short intervals, as long as the peer waits.
struct Wait {
    /// On the I/O thread; the answer once it is there.
    std::function<std::optional<Response>(ControlServices&)> ready;
    /// On the I/O thread; what the peer gets when the limit has passed.
    std::function<Response(ControlServices&)> expired;
    std::chrono::milliseconds limit{0};
};

/// An answer without an end: notifications as they come.
struct Follow {
    NotificationCursor cursor;
};

using Answer = std::variant<Response, Wait, Follow>;

/// Answers a request: finds its resource and lets it speak. I/O thread; what a resource throws is
/// answered as an internal error.
Answer answer(ControlServices& services, const Request& request);

/// Whether what is waited for is there: the answer then, and at the last look in any case. I/O
/// thread; what is thrown is answered as above.
std::optional<Response> lookAt(const Wait& wait, ControlServices& services, bool last);

}  // namespace overseer::control
