// The update request: asks the catalogue which files of a list have a newer version.
// Entered from the update run, once for each batch, and from the network with the answer. Leaves to
// the query and, with a good answer, to catalogue/answer.cpp. Takes the answered request out of
// activeDownloads.
#include "norvane_agent_driverupdate.h"

void norvane_agent_driverupdate::updateDrivers(const std::string& files, bool forced) {
    // The key of a request is the file list without the core: the second pass is a fallback for a
    // first one that could not go out, never a second question about the same files.
    requestUpdates(files, "drivers", forced);
    requestUpdates(files, "agents", forced);
}

void norvane_agent_driverupdate::requestUpdates(const std::string& files, const std::string& core,
                                                bool forced) {
    const SolrCallback completion =
        std::bind(&norvane_agent_driverupdate::updateDriversSolrResponse, this,
                  std::placeholders::_1, std::placeholders::_2, core, files);
    boost::system::error_code error;
    switch (requestCatalogue(files, files, core, forced, completion, error)) {
        case RequestStart::kIssued:
        case RequestStart::kAlreadyInFlight:
            return;
        case RequestStart::kNoQuery:
            count("cloud_update_SOLR_failed", core);
            DRIVERUPDATE_ERROR("agent_driverupdate: Error updating {}: Failed to create SOLR query",
                               files);
            notifyUserInterfaces("driver_update_failed", "reason", "Failed to create SOLR query");
            return;
        case RequestStart::kNotSent:
            count("cloud_update_SOLR_failed", core);
            DRIVERUPDATE_ERROR("agent_driverupdate: Error updating {}: {}", files, error.message());
            notifyUserInterfaces("driver_update_failed", "reason",
                                 "HTTP Request Failed: " + error.message());
            return;
    }
}

void norvane_agent_driverupdate::updateDriversSolrResponse(
    const nv::net::http::HttpResponse& response, const boost::system::error_code& error,
    const std::string& core, const std::string& files) {
    activeDownloads.erase(files);
    if (!error && response.status() == kStatusOk) {
        handleSolrResponse(response.payload(), core, add_agent_data_tuple_type(), false);
        return;
    }
    // The tag is the same whatever core was asked; dashboards count failed answers under it.
    count("cloud_update_SOLR_failed", "agents");
    DRIVERUPDATE_ERROR("agent_driverupdate: Updating {} failed: Error from SOLR: {}", core,
                       error.message());
    notifyUserInterfaces("driver_update_failed", "reason", "SOLR Error");
}
