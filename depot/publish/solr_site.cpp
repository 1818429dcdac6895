// What is alike in a cluster and a single node: documents in, documents compared.
#include "depot/publish/solr_site.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <thread>

#include "depot/publish/cloud_site.h"
#include "depot/publish/single_site.h"

namespace depot {
namespace {

using Json = nlohmann::json;

constexpr std::size_t kDocumentsPerUpdate = 500;
constexpr std::size_t kMostCompared = 2000;
constexpr std::chrono::milliseconds kPause{100};

Result<long long> numFound(const Json& answer) {
    const auto found = answer.value("/response/numFound"_json_pointer, Json());
    if (!found.is_number_integer()) return failure("its answer has no numFound");
    return found.get<long long>();
}

std::string fieldList() {
    std::string list;
    for (const FieldDescription& field : kFields)
        list += (list.empty() ? "" : ",") + std::string(field.name);
    return list;
}

/// By name: evenly spread over all documents, the last one always among them.
std::map<std::string, const Document*> sampleOf(const std::vector<Document>& documents) {
    std::map<std::string, const Document*> sample;
    const std::size_t count = std::min(documents.size(), kMostCompared);
    for (std::size_t at = 1; at <= count; ++at) {
        const Document& document = documents[documents.size() * at / count - 1];
        sample.emplace(document.filename, &document);
    }
    return sample;
}

}  // namespace

Result<std::unique_ptr<SolrSite>> SolrSite::open(SolrClient& client, std::string configset,
                                                 SolrLimits limits) {
    const auto system = client.get("/admin/info/system", limits.call);
    if (!system) return tl::make_unexpected(system.error());
    const Json mode = system->value("mode", Json());
    if (mode == "solrcloud")
        return std::make_unique<CloudSite>(client, std::move(configset), limits);
    if (mode == "std") return std::make_unique<SingleSite>(client, std::move(configset), limits);
    return failure(client.base() + ": is not a Solr (its system information names no mode)");
}

Result<void> SolrSite::carryOut(const std::string& call,
                                const std::function<Result<void>()>& effect) {
    const auto called = client_.get(call, limits_.call);
    const auto limit = called ? limits_.effect : limits_.effectOfFailure;
    const auto end = std::chrono::steady_clock::now() + limit;
    while (true) {
        auto seen = effect();
        if (seen) return {};
        if (std::chrono::steady_clock::now() >= end)
            return called ? seen : tl::make_unexpected(called.error());
        std::this_thread::sleep_for(kPause);
    }
}

Result<void> SolrSite::load(const std::string& collection, const std::vector<Document>& documents,
                            const Tick& tick) {
    const auto path = pathOf(collection);
    if (!path) return tl::make_unexpected(path.error());
    for (std::size_t at = 0; at < documents.size(); at += kDocumentsPerUpdate) {
        const std::size_t end = std::min(at + kDocumentsPerUpdate, documents.size());
        nlohmann::ordered_json batch = nlohmann::ordered_json::array();
        for (std::size_t each = at; each < end; ++each)
            batch.push_back(solrDocument(documents[each]));
        if (auto sent = client_.post(*path + "/update", batch, limits_.call); !sent)
            return tl::make_unexpected(sent.error());
        if (auto goOn = tick(end, documents.size()); !goOn) return goOn;
    }
    const auto committed =
        client_.post(*path + "/update?commit=true", nlohmann::ordered_json::array(), limits_.call);
    if (!committed) return tl::make_unexpected(committed.error());
    return {};
}

Result<void> SolrSite::verify(const std::string& collection,
                              const std::vector<Document>& documents) {
    const auto copies = copiesOf(collection);
    if (!copies) return tl::make_unexpected(copies.error());
    for (const std::string& copy : *copies) {
        // A copy may show a commit a moment after it was answered.
        const auto end = std::chrono::steady_clock::now() + limits_.effectOfFailure;
        while (true) {
            auto verified = verifyCopy(copy, documents);
            if (verified) break;
            if (std::chrono::steady_clock::now() >= end) return verified;
            std::this_thread::sleep_for(kPause);
        }
    }
    return {};
}

Result<void> SolrSite::verifyCopy(const std::string& copy, const std::vector<Document>& documents) {
    const auto all = client_.getAt(copy, "/select?q=*:*&rows=0&distrib=false", limits_.call);
    if (!all) return tl::make_unexpected(all.error());
    const auto found = numFound(*all);
    if (!found) return failure(copy, found.error());
    if (*found != static_cast<long long>(documents.size()))
        return failure(copy + ": has " + std::to_string(*found) + " documents instead of " +
                       std::to_string(documents.size()));
    const auto sample = sampleOf(documents);
    std::vector<std::string> names;
    for (const auto& [name, document] : sample) names.push_back(name);
    for (const NameList& list : listsOf(names)) {
        if (auto same = compare(copy, list, sample); !same) return same;
    }
    return {};
}

Result<void> SolrSite::compare(const std::string& copy, const NameList& list,
                               const std::map<std::string, const Document*>& sample) {
    const auto answer = client_.getAt(copy,
                                      "/select?q=*:*&fq=filename:(IN+" + list.text +
                                          ")&fl=" + fieldList() + "&rows=100000&distrib=false",
                                      limits_.call);
    if (!answer) return tl::make_unexpected(answer.error());
    const Json found = answer->value("/response/docs"_json_pointer, Json());
    if (!found.is_array() || found.size() != list.names.size())
        return failure(copy + ": does not find the documents by their names");
    for (const Json& document : found) {
        const Json name = document.is_object() ? document.value("filename", Json()) : Json();
        const auto match = name.is_string() ? sample.find(name.get<std::string>()) : sample.end();
        if (match == sample.end() || document != Json(solrDocument(*match->second)))
            return failure(copy + ": has other fields than were published" +
                           (match == sample.end() ? "" : " for " + match->first) +
                           "; is its schema the catalogue's?");
    }
    return {};
}

}  // namespace depot
