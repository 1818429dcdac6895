#include <nv/scheduler.h>

#include <utility>

namespace nv::scheduler {

event_info::event_info(std::string name, std::uint32_t deviceId, std::string description)
    : name_(std::move(name)), deviceId_(deviceId), description_(std::move(description)) {}

schedule_entry::schedule_entry(event_info info, const entry_attributes& attributes)
    : info_(std::move(info)), attributes_(attributes) {}

schedule_entry::~schedule_entry() = default;

daily_repeat_x_days_entry::daily_repeat_x_days_entry(event_info info,
                                                     const entry_attributes& attributes,
                                                     unsigned int intervalDays,
                                                     boost::posix_time::ptime start,
                                                     boost::posix_time::ptime end)
    : schedule_entry(std::move(info), attributes),
      intervalDays_(intervalDays),
      start_(start),
      end_(end) {}

}  // namespace nv::scheduler
