#pragma once

#include <string>

#include "services/notifications.h"

namespace overseer {

/// Messages to whoever watches the host: a line in the log and a notification
/// `<host_message><text>TEXT</text><severity>N</severity></host_message>`. I/O thread only.
class Messages {
  public:
    /// `notifications` outlives it.
    explicit Messages(Notifications& notifications) : notifications_(notifications) {}
    /// @param agent     who says it
    /// @param severity  0 is information (INFO), 1 a warning (WARN), above that an error (ERROR)
    void show(const std::string& agent, const std::string& text, int severity);

  private:
    Notifications& notifications_;
};

}  // namespace overseer
