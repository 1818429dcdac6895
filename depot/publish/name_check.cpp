// Whether a package can be reached by its name. The rules of the query language are not repeated
// here: the queries themselves are run.
#include "depot/publish/name_check.h"

#include <algorithm>
#include <memory>
#include <regex>
#include <string_view>

#include "depot/select_handler.h"
#include "depot/snapshot.h"
#include "depot/unicode.h"

namespace depot {
namespace {

constexpr std::string_view kPackagedSuffix = ".nvz";
constexpr std::size_t kLongestName = 255;
constexpr std::size_t kLongestList = 1800;

/// Whether the query finds a document when `document` is all there is. The flags are set, because
/// only the name is in question.
bool finds(Document document, const std::string& query) {
    document.autoUpdate = true;
    const Snapshot snapshot(
        {std::make_shared<CatalogueEntry>(CatalogueEntry{std::move(document), {}})});
    const Answer answer = answerSelect(snapshot, Core::kDrivers, query);
    return answer.status == 200 && answer.body.find("numFound=\"1\"") != std::string::npos;
}

/// What nginx in front of the catalogue refuses, in quotes or not (deploy/nginx/catalogue.conf).
bool refusedInFront(const std::string& name) {
    static const std::regex kMagicField("_(val|query)_ *:");
    return name.find("{!") != std::string::npos || std::regex_search(name, kMagicField);
}

bool packagedTwice(std::string_view name) {
    if (!name.ends_with(kPackagedSuffix)) return false;
    name.remove_suffix(kPackagedSuffix.size());
    return name.ends_with(kPackagedSuffix);
}

}  // namespace

std::string escapedName(const std::string& name) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text;
    for (const char character : name) {
        const auto byte = static_cast<unsigned char>(character);
        const bool plain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                           (byte >= '0' && byte <= '9') ||
                           std::string_view("-._~").find(character) != std::string_view::npos;
        if (plain) {
            text += character;
        } else {
            text += '%';
            text += kDigits[byte >> 4];
            text += kDigits[byte & 15];
        }
    }
    return text;
}

std::vector<NameList> listsOf(const std::vector<std::string>& names) {
    std::vector<NameList> lists;
    for (const std::string& name : names) {
        const std::string quoted = "%22" + escapedName(name) + "%22";
        if (lists.empty() || lists.back().text.size() + quoted.size() + 1 > kLongestList)
            lists.emplace_back();
        NameList& list = lists.back();
        list.text += (list.names.empty() ? "" : ",") + quoted;
        list.names.push_back(name);
    }
    return lists;
}

std::string controllerQuery(const std::string& names, bool forced) {
    return "q=*:*&fq=filename:(IN+" + names + ")+AND+" +
           (forced ? "forceAutoUpdate" : "autoUpdate") +
           ":\"true\"&fl=filename,version,name,model,manufacturer,md5sum&wt=xml&indent=true"
           "&rows=100000";
}

void checkName(const Document& document, FindingList& findings) {
    const std::string& name = document.filename;
    if (name.size() > kLongestName) findings.error("is longer than 255 bytes");
    if (name.starts_with('.'))
        findings.error("begins with a dot: controllers and catalogues pass over it");
    if (!isUtf8(name)) return findings.error("is not UTF-8: a query that holds it is refused");
    if (hasControlCharacter(name))
        return findings.error("holds a control character: controllers refuse it");
    if (name.find('"') != std::string::npos)
        return findings.error(
            "holds a double quote: it ends the name early in every query, and "
            "controllers refuse it");
    if (packagedTwice(name))
        findings.error("ends in .nvz twice: its unpacked copy would lie where the package " +
                       name.substr(0, name.size() - kPackagedSuffix.size()) + " does");
    if (name.find('\\') != std::string::npos)
        findings.error(
            "holds a backslash: controllers send it as it is, and the query language "
            "takes it as an escape");
    else if (!finds(document, controllerQuery('"' + escapedName(name) + '"', false)))
        findings.error("cannot be asked for: the controllers' query does not find it");
    if (refusedInFront(name))
        findings.error("holds {!, _val_: or _query_:, which the catalogue's front refuses");
    if (name.find_first_of("*?[") != std::string::npos && name.ends_with(kPackagedSuffix))
        findings.warning("holds *, ? or [: unpackers may take it for a pattern");
    if (name.find(',') != std::string::npos)
        findings.warning("holds a comma: a dealer cannot exclude it from updates");
}

void checkAgentLookup(const Document& document, FindingList& findings) {
    std::string typed;
    for (const char character : document.filename) {
        const auto byte = static_cast<unsigned char>(character);
        // As the controller's network sends what may not stand in a request line.
        const bool sendable = byte > 0x20 && byte < 0x7F && character != '"';
        typed += sendable ? std::string(1, character) : escapedName(std::string(1, character));
    }
    const bool cut = typed.find('#') != std::string::npos;
    if (cut || !finds(document, controllerQuery(typed, false)))
        findings.warning(
            "cannot be added to a controller by name: that lookup sends the name "
            "unquoted, and a blank or a character of the query language breaks it");
}

}  // namespace depot
