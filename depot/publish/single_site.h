#pragma once

#include "depot/publish/solr_site.h"

namespace depot {

/// A Solr node that stands alone. Exchanging two cores exchanges their names, so a collection is
/// known by the last part of its core's folder, which keeps the name that it was made with.
class SingleSite : public SolrSite {
  public:
    SingleSite(SolrClient& client, std::string configset, SolrLimits limits)
        : SolrSite(client, limits), configset_(std::move(configset)) {}

    std::string description() const override { return "Solr node at " + client_.base(); }
    Result<void> requireHealthy() override;
    Result<std::optional<std::string>> current(Core core) override;
    Result<std::vector<std::string>> collections() override;
    Result<void> create(const std::string& collection) override;
    Result<void> switchTo(Core core, const std::optional<std::string>& collection) override;
    Result<void> drop(const std::string& collection) override;

  protected:
    Result<std::string> pathOf(const std::string& collection) override;
    Result<std::vector<std::string>> copiesOf(const std::string& collection) override;

  private:
    /// The cores' present names, by collection.
    Result<std::map<std::string, std::string>> cores();
    Result<std::string> coreOf(const std::string& collection);

    const std::string configset_;
};

}  // namespace depot
