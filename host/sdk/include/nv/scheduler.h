#pragma once

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>

/// An object that the instance manager hands out.
class IInstance {
  public:
    virtual ~IInstance() = default;
};

/// Hands out the host's shared objects by GUID.
class IInstanceManager {
  public:
    virtual ~IInstanceManager() = default;
    /// The object, owned by the host and valid as long as the driver lives; null when unknown.
    virtual IInstance* GetInstance(const std::string& guid) = 0;
};

namespace nv::scheduler {

/// What an entry is called and whose it is.
class event_info {
  public:
    event_info(std::string name, std::uint32_t deviceId, std::string description);
    const std::string& name() const { return name_; }
    std::uint32_t deviceId() const { return deviceId_; }
    const std::string& description() const { return description_; }

  private:
    std::string name_;
    std::uint32_t deviceId_;
    std::string description_;
};

/// How an entry is treated; the defaults are those of an enabled entry that stays.
struct entry_attributes {
    bool enabled = true;  ///< fires at its times
    bool hidden = false;  ///< left out of listings for users
};

/// An entry of the schedule.
class schedule_entry {
  public:
    virtual ~schedule_entry();
    const event_info& info() const { return info_; }
    const entry_attributes& attributes() const { return attributes_; }

  protected:
    schedule_entry(event_info info, const entry_attributes& attributes);

  private:
    event_info info_;
    entry_attributes attributes_;
};

/// Fires every so many days at the local time of day of its start, until its end.
class daily_repeat_x_days_entry : public schedule_entry {
  public:
    /// @param intervalDays  1 for every day; 0 is refused when the entry is added
    /// @param start         first occurrence, local time; times before now are not made up
    /// @param end           last instant at which it may fire, local time
    daily_repeat_x_days_entry(event_info info, const entry_attributes& attributes,
                              unsigned int intervalDays, boost::posix_time::ptime start,
                              boost::posix_time::ptime end);
    unsigned int intervalDays() const { return intervalDays_; }
    const boost::posix_time::ptime& start() const { return start_; }
    const boost::posix_time::ptime& end() const { return end_; }

  private:
    unsigned int intervalDays_;
    boost::posix_time::ptime start_;
    boost::posix_time::ptime end_;
};

/// The host's schedule. Entries survive restarts of the host; listeners register anew each time.
class IScheduler : public IInstance {
  public:
    /// Under which the instance manager hands the scheduler out.
    static constexpr const char* kGuid = "3A7C51E2-94B0-4d1e-A6F3-7B2C90D84E15";

    /// The scheduler's own id as an emitter of events, for EmRegisterListener.
    virtual std::uint32_t GetId() const = 0;
    /// Id of the event of that name, 0 when there is none.
    virtual std::uint32_t FindEventId(const std::string& name) const = 0;
    /// False when there is no such event or it could not be stored.
    virtual bool RenameEvent(std::uint32_t eventId, const std::string& name) = 0;
    /// Id of the new event, 0 when it was refused.
    virtual std::uint32_t AddEntry(const boost::shared_ptr<schedule_entry>& entry) = 0;
};

}  // namespace nv::scheduler
