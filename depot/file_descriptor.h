#pragma once

#include <cstddef>
#include <string>
#include <utility>

#include "depot/result.h"

namespace depot {

/// Owns one open file descriptor, or none.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    /// @param descriptor  taken over; negative for none
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor();

    explicit operator bool() const { return descriptor_ >= 0; }
    int get() const { return descriptor_; }

  private:
    int descriptor_ = -1;
};

/// Opens /dev/null for each of the three standard streams that is closed, so that no file that is
/// opened later takes its number, and what is meant for the stream.
void openStandardStreams();

/// Reads from the current position to the end; an error when there is more than `limit` bytes.
Result<std::string> readAtMost(const FileDescriptor& file, std::size_t limit);

}  // namespace depot
