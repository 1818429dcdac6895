#pragma once

#include <cstdint>
#include <string>

#include "control/control_records.h"

namespace overseer::control {

enum class StreamFormat {
    kLines,             ///< one JSON object to a line, application/x-ndjson
    kServerSentEvents,  ///< text/event-stream
};

/// One subscriber's place in the stream of notifications.
///
/// Nothing is queued for a subscriber: it is given the next page once it has taken the last. One
/// that was level with the stream and then lets more than kMaximumBacklog entries go by while it
/// takes a page gets one entry "lagged N" in their place and the end; it asks again from its last
/// number. What is no longer kept for replay is reported as lagged too, and the stream goes on.
class NotificationCursor {
  public:
    static constexpr std::uint64_t kMaximumBacklog = 10'000;
    static constexpr std::size_t kPageSize = 64;

    NotificationCursor(std::uint64_t next, StreamFormat format) : next_(next), format_(format) {}

    std::uint64_t next() const { return next_; }
    StreamFormat format() const { return format_; }
    /// True after the entry "lagged N" that ends the stream.
    bool ended() const { return ended_; }
    /// The text of a page that was read from `next` on, and moves behind it.
    /// @param waited  the subscriber had taken everything, and this came later
    std::string take(const NotificationPage& page, bool waited);

  private:
    std::string lagged(std::uint64_t entries) const;
    std::string entry(const Notification& notification) const;

    std::uint64_t next_;
    StreamFormat format_;
    bool level_ = false;  ///< the last page held everything there was
    bool ended_ = false;
};

}  // namespace overseer::control
