#include "depot/publish/answer_cache.h"

#include <filesystem>
#include <regex>
#include <system_error>

namespace depot {

Result<void> purgeAnswerCache(const std::string& folder) {
    namespace fs = std::filesystem;
    static const std::regex kCachedAnswer("[0-9a-f]{32}");
    std::error_code error;
    fs::recursive_directory_iterator entries(folder, error);
    for (; !error && entries != fs::recursive_directory_iterator(); entries.increment(error)) {
        if (!std::regex_match(entries->path().filename().string(), kCachedAnswer)) continue;
        std::error_code gone;  // nginx removes files too
        if (entries->symlink_status(gone).type() != fs::file_type::regular) continue;
        fs::remove(entries->path(), error);
        if (error) break;
    }
    if (error) return failure(folder + ": cannot be emptied: " + error.message());
    return {};
}

}  // namespace depot
