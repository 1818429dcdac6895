#pragma once

#include <sys/stat.h>

#include <boost/system/error_code.hpp>
#include <chrono>
#include <map>
#include <string>

namespace nv::net {

/// Whether files of certificate authorities can be used, remembered for as long as a file stays
/// the same (time, size and inode), so that thousands of requests read it once.
class CaFiles {
  public:
    struct Seen {
        boost::system::error_code error;                  ///< clear when it can be used
        std::chrono::steady_clock::time_point firstSeen;  ///< in its present version
    };

    /// Reads the file unless it is known. It must hold at least one certificate and no damaged one.
    Seen look(const std::string& path);

  private:
    struct Entry {
        struct stat identity {};
        Seen seen;
    };
    std::map<std::string, Entry> entries_;
};

}  // namespace nv::net
