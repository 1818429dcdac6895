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
        const std::string name = entries->path().filename().string();
        if (!std::regex_match(name, kCachedAnswer)) continue;
        // nginx names the folders after the name's last digits: whatever else looks like an answer
        // in a folder that was given by mistake is left alone.
        std::string ending;
        for (const fs::path& part : entries->path().lexically_relative(folder).parent_path())
            ending.insert(0, part.string());
        if (!name.ends_with(ending)) continue;
        std::error_code gone;  // nginx removes files too
        if (entries->symlink_status(gone).type() != fs::file_type::regular) continue;
        fs::remove(entries->path(), error);
        if (error) break;
    }
    if (error) return failure(folder + ": cannot be emptied: " + error.message());
    return {};
}

}  // namespace depot
