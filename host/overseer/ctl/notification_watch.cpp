#include "ctl/notification_watch.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace overseer::ctl {

Answered<std::uint64_t> numberAfterNewest(Session& session) {
    const auto page = getJson(session, "/notifications?limit=0");
    if (!page) {
        return tl::unexpected(page.error());
    }
    return page->value("newest", std::uint64_t(0)) + 1;
}

Answered<bool> awaitIdle(Session& session, std::chrono::seconds limit) {
    const auto network =
        getJson(session, fmt::format("/network?wait=idle&timeout={}", limit.count()));
    if (!network) {
        return tl::unexpected(network.error());
    }
    return network->value("idle", false);
}

Answered<NotificationWatch> NotificationWatch::begin(Session& session, std::string agent) {
    const auto next = numberAfterNewest(session);
    if (!next) {
        return tl::unexpected(next.error());
    }
    return NotificationWatch(session, std::move(agent), *next);
}

Answered<std::vector<std::string>> NotificationWatch::take() {
    std::vector<std::string> nodes;
    for (;;) {
        const auto page = getJson(*session_, fmt::format("/notifications?from={}", next_));
        if (!page) {
            return tl::unexpected(page.error());
        }
        const Json& entries = page->at("notifications");
        for (const Json& entry : entries) {
            next_ = entry.value("number", next_) + 1;
            if (textOf(entry, "source") == agent_ && !textOf(entry, "xml").empty()) {
                nodes.push_back(textOf(entry, "xml"));
            }
        }
        if (entries.empty() || next_ > page->value("newest", std::uint64_t(0))) {
            return nodes;
        }
    }
}

}  // namespace overseer::ctl
