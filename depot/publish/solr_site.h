#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "depot/publish/name_check.h"
#include "depot/publish/release.h"
#include "depot/publish/solr_client.h"
#include "depot/result.h"

namespace depot {

/// How long Solr may take. A call is not believed by its answer but by its effect, which is looked
/// for until the limit.
struct SolrLimits {
    std::chrono::milliseconds call = std::chrono::seconds(60);
    std::chrono::milliseconds effect = std::chrono::seconds(60);
    /// The same after a call that failed: it may have had its effect all the same.
    std::chrono::milliseconds effectOfFailure = std::chrono::seconds(3);
};

/// The collections of one Solr: a cluster, where "drivers" and "agents" are aliases of collections,
/// or a single node, where they are cores that are exchanged. A release's collections are named
/// "drivers_ID" and "agents_ID". Blocks; one thread at a time.
class SolrSite {
  public:
    /// Finds out what stands at the client's URL. The client must outlive the site.
    /// @param configset  the name under which Solr has the catalogue's schema
    static Result<std::unique_ptr<SolrSite>> open(SolrClient& client, std::string configset,
                                                  SolrLimits limits = {});
    virtual ~SolrSite() = default;

    /// What it is, for a person.
    virtual std::string description() const = 0;

    /// Fails unless every copy of what is served now is in order: nothing is touched while a node
    /// is missing.
    virtual Result<void> requireHealthy() = 0;

    /// The collection behind the public name; nothing when there is none.
    virtual Result<std::optional<std::string>> current(Core core) = 0;

    /// The names of all collections of releases, of both cores, ascending.
    virtual Result<std::vector<std::string>> collections() = 0;

    /// Makes an empty collection, a copy of it on every node, and waits until all are active.
    virtual Result<void> create(const std::string& collection) = 0;

    /// Puts another collection behind the public name.
    /// @param collection  nothing to take the public name away, where it was not there before
    virtual Result<void> switchTo(Core core, const std::optional<std::string>& collection) = 0;

    /// Removes a collection that is not behind a public name.
    virtual Result<void> drop(const std::string& collection) = 0;

    /// Told how far a long step is; its failure stops it.
    using Tick = std::function<Result<void>(std::size_t done, std::size_t total)>;

    /// Adds the documents to a collection and commits them.
    Result<void> load(const std::string& collection, const std::vector<Document>& documents,
                      const Tick& tick);

    /// Compares every copy of a collection with the documents: how many they are, and, asked as
    /// controllers ask, the first 2,000 of them or as many spread over all, field by field.
    Result<void> verify(const std::string& collection, const std::vector<Document>& documents);

  protected:
    SolrSite(SolrClient& client, SolrLimits limits) : client_(client), limits_(limits) {}

    /// The path under the client's base at which a collection takes documents.
    virtual Result<std::string> pathOf(const std::string& collection) = 0;
    /// The URLs of all copies of a collection; fails when one is not in order.
    virtual Result<std::vector<std::string>> copiesOf(const std::string& collection) = 0;

    /// Makes an administrative call, then looks for its effect.
    /// @param effect  no value while it is not there, and why
    Result<void> carryOut(const std::string& call, const std::function<Result<void>()>& effect);

    SolrClient& client_;
    const SolrLimits limits_;

  private:
    Result<void> verifyCopy(const std::string& copy, const std::vector<Document>& documents);
    /// @param sample  what was loaded, by name; at least what the list names
    Result<void> compare(const std::string& copy, const NameList& list,
                         const std::map<std::string, const Document*>& sample);
};

}  // namespace depot
