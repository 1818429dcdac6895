#pragma once

#include "depot/publish/solr_site.h"

namespace depot {

/// A Solr in cloud mode.
class CloudSite : public SolrSite {
  public:
    CloudSite(SolrClient& client, std::string configset, SolrLimits limits)
        : SolrSite(client, limits), configset_(std::move(configset)) {}

    std::string description() const override { return "Solr cluster at " + client_.base(); }
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
    /// The "cluster" of CLUSTERSTATUS.
    Result<nlohmann::json> cluster();
    /// Fails until every node of the cluster knows the alias so.
    Result<void> aliasIs(Core core, const std::optional<std::string>& collection);

    const std::string configset_;
};

}  // namespace depot
