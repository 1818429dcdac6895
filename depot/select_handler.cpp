// One select request from the URL's query to the XML answer.
#include "depot/select_handler.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "depot/query_evaluator.h"
#include "depot/query_parser.h"
#include "depot/query_text.h"
#include "depot/solr_xml_writer.h"
#include "depot/url_decoding.h"

namespace depot {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kXmlType = "application/xml; charset=UTF-8";
constexpr std::size_t kDefaultRows = 10;

const std::string* firstValue(const Parameters& parameters, std::string_view name) {
    const auto found = std::find_if(parameters.begin(), parameters.end(),
                                    [&](const auto& each) { return each.first == name; });
    return found == parameters.end() ? nullptr : &found->second;
}

bool isBlank(std::string_view text) {
    return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

/// Reads a row count as Solr does, sign and all.
QueryResult<std::size_t> readCount(const Parameters& parameters, const std::string& name,
                                   std::size_t fallback) {
    const std::string* text = firstValue(parameters, name);
    if (text == nullptr) return fallback;
    const bool plus = text->size() > 1 && text->front() == '+' && (*text)[1] != '-';
    const char* begin = text->data() + (plus ? 1 : 0);
    const char* end = text->data() + text->size();
    int count = 0;
    const auto read = std::from_chars(begin, end, count);
    if (read.ec != std::errc() || read.ptr != end)
        return tl::make_unexpected(
            QueryError{"For input string: \"" + *text + "\"", "java.lang.NumberFormatException"});
    if (count < 0)
        return tl::make_unexpected(QueryError{"'" + name + "' parameter cannot be negative"});
    return static_cast<std::size_t>(count);
}

/// The names and patterns of all `fl` parameters.
std::vector<std::string> wantedPatterns(const Parameters& parameters) {
    std::vector<std::string> patterns;
    for (const auto& [name, value] : parameters) {
        if (name != "fl") continue;
        for (std::size_t at = 0; at < value.size();) {
            const std::size_t end = std::min(value.find_first_of(", \t\r\n", at), value.size());
            if (end > at) patterns.push_back(value.substr(at, end - at));
            at = end + 1;
        }
    }
    return patterns;
}

std::vector<Field> wantedFields(const Parameters& parameters) {
    const auto patterns = wantedPatterns(parameters);
    const bool all = firstValue(parameters, "fl") == nullptr;
    std::vector<Field> fields;
    for (const FieldDescription& field : kFields) {
        const bool always = field.field == Field::kMinimumAutoUpdateVersion ||
                            field.field == Field::kMinimumOSVersion;
        const bool asked = std::any_of(patterns.begin(), patterns.end(), [&](const auto& pattern) {
            return matchesPattern(pattern, field.name);
        });
        if (all || always || asked) fields.push_back(field.field);
    }
    return fields;
}

void keepMatching(DocumentSet& matching, const Query& query, const Snapshot& snapshot) {
    const DocumentSet set = evaluate(query, snapshot);
    for (std::size_t at = 0; at < matching.size(); ++at) matching[at] = matching[at] && set[at];
}

/// The documents that match `q` and every `fq`.
QueryResult<DocumentSet> matchingDocuments(const Parameters& parameters, Core core,
                                           const Snapshot& snapshot) {
    DocumentSet matching = documentsOf(core, snapshot);
    const std::string* main = firstValue(parameters, "q");
    if (main == nullptr || main->empty()) {
        matching.assign(snapshot.size(), false);
    } else {
        const auto query = parseQuery(*main);
        if (!query) return tl::make_unexpected(query.error());
        keepMatching(matching, *query, snapshot);
    }
    for (const auto& [name, value] : parameters) {
        if (name != "fq" || isBlank(value)) continue;
        const auto filter = parseQuery(value);
        if (!filter) return tl::make_unexpected(filter.error());
        keepMatching(matching, *filter, snapshot);
    }
    return matching;
}

QueryResult<Selection> select(const Parameters& parameters, Core core, const Snapshot& snapshot) {
    const std::string* format = firstValue(parameters, "wt");
    if (format != nullptr && *format != "xml")
        return tl::make_unexpected(
            QueryError{"wt=" + *format + " is not supported, only wt=xml is"});
    const auto rows = readCount(parameters, "rows", kDefaultRows);
    if (!rows) return tl::make_unexpected(rows.error());
    const auto start = readCount(parameters, "start", 0);
    if (!start) return tl::make_unexpected(start.error());
    const auto matching = matchingDocuments(parameters, core, snapshot);
    if (!matching) return tl::make_unexpected(matching.error());
    Selection selection;
    selection.start = *start;
    for (std::size_t at = 0; at < matching->size(); ++at) {
        if (!(*matching)[at]) continue;
        if (selection.found >= *start && selection.positions.size() < *rows)
            selection.positions.push_back(at);
        ++selection.found;
    }
    return selection;
}

long millisecondsSince(Clock::time_point begun) {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begun).count());
}

}  // namespace

Answer answerSelect(const Snapshot& snapshot, Core core, std::string_view query) {
    const auto begun = Clock::now();
    const auto parameters = parseParameters(query);
    if (!parameters) return htmlError(400, "Bad Request: the query is not a valid URL query");
    const std::string* indent = firstValue(*parameters, "indent");
    SolrXmlWriter writer(indent == nullptr || (*indent != "off" && *indent != "false"));
    const auto selection = select(*parameters, core, snapshot);
    if (!selection) {
        constexpr int kBadRequest = 400;
        return {kBadRequest,
                std::string(kXmlType),
                writer.error(selection.error(), kBadRequest, millisecondsSince(begun)),
                {{"Cache-Control", "no-cache, no-store"}}};
    }
    return {
        200,
        std::string(kXmlType),
        writer.answer(snapshot, *selection, wantedFields(*parameters), millisecondsSince(begun)),
        {{"Vary", "Accept-Encoding"}}};
}

}  // namespace depot
