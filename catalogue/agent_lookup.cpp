// The agent lookup: asks the catalogue for the package of an agent that is to be added.
// Entered from the host's dispatcher, and from the network with the answer. Leaves to the catalogue
// query and, with a good answer, to catalogue/answer.cpp. Takes the answered request out of
// activeDownloads.
#include "norvane_agent_driverupdate.h"

namespace {

constexpr int kStatusOk = 200;
constexpr const char* kCore = "agents";

}  // namespace

void norvane_agent_driverupdate::OnCmdAutoAddAgent(const ICmdMessage& message) {
    add_agent_data_tuple_type data;
    auto& [name, library, filename, version] = data;
    try {
        name = message.GetStringParameter("name");
        library = message.GetStringParameter("library");
        filename = message.GetStringParameter("filename");
        version = message.GetStringParameter("version");
    } catch (const ExceptionParameterMissing&) {
        DRIVERUPDATE_ERROR(
            "agent_driverupdate: command failed: AUTO_ADD_AGENT: one, or more, parameters are "
            "missing");
        return;
    }
    const SolrCallback completion =
        std::bind(&norvane_agent_driverupdate::autoAddAgentSolrResponse, this,
                  std::placeholders::_1, std::placeholders::_2, data);
    boost::system::error_code error;
    // The name goes into the query as it was given, without escapes and quotes.
    switch (requestCatalogue(filename, filename, kCore, false, completion, error)) {
        case RequestStart::kIssued:
        case RequestStart::kAlreadyInFlight:
            return;
        case RequestStart::kNoQuery:
            count("cloud_update_SOLR_failed", filename);
            DRIVERUPDATE_ERROR(
                "agent_driverupdate: Auto-Add Agent Failed [name: {}][library: {}][filename: "
                "{}][version: {}]: Failed to create SOLR query: {}",
                name, library, filename, version, error.message());
            notifyUserInterfaces("auto_add_agent_failed", "reason", "Failed to create SOLR query");
            return;
        case RequestStart::kNotSent:
            count("cloud_update_SOLR_failed", filename);
            DRIVERUPDATE_ERROR(
                "agent_driverupdate: Auto-Add Agent Failed [name: {}][library: {}][filename: "
                "{}][version: {}]: {}",
                name, library, filename, version, error.message());
            notifyUserInterfaces("auto_add_agent_failed", "reason",
                                 "HTTP Request Failed: " + error.message());
            return;
    }
}

void norvane_agent_driverupdate::autoAddAgentSolrResponse(
    const nv::net::http::HttpResponse& response, const boost::system::error_code& error,
    const add_agent_data_tuple_type& data) {
    const std::string& filename = std::get<2>(data);
    activeDownloads.erase(filename);
    if (!error && response.status() == kStatusOk) {
        handleSolrResponse(response.payload(), kCore, data, true);
        return;
    }
    count("cloud_update_SOLR_failed", "agents");
    DRIVERUPDATE_ERROR("agent_driverupdate: Auto-Add Agent Failed: {}: Error from SOLR: {}",
                       filename, error.message());
    // User interfaces know a failed answer of the catalogue by this name, whatever was asked.
    notifyUserInterfaces("driver_update_failed", "reason", "SOLR Error");
}
