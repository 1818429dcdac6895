#include "control/notification_cursor.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "control/json_forms.h"

namespace overseer::control {

std::string NotificationCursor::take(const NotificationPage& page, bool waited) {
    if (level_ && !waited && page.newest >= next_ + kMaximumBacklog) {
        ended_ = true;
        return lagged(page.newest + 1 - next_);
    }
    std::string text;
    for (const Notification& notification : page.entries) {
        if (notification.number > next_) {
            text += lagged(notification.number - next_);
        }
        text += entry(notification);
        next_ = notification.number + 1;
    }
    level_ = next_ > page.newest;
    return text;
}

std::string NotificationCursor::lagged(std::uint64_t entries) const {
    const std::string line = toLine({{"lagged", entries}, {"next", next_}});
    return format_ == StreamFormat::kLines ? line + "\n"
                                           : fmt::format("event: lagged\ndata: {}\n\n", line);
}

std::string NotificationCursor::entry(const Notification& notification) const {
    const std::string line = toLine(toJson(notification));
    return format_ == StreamFormat::kLines
               ? line + "\n"
               : fmt::format("id: {}\ndata: {}\n\n", notification.number, line);
}

}  // namespace overseer::control
