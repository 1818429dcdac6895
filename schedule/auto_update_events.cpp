// The two daily events of the host's schedule: found by name, renamed from their earlier names,
// created when missing, and listened to.
// Entered from late initialisation, and from GET_STATE for the normal event. Leaves to the host's
// scheduler. Writes autoUpdateEventId and forcedAutoUpdateEventId.
#include <nv/scheduler.h>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/make_shared.hpp>
#include <cstdlib>
#include <ctime>
#include <stdexcept>

#include "norvane_agent_driverupdate.h"

/// One of the two events, and the members that hold its ids.
struct norvane_agent_driverupdate::DailyEvent {
    const std::string& name;
    const std::string& earlierName;
    std::uint32_t& earlierId;
    std::uint32_t& id;
    const char* listenerRefused;  ///< log text
    const char* metric;
};

namespace {

const std::string kEarlierName = "Auto Update Driver Agent Event";
const std::string kEarlierForcedName = "Auto Update Driver Agent Event Forced";
const std::string kName = "Driver and Agent Auto Update Event";
const std::string kForcedName = "Driver and Agent Forced Auto Update Event";

/// Today at midnight, local time.
boost::posix_time::ptime localMidnight() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    if (localtime_r(&now, &local) == nullptr) {
        throw std::runtime_error("could not convert calendar time to local time");
    }
    const boost::gregorian::date today(static_cast<unsigned short>(local.tm_year + 1900),
                                       static_cast<unsigned short>(local.tm_mon + 1),
                                       static_cast<unsigned short>(local.tm_mday));
    const boost::posix_time::ptime present(
        today, boost::posix_time::time_duration(local.tm_hour, local.tm_min, local.tm_sec));
    return boost::posix_time::ptime(present.date());
}

/// A time of day between 00:00 and 03:58, so that controllers do not all ask at once.
boost::posix_time::time_duration drawTimeOfDay() {
    std::srand(static_cast<unsigned int>(std::time(nullptr)));  // NOLINT(concurrency-mt-unsafe)
    const int hours = std::rand() % 4;                          // NOLINT(concurrency-mt-unsafe)
    const int minutes = std::rand() % 59;                       // NOLINT(concurrency-mt-unsafe)
    return boost::posix_time::seconds(hours * 3600 + minutes * 60);
}

}  // namespace

RESULTX norvane_agent_driverupdate::scheduleAutoUpdateEvent() {
    return scheduleDailyEvent(
        {kName, kEarlierName, autoUpdateEventId, autoUpdateEventId,
         "agent_driverupdate: Unable to register for the scheduled auto driver update event.",
         "scheduler_event_create_failed"});
}

RESULTX norvane_agent_driverupdate::scheduleForcedAutoUpdateEvent() {
    // The earlier forced event's id goes to the normal event's member. Nothing depends on that
    // member: a delivery is told apart by the forced id alone.
    return scheduleDailyEvent(
        {kForcedName, kEarlierForcedName, autoUpdateEventId, forcedAutoUpdateEventId,
         "agent_driverupdate: Unable to register for the scheduled forced auto driver update "
         "event.",
         "scheduler_event_forced_create_failed"});
}

RESULTX norvane_agent_driverupdate::scheduleDailyEvent(const DailyEvent& event) {
    using nv::scheduler::IScheduler;
    auto* scheduler =
        static_cast<IScheduler*>(GetInstanceManager()->GetInstance(IScheduler::kGuid));
    if (scheduler == nullptr) return -1;

    event.earlierId = scheduler->FindEventId(event.earlierName);
    if (event.earlierId != 0) scheduler->RenameEvent(event.earlierId, event.name);
    event.id = scheduler->FindEventId(event.name);
    if (event.id == 0) {
        event.id = addDailyEvent(event.name, *scheduler);
        if (event.id == 0) return -1;
    }

    const RESULTX registered = EmRegisterListener(scheduler->GetId(), event.id);
    if (registered != 0) {
        DRIVERUPDATE_ERROR("{}", event.listenerRefused);
        countPlain(event.metric);
    }
    return registered;
}

std::uint32_t norvane_agent_driverupdate::addDailyEvent(const std::string& name,
                                                        nv::scheduler::IScheduler& scheduler) {
    const boost::posix_time::time_duration timeOfDay = drawTimeOfDay();
    DRIVERUPDATE_DEBUG("agent_driverupdate: Creating {} event.", name);
    const nv::scheduler::event_info info(name, GetDeviceId(), "");
    const nv::scheduler::entry_attributes attributes;
    const boost::posix_time::ptime start = localMidnight() + timeOfDay;
    const boost::posix_time::ptime noEnd(boost::posix_time::max_date_time);
    return scheduler.AddEntry(boost::make_shared<nv::scheduler::daily_repeat_x_days_entry>(
        info, attributes, 1U, start, noEnd));
}
