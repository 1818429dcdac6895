// Catalogue queries: the one place where a query URL is composed, and the procedure by which every
// request goes out.
// Entered from the issuers (catalogue/update_request.cpp), and from the destructor for what is
// still in flight. Leaves to the host's HTTP client; the answer goes through the shim to the
// issuer's completion. Adds to activeDownloads; the issuers' completions take out.
#include <curl/curl.h>
#include <nv/url_vault.h>

#include <boost/filesystem/path.hpp>
#include <sstream>

#include "http_solr_request_shim.h"
#include "norvane_agent_driverupdate.h"

namespace {

constexpr const char* kFields = "filename,version,name,model,manufacturer,md5sum";
constexpr int kVerifyPeer = 1;

}  // namespace

std::string norvane_agent_driverupdate::escapeFileName(const std::string& fileName) {
    const std::unique_ptr<char, decltype(&curl_free)> escaped(
        curl_easy_escape(nullptr, fileName.c_str(), static_cast<int>(fileName.size())), &curl_free);
    return escaped ? std::string(escaped.get()) : std::string();
}

std::string norvane_agent_driverupdate::buildSolrQueryUrl(const std::string& files,
                                                          const std::string& fields,
                                                          const std::string& core,
                                                          bool forceAutoUpdate) const {
    std::ostringstream url;
    url << nv::UrlVault("").solrDriversUrl();
    if (forceAutoUpdate) {
        url << "/" << core << "/select?q=*:*&fq=filename:(IN+" << files
            << ")+AND+forceAutoUpdate:\"true\"&fl=" << fields;
    } else {
        // Agents that may be updated without force are listed among the drivers: never `core` here.
        url << "/drivers/select?q=*:*&fq=filename:(IN+" << files
            << ")+AND+autoUpdate:\"true\"&fl=" << fields;
    }
    url << "&wt=xml&indent=true&rows=100000";
    return url.str();
}

std::string norvane_agent_driverupdate::buildSolrQueryUrl(const std::vector<std::string>& fileNames,
                                                          const std::string& fields,
                                                          const std::string& core) const {
    std::string files;
    for (const std::string& name : fileNames) {
        if (!files.empty()) files += ',';
        files += '"' + escapeFileName(name) + '"';
    }
    return buildSolrQueryUrl(files, fields, core, false);
}

norvane_agent_driverupdate::RequestStart norvane_agent_driverupdate::requestCatalogue(
    const std::string& key, const std::string& files, const std::string& core, bool forceAutoUpdate,
    const SolrCallback& completion, boost::system::error_code& error) {
    if (activeDownloads.count(key) != 0) return RequestStart::kAlreadyInFlight;
    const std::string query = buildSolrQueryUrl(files, kFields, core, forceAutoUpdate);
    const auto url = nv::net::http::Url::createUrl(query, error);
    if (error) return RequestStart::kNoQuery;
    const nv::net::http::HttpRequest request(url);

    const auto shim = std::make_shared<RequestShim>(this, completion);
    const auto client = std::make_shared<nv::net::http::HttpClient>(
        GetOverseer()->GetDeviceIoContext(GetDeviceId()),
        std::bind(&RequestShim::onResponse, shim, std::placeholders::_1, std::placeholders::_2));
    const boost::filesystem::path certificates = GetConfigManager()->GetCertificateFolder();
    client->setVerifyFile((certificates / "ca-bundle.crt").string());
    client->setVerifyMode(kVerifyPeer);
    error = client->asyncRequest(request);
    if (error) return RequestStart::kNotSent;
    activeDownloads.emplace(key, std::make_pair(shim, client));
    return RequestStart::kIssued;
}

void norvane_agent_driverupdate::cancelRequests() {
    for (auto& [key, request] : activeDownloads) {
        request.first->cancelled = true;
        request.second->cancel();
    }
}
