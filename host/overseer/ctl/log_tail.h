#pragma once

#include <cstdint>
#include <string>

namespace overseer::ctl {

/// The host's log from the object's making on, for outcomes that are told nowhere else.
class LogTail {
  public:
    /// @param root  of the controller; a log that cannot be read has no lines
    explicit LogTail(const std::string& root);
    /// The last line that holds `text`, empty when none does. Looks at 16 MB at most.
    std::string lastLineWith(const std::string& text) const;

  private:
    std::string file_;
    std::uint64_t begin_;
};

}  // namespace overseer::ctl
