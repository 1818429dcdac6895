#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "depot/document.h"
#include "depot/result.h"

namespace depot {

/// One state of the whole catalogue, published as one step.
struct Release {
    std::string id;                   ///< "YYYYMMDD-HHMMSS-xxxxxxxx"; ids ascend in time
    std::string digest;               ///< of all documents: equal digests, equal catalogues
    std::int64_t fileTime = 0;        ///< modification time of its files, seconds since the epoch
    std::vector<Document> documents;  ///< ascending by file name
    std::string previous;             ///< the release that was served before; empty for none
};

/// Whether `text` has the form of a release's id. Only what does is ever removed.
bool isReleaseId(const std::string& text);

/// The SHA-256 sum, in hexadecimal digits, of everything that the documents say.
std::string digestOf(const std::vector<Document>& documents);

/// An id for a release of this digest made at `now` (seconds since the epoch), or later where that
/// is needed to come after `last`.
std::string releaseId(std::int64_t now, const std::string& digest, const std::string& last);

/// The documents of one collection.
std::vector<Document> documentsOf(Core core, const std::vector<Document>& documents);

/// The name of a core's collection, without a release: "drivers" or "agents".
std::string coreName(Core core);

/// A document as Solr takes and gives it.
nlohmann::ordered_json solrDocument(const Document& document);

/// What is kept of a release beside its files.
std::string releaseText(const Release& release);
/// Reads it back; refuses what is not whole.
Result<Release> readRelease(const std::string& text);

}  // namespace depot
