#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/result.h"

namespace overseer {

/// What is on record of one driver file.
struct DriverRecord {
    std::string fileName;
    int version = 0;          ///< of the last successful apply, 0 when there was none
    std::string appliedMd5;   ///< lower-case hexadecimal; of the file kept in state/applied/
    std::string previousMd5;  ///< of the file kept in state/previous/, empty when none is
    /// Size and modification time of the file when it was last found whole, so that a start need
    /// not hash it again; time 0 when it must be looked at.
    std::uint64_t checkedSize = 0;
    std::int64_t checkedNanoseconds = 0;
};

/// The durable record of driver files, by file name. I/O thread only.
class DriverLedger {
  public:
    virtual ~DriverLedger() = default;
    /// Nothing when the file is not on record.
    virtual Result<std::optional<DriverRecord>> find(const std::string& fileName) = 0;
    /// Adds or replaces the record; it survives a power cut once this has returned.
    virtual Result<> store(const DriverRecord& record) = 0;
    virtual Result<std::vector<DriverRecord>> all() = 0;
};

}  // namespace overseer
