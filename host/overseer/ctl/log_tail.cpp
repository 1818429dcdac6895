#include "ctl/log_tail.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace overseer::ctl {
namespace {

constexpr std::uint64_t kMostBytes = std::uint64_t(16) << 20;

std::uint64_t sizeOf(const std::string& file) {
    std::error_code error;
    const auto size = std::filesystem::file_size(file, error);
    return error ? 0 : size;
}

}  // namespace

LogTail::LogTail(const std::string& root)
    : file_(root + "/log/overseer.log"), begin_(sizeOf(file_)) {}

std::string LogTail::lastLineWith(const std::string& text) const {
    const std::uint64_t size = sizeOf(file_);
    // Shorter than it was: another file has begun since.
    const std::uint64_t from =
        std::max(size < begin_ ? 0 : begin_, size > kMostBytes ? size - kMostBytes : 0);
    std::ifstream log(file_, std::ios::binary);
    log.seekg(static_cast<std::streamoff>(from));
    std::string found;
    for (std::string line; std::getline(log, line);) {
        if (line.find(text) != std::string::npos) {
            found = line;
        }
    }
    return found;
}

}  // namespace overseer::ctl
