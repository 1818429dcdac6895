#include "depot/publish/release.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <limits>
#include <nlohmann/json.hpp>
#include <regex>

#include "depot/package_reader.h"

namespace depot {
namespace {

using OrderedJson = nlohmann::ordered_json;

constexpr std::size_t kIdDigits = 8;

OrderedJson keptDocument(const Document& document) {
    OrderedJson kept = solrDocument(document);
    kept["agent"] = document.agent;
    return kept;
}

std::optional<std::string> optionalText(const OrderedJson& kept, const char* member) {
    if (!kept.contains(member)) return std::nullopt;
    return kept.at(member).get<std::string>();
}

Document readDocument(const OrderedJson& kept) {
    Document document;
    document.filename = kept.at("filename").get<std::string>();
    document.version = kept.at("version").get<int>();
    document.name = optionalText(kept, "name");
    document.model = optionalText(kept, "model");
    document.manufacturer = optionalText(kept, "manufacturer");
    document.md5sum = kept.at("md5sum").get<std::string>();
    document.autoUpdate = kept.at("autoUpdate").get<bool>();
    document.forceAutoUpdate = kept.at("forceAutoUpdate").get<bool>();
    if (kept.contains("minimumAutoUpdateVersion"))
        document.minimumAutoUpdateVersion = kept.at("minimumAutoUpdateVersion").get<int>();
    document.minimumOSVersion = optionalText(kept, "minimumOSVersion");
    document.agent = kept.at("agent").get<bool>();
    return document;
}

}  // namespace

bool isReleaseId(const std::string& text) {
    static const std::regex kForm("[0-9]{8}-[0-9]{6}-[0-9a-f]{8}");
    return std::regex_match(text, kForm);
}

std::string digestOf(const std::vector<Document>& documents) {
    OrderedJson all = OrderedJson::array();
    for (const Document& document : documents) all.push_back(keptDocument(document));
    const std::string text = all.dump();
    std::array<unsigned char, EVP_MAX_MD_SIZE> sum{};
    unsigned length = 0;
    EVP_Digest(text.data(), text.size(), sum.data(), &length, EVP_sha256(), nullptr);
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string digest;
    for (unsigned at = 0; at < length; ++at) {
        digest += kDigits[sum[at] >> 4];
        digest += kDigits[sum[at] & 15];
    }
    return digest;
}

std::string releaseId(std::int64_t now, const std::string& digest, const std::string& last) {
    std::tm parts{};
    if (isReleaseId(last) && ::strptime(last.c_str(), "%Y%m%d-%H%M%S", &parts) != nullptr)
        now = std::max<std::int64_t>(now, ::timegm(&parts) + 1);
    const auto seconds = static_cast<std::time_t>(now);
    ::gmtime_r(&seconds, &parts);
    std::array<char, 32> time{};
    std::strftime(time.data(), time.size(), "%Y%m%d-%H%M%S-", &parts);
    return time.data() + digest.substr(0, kIdDigits);
}

std::vector<Document> documentsOf(Core core, const std::vector<Document>& documents) {
    if (core == Core::kDrivers) return documents;
    std::vector<Document> agents;
    for (const Document& document : documents) {
        if (document.agent) agents.push_back(document);
    }
    return agents;
}

std::string coreName(Core core) {
    return core == Core::kDrivers ? "drivers" : "agents";
}

OrderedJson solrDocument(const Document& document) {
    OrderedJson made = OrderedJson::object();
    for (const FieldDescription& field : kFields) {
        const FieldValue value = fieldValue(document, field.field);
        const std::string name(field.name);
        if (const auto* text = std::get_if<std::string_view>(&value)) made[name] = *text;
        if (const auto* number = std::get_if<int>(&value)) made[name] = *number;
        if (const auto* flag = std::get_if<bool>(&value)) made[name] = *flag;
    }
    return made;
}

std::string releaseText(const Release& release) {
    OrderedJson documents = OrderedJson::array();
    for (const Document& document : release.documents) documents.push_back(keptDocument(document));
    const OrderedJson kept{{"release", release.id},
                           {"digest", release.digest},
                           {"fileTime", release.fileTime},
                           {"documents", documents}};
    return kept.dump(1) + "\n";
}

Result<Release> readRelease(const std::string& text) {
    try {
        const OrderedJson kept = OrderedJson::parse(text);
        Release release;
        release.id = kept.at("release").get<std::string>();
        release.digest = kept.at("digest").get<std::string>();
        release.fileTime = kept.at("fileTime").get<std::int64_t>();
        for (const OrderedJson& document : kept.at("documents"))
            release.documents.push_back(readDocument(document));
        if (!isReleaseId(release.id)) return failure("its id has not the form of a release's");
        if (digestOf(release.documents) != release.digest)
            return failure("its documents do not match its digest");
        for (const Document& document : release.documents) {
            if (!isPackageName(document.filename) ||
                document.filename.find('/') != std::string::npos)
                return failure("it names a file that is no package");
        }
        return release;
    } catch (const nlohmann::json::exception& error) {
        return failure(std::string("it cannot be read: ") + error.what());
    }
}

}  // namespace depot
