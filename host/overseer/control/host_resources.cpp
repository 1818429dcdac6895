#include <nlohmann/json.hpp>

#include "control/instant_text.h"
#include "control/resource_handlers.h"

// What the host as a whole shows: itself, its network, variables, history and notifications.
namespace overseer::control {
namespace {

constexpr std::uint64_t kMaximumHistory = 100'000;
constexpr std::uint64_t kMaximumNotifications = 1'000;
constexpr std::uint64_t kAnyNumber = std::uint64_t(1) << 53;  // beyond it JSON readers round

Response networkState(bool idle) {
    return jsonResponse({{"idle", idle}});
}

bool isSet(const Request& request, const std::string& name) {
    const auto given = request.query.find(name);
    return given != request.query.end() && given->second != "0" && given->second != "false";
}

/// Where a subscriber begins: at the number it asks for (0: the oldest kept), behind the last event
/// that its browser saw, else with what comes next.
Result<std::uint64_t> beginningOf(const Call& call) {
    const NotificationPage none = call.services.notifications(0, 0);
    if (!call.request.lastEventId.empty()) {
        Request seen;
        seen.query["Last-Event-ID"] = call.request.lastEventId;
        const auto number = queryNumber(seen, "Last-Event-ID", 0, kAnyNumber);
        return number ? Result<std::uint64_t>(*number + 1) : number;
    }
    const auto from = queryNumber(call.request, "from", none.newest + 1, kAnyNumber);
    return from && *from == 0 ? Result<std::uint64_t>(none.oldest) : from;
}

Answer followNotifications(const Call& call) {
    const auto from = beginningOf(call);
    if (!from) {
        return badQuery(from.error());
    }
    const bool events = call.request.accept.find("text/event-stream") != std::string::npos;
    return Follow{
        NotificationCursor(*from, events ? StreamFormat::kServerSentEvents : StreamFormat::kLines)};
}

}  // namespace

Answer showHost(const Call& call) {
    return jsonResponse(toJson(call.services.host()));
}

Answer showNetwork(const Call& call) {
    const auto wanted = call.request.query.find("wait");
    if (wanted == call.request.query.end()) {
        return networkState(call.services.networkIdle());
    }
    const auto limit = waitLimit(call.request);
    if (!limit || wanted->second != "idle") {
        return badQuery(limit ? Error{"\"wait\" understands \"idle\" only"} : limit.error());
    }
    const auto ready = [](ControlServices& services) -> std::optional<Response> {
        return services.networkIdle() ? std::optional(networkState(true)) : std::nullopt;
    };
    const auto expired = [](ControlServices& services) {
        return networkState(services.networkIdle());
    };
    return Wait{ready, expired, *limit};
}

Answer listVariables(const Call& call) {
    Json list = Json::array();
    for (const VariableInformation& variable : call.services.variables()) {
        list.push_back(toJson(variable));
    }
    return jsonResponse({{"variables", std::move(list)}});
}

Answer listHistory(const Call& call) {
    const auto limit = queryNumber(call.request, "limit", 1000, kMaximumHistory);
    if (!limit) {
        return badQuery(limit.error());
    }
    HistoryQuery query{std::nullopt, *limit};
    const auto since = call.request.query.find("since");
    if (since != call.request.query.end()) {
        query.since = instantFromText(since->second);
        if (!query.since) {
            return badQuery(Error{"\"since\" must look like 2026-01-31T23:59:59Z, not \"" +
                                  since->second + "\""});
        }
    }
    const auto records = call.services.history(query);
    if (!records) {
        return refusal(500, "history_unavailable", records.error().message);
    }
    Json list = Json::array();
    for (const HistoryRecord& record : *records) {
        list.push_back(toJson(record));
    }
    return jsonResponse({{"history", std::move(list)}});
}

Answer listNotifications(const Call& call) {
    if (isSet(call.request, "follow")) {
        return followNotifications(call);
    }
    const auto from = queryNumber(call.request, "from", 0, kAnyNumber);
    const auto limit =
        queryNumber(call.request, "limit", kMaximumNotifications, kMaximumNotifications);
    if (!from || !limit) {
        return badQuery(from ? limit.error() : from.error());
    }
    const NotificationPage page = call.services.notifications(*from, *limit);
    Json list = Json::array();
    for (const Notification& notification : page.entries) {
        list.push_back(toJson(notification));
    }
    return jsonResponse(
        {{"oldest", page.oldest}, {"newest", page.newest}, {"notifications", std::move(list)}});
}

}  // namespace overseer::control
