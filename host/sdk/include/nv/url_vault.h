#pragma once

#include <string>

namespace nv {

/// Where the host's cloud services are.
class UrlVault {
  public:
    /// @param site  name of a site, empty for the configured one (the only one there is)
    explicit UrlVault(const std::string& site);

    /// Base URL of the driver catalogue and its package files, without a trailing slash.
    std::string solrDriversUrl() const;

  private:
    std::string site_;
};

}  // namespace nv
