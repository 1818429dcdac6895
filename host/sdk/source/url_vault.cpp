#include <nv/url_vault.h>

#include <nvhost/environment.h>

namespace nv {

UrlVault::UrlVault(const std::string& site) : site_(site) {}

std::string UrlVault::solrDriversUrl() const {
    return site_.empty() ? hosting::environment().solrDriversUrl : std::string();
}

}  // namespace nv
