// The catalogue's side of a check. Its answers are not trusted: bounded by the client, read as XML
// with no regard to fields that are not asked for.
#include "depot/publish/published_versions.h"

#include <pugixml.hpp>
#include <set>

#include "depot/publish/name_check.h"

namespace depot {
namespace {

constexpr std::chrono::seconds kTimeLimit{30};

Result<void> readAnswer(const std::string& body, const std::set<std::string>& asked,
                        PublishedVersions& published) {
    pugi::xml_document answer;
    const auto parsed = answer.load_buffer(body.data(), body.size());
    const pugi::xml_node result = answer.document_element().child("result");
    if (!parsed || !result) return failure("its answer is not a catalogue's");
    for (const pugi::xml_node& document : result.children("doc")) {
        const auto field = [&](const char* name) {
            return document.find_child_by_attribute("name", name).text();
        };
        const std::string filename = field("filename").get();
        if (asked.count(filename) == 0) return failure("its answer names a file not asked for");
        published[filename] = {field("version").as_int(), field("md5sum").get()};
    }
    return {};
}

Result<void> ask(HttpClient& client, const std::string& base, const std::string& names,
                 const std::set<std::string>& asked, PublishedVersions& published) {
    const std::string url = base + "/drivers/select?q=*:*&fq=filename:(IN+" + names +
                            ")&fl=filename,version,md5sum&wt=xml&rows=100000";
    const auto answer = client.get(url, kTimeLimit);
    if (!answer) return tl::make_unexpected(answer.error());
    const std::string where = base + "/drivers/select";
    if (answer->status != 200)
        return failure(where + ": answers with status " + std::to_string(answer->status));
    if (auto read = readAnswer(answer->body, asked, published); !read)
        return failure(where, read.error());
    return {};
}

}  // namespace

Result<PublishedVersions> askCatalogue(HttpClient& client, const std::string& base,
                                       const std::vector<std::string>& filenames) {
    std::string root = base;
    while (root.ends_with('/')) root.pop_back();
    PublishedVersions published;
    const std::set<std::string> asked(filenames.begin(), filenames.end());
    for (const NameList& list : listsOf(filenames)) {
        if (auto done = ask(client, root, list.text, asked, published); !done)
            return tl::make_unexpected(done.error());
    }
    return published;
}

void compareVersions(CheckedPackage& package, const PublishedVersions& published) {
    if (!package.document) return;
    const auto found = published.find(package.filename);
    if (found == published.end() || found->second.md5sum == package.document->md5sum) return;
    const int there = found->second.version;
    const int here = package.document->version;
    if (here > there) return;
    FindingList findings(package.findings, package.filename, "newer");
    findings.error("version " + std::to_string(here) +
                   (here == there
                        ? " is published already with other content: no controller that has it "
                          "would fetch this one"
                        : " is below the published version " + std::to_string(there) +
                              ": no controller that has it would go back"));
}

}  // namespace depot
