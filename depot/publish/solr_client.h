#pragma once

#include <chrono>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "depot/publish/http_client.h"
#include "depot/result.h"

namespace depot {

/// Calls of Solr's that answer in JSON. What a Solr answers is not trusted: bounded in size,
/// refused unless it is JSON of a bounded depth. One thread at a time.
class SolrClient {
  public:
    /// @param base     URL of a node, up to and with "/solr"
    /// @param caFile   certificates to trust, empty for the system's
    /// @param abandon  as an HttpClient takes it
    SolrClient(std::string base, const std::string& caFile, std::function<bool()> abandon = {});

    const std::string& base() const { return base_; }

    /// @param path   begins with a slash, with its query; `wt=json` is added
    /// @param limit  of the whole call
    /// @return the answer of a call that Solr says succeeded; else a failure that names the node,
    ///         the call and Solr's reason
    Result<nlohmann::json> get(const std::string& path,
                               std::chrono::milliseconds limit = kTimeLimit);
    /// The same at another node's base URL.
    Result<nlohmann::json> getAt(const std::string& base, const std::string& path,
                                 std::chrono::milliseconds limit = kTimeLimit);
    Result<nlohmann::json> post(const std::string& path, const nlohmann::ordered_json& body,
                                std::chrono::milliseconds limit = kTimeLimit);

    static constexpr std::chrono::seconds kTimeLimit{60};

  private:
    HttpClient http_;
    const std::string base_;
};

}  // namespace depot
