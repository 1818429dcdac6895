#include "depot/sidecar.h"

#include <fcntl.h>

#include <cerrno>
#include <limits>
#include <nlohmann/json.hpp>
#include <system_error>

#include "depot/file_descriptor.h"
#include "depot/unicode.h"

namespace depot {
namespace {

using Json = nlohmann::json;
constexpr std::size_t kSidecarLimit = 64 * 1024;
constexpr int kSidecarNesting = 8;

tl::unexpected<Error> wrongType(const std::string& member, const char* expected) {
    return failure("\"" + member + "\" must be " + expected);
}

Result<void> takeBoolean(const std::string& member, const Json& value, bool& out) {
    if (!value.is_boolean()) return wrongType(member, "true or false");
    out = value.get<bool>();
    return {};
}

Result<void> takeMinimum(const std::string& member, const Json& value, std::optional<int>& out) {
    const bool fits =
        value.is_number_unsigned() &&
        value.get<std::uint64_t>() <= static_cast<std::uint64_t>(std::numeric_limits<int>::max());
    if (!fits) return wrongType(member, "an integer from 0 to 2147483647");
    out = value.get<int>();
    return {};
}

Result<void> takeText(const std::string& member, const Json& value,
                      std::optional<std::string>& out) {
    if (!value.is_string()) return wrongType(member, "text");
    std::string text = value.get<std::string>();
    if (hasControlCharacter(text)) return wrongType(member, "text without control characters");
    out = std::move(text);
    return {};
}

Result<void> takeMember(const std::string& member, const Json& value, Document& document) {
    if (member == "autoUpdate") return takeBoolean(member, value, document.autoUpdate);
    if (member == "forceAutoUpdate") return takeBoolean(member, value, document.forceAutoUpdate);
    if (member == "agent") return takeBoolean(member, value, document.agent);
    if (member == "minimumAutoUpdateVersion")
        return takeMinimum(member, value, document.minimumAutoUpdateVersion);
    if (member == "minimumOSVersion") return takeText(member, value, document.minimumOSVersion);
    return failure("\"" + member +
                   "\" is not known (known are autoUpdate, forceAutoUpdate, "
                   "minimumAutoUpdateVersion, minimumOSVersion and agent)");
}

bool nestingIsBounded(int depth, Json::parse_event_t event, Json&) {
    const bool opens =
        event == Json::parse_event_t::object_start || event == Json::parse_event_t::array_start;
    return !(opens && depth > kSidecarNesting);
}

}  // namespace

Result<void> readSidecar(std::string_view text, Document& document) {
    const Json sidecar =
        Json::parse(text.begin(), text.end(), &nestingIsBounded, /*allow_exceptions=*/false);
    if (!sidecar.is_object()) return failure("is not a JSON object");
    for (const auto& [member, value] : sidecar.items()) {
        if (auto taken = takeMember(member, value, document); !taken) return taken;
    }
    return {};
}

Result<void> readSidecarFile(const std::string& path, Document& document) {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file && errno == ENOENT) return {};
    if (!file)
        return failure(std::string("cannot be opened: ") + std::generic_category().message(errno));
    const auto text = readAtMost(file, kSidecarLimit);
    if (!text) return tl::make_unexpected(text.error());
    return readSidecar(*text, document);
}

}  // namespace depot
