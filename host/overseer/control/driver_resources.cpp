#include <nlohmann/json.hpp>

#include "control/flat_object.h"
#include "control/resource_handlers.h"

// Schedule and drivers: listings, and what each can be told to do.
namespace overseer::control {
namespace {

std::optional<ScheduledEvent> findEvent(const Call& call) {
    for (ScheduledEvent& event : call.services.schedule()) {
        if (std::to_string(event.id) == call.arguments.front()) {
            return std::move(event);
        }
    }
    return std::nullopt;
}

}  // namespace

Answer listSchedule(const Call& call) {
    Json list = Json::array();
    for (const ScheduledEvent& event : call.services.schedule()) {
        list.push_back(toJson(event));
    }
    return jsonResponse({{"schedule", std::move(list)}});
}

Answer fireEvent(const Call& call) {
    const auto event = findEvent(call);
    if (!event) {
        return refusal(404, "no_such_event",
                       "there is no event \"" + call.arguments.front() + "\" in the schedule");
    }
    const auto fired = call.services.fire(event->id);
    if (!fired) {
        return refusal(422, "fire_failed", fired.error().message);
    }
    return jsonResponse({{"id", event->id}, {"name", event->name}});
}

Answer listDrivers(const Call& call) {
    const auto drivers = call.services.drivers();
    if (!drivers) {
        return refusal(500, "drivers_unavailable", drivers.error().message);
    }
    Json list = Json::array();
    for (const DriverInformation& driver : *drivers) {
        list.push_back(toJson(driver));
    }
    return jsonResponse({{"drivers", std::move(list)}});
}

Answer showDriver(const Call& call) {
    const std::string& file = call.arguments.front();
    const auto driver = call.services.driver(file);
    if (!driver) {
        return refusal(422, "driver_refused", driver.error().message);
    }
    if (!driver->has_value()) {
        return refusal(404, "no_such_driver", "there is no driver file \"" + file + "\" here");
    }
    return jsonResponse(toJson(**driver));
}

Answer placeDriver(const Call& call) {
    const auto body = readFlatObject(call.request.body);
    if (!body) {
        return refusal(400, "bad_body", body.error().message);
    }
    const auto path = body->find("path");
    if (path == body->end()) {
        return refusal(400, "bad_body", "the body names no \"path\"");
    }
    const auto placed = call.services.place(call.arguments.front(), path->second);
    if (!placed) {
        return refusal(422, "place_failed", placed.error().message);
    }
    return jsonResponse(toJson(*placed));
}

Answer restoreDriver(const Call& call) {
    const auto restored = call.services.restore(call.arguments.front());
    if (!restored) {
        return refusal(422, "restore_failed", restored.error().message);
    }
    return jsonResponse(toJson(*restored));
}

}  // namespace overseer::control
