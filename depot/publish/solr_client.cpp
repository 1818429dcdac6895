#include "depot/publish/solr_client.h"

#include <nlohmann/json.hpp>

namespace depot {
namespace {

using Json = nlohmann::json;

constexpr int kNestingLimit = 64;
constexpr std::size_t kLongestReason = 300;

std::string withoutSlashes(std::string base) {
    while (base.ends_with('/')) base.pop_back();
    return base;
}

std::string withJson(const std::string& path) {
    return path + (path.find('?') == std::string::npos ? "?" : "&") + "wt=json";
}

/// The reason that Solr gives, on one line.
std::string reasonOf(const Json& answer) {
    std::string reason;
    if (answer.is_object() && answer.contains("error") && answer["error"].is_object() &&
        answer["error"].contains("msg") && answer["error"]["msg"].is_string())
        reason = answer["error"]["msg"].get<std::string>();
    // Collection calls put the nodes' own reasons under "failure" or "exception".
    for (const char* member : {"failure", "exception"}) {
        if (answer.is_object() && answer.contains(member))
            reason += (reason.empty() ? "" : "; ") +
                      answer[member].dump(-1, ' ', false, Json::error_handler_t::replace);
    }
    for (char& character : reason) {
        if (static_cast<unsigned char>(character) < 0x20) character = ' ';
    }
    if (reason.size() > kLongestReason) reason = reason.substr(0, kLongestReason) + "...";
    return reason;
}

bool nestingIsBounded(int depth, Json::parse_event_t event, Json&) {
    const bool opens =
        event == Json::parse_event_t::object_start || event == Json::parse_event_t::array_start;
    return !(opens && depth > kNestingLimit);
}

Result<Json> read(const std::string& url, const HttpAnswer& answer) {
    const std::string where = url.substr(0, url.find('?'));
    Json json = Json::parse(answer.body, &nestingIsBounded, /*allow_exceptions=*/false);
    const bool failed = answer.status != 200 ||
                        (json.is_object() && (json.contains("error") || json.contains("failure")));
    if (failed) {
        const std::string reason = reasonOf(json);
        return failure(where + ": answers with status " + std::to_string(answer.status) +
                       (reason.empty() ? "" : ": " + reason));
    }
    if (!json.is_object()) return failure(where + ": does not answer in JSON; is it a Solr?");
    return json;
}

}  // namespace

SolrClient::SolrClient(std::string base, const std::string& caFile, std::function<bool()> abandon)
    : http_(caFile, std::move(abandon)), base_(withoutSlashes(std::move(base))) {}

Result<Json> SolrClient::get(const std::string& path, std::chrono::milliseconds limit) {
    return getAt(base_, path, limit);
}

Result<Json> SolrClient::getAt(const std::string& base, const std::string& path,
                               std::chrono::milliseconds limit) {
    const std::string url = base + withJson(path);
    const auto answer = http_.get(url, limit);
    if (!answer) return tl::make_unexpected(answer.error());
    return read(url, *answer);
}

Result<Json> SolrClient::post(const std::string& path, const nlohmann::ordered_json& body,
                              std::chrono::milliseconds limit) {
    const std::string url = base_ + withJson(path);
    const auto answer = http_.post(url, "application/json", body.dump(), limit);
    if (!answer) return tl::make_unexpected(answer.error());
    return read(url, *answer);
}

}  // namespace depot
