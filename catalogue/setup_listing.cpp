// The setup listing: what the catalogue knows of every driver and agent file on the controller.
// Entered from the host's dispatcher, and from the network with each batch's answer; the last one
// leads to the listing. Leaves to the catalogue query, and to the user interfaces with the listing
// or with the one failure that takes its place. Takes answered requests out of activeDownloads.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <pugixml.hpp>
#include <set>
#include <string_view>

#include "norvane_agent_driverupdate.h"

namespace {

/// Longest file list, in characters, that still makes a URL which every server takes.
constexpr std::size_t kLongestBatch = 1800;
constexpr const char* kFailureNode = "get_setup_failed";

/// One question for the catalogue.
struct Batch {
    std::string core;
    std::string files;
};

/// Cuts a file list at commas into lists that are short enough. A name that is too long by itself
/// ends the cutting: what is left then stays together.
void addBatches(const char* core, std::string_view list, std::vector<Batch>& batches) {
    while (list.size() > kLongestBatch) {
        const std::size_t comma = list.rfind(',', kLongestBatch);
        if (comma == std::string_view::npos) break;
        batches.push_back({core, std::string(list.substr(0, comma))});
        list.remove_prefix(comma + 1);
    }
    if (!list.empty()) batches.push_back({core, std::string(list)});
}

/// Whether a field's name can be an element's: the catalogue's word for it is not taken, since a
/// name that cannot would spoil the whole listing for whoever reads it.
bool isElementName(std::string_view name) {
    const auto fits = [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return byte >= 0x80 || std::isalnum(byte) != 0 || character == '_' || character == '-' ||
               character == '.' || character == ':';
    };
    if (name.empty() || name.front() == '-' || name.front() == '.') return false;
    return std::isdigit(static_cast<unsigned char>(name.front())) == 0 &&
           std::all_of(name.begin(), name.end(), fits);
}

/// Copies a package document's fields; its file name, empty when it has none.
const char* copyFields(const pugi::xml_node& document, pugi::xml_node& driver) {
    const char* fileName = "";
    for (const pugi::xml_node field : document) {
        const char* name = field.attribute("name").value();
        const char* text = field.child_value();
        if (!isElementName(name)) continue;
        if (std::strcmp(name, "filename") == 0) fileName = text;
        pugi::xml_node copy = driver.append_child(name);
        if (*text != '\0') copy.append_child(pugi::node_pcdata).set_value(text);
    }
    return fileName;
}

}  // namespace

nv::XmlNode::Ptr norvane_agent_driverupdate::OnCmdGetSetup(const ICmdMessage&) {
    std::set<std::string> drivers;
    GetOverseer()->GetProject().AddDriverFileNames(drivers);
    std::set<std::string> agents;
    for (const AgentFile& agent : GetOverseer()->GetLoadedAgents()) agents.insert(agent.fileName);

    std::vector<Batch> batches;
    addBatches("drivers", fileListOf(drivers), batches);
    addBatches("agents", fileListOf(agents), batches);
    const auto results = std::make_shared<std::vector<SetupResult>>();
    for (const Batch& batch : batches) getSetup(results, batch.files, batch.core, batches.size());
    return nv::CreateXmlNode();
}

std::string norvane_agent_driverupdate::fileListOf(const std::set<std::string>& fileNames) {
    std::string list;
    for (const std::string& fileName : fileNames) {
        if (!list.empty()) list += ',';
        list += '"' + escapeFileName(fileName) + '"';
    }
    return list;
}

void norvane_agent_driverupdate::getSetup(const SetupResults& results, const std::string& files,
                                          const std::string& dbname, std::size_t expected) {
    const SolrCallback completion =
        std::bind(&norvane_agent_driverupdate::getSetupSolrResponse, this, std::placeholders::_1,
                  std::placeholders::_2, results, files, dbname, expected);
    boost::system::error_code error;
    // A batch that does not go out leaves no record: the listing of this command is never sent.
    switch (requestCatalogue(files, files, dbname, false, completion, error)) {
        case RequestStart::kIssued:
        case RequestStart::kAlreadyInFlight:
            return;
        case RequestStart::kNoQuery:
            count("cloud_update_SOLR_failed", files);
            DRIVERUPDATE_ERROR(
                "agent_driverupdate: Get Setup Failed [dbname: {}][files: {}]: Failed to create "
                "SOLR query",
                dbname, files);
            notifyUserInterfaces(kFailureNode, "reason", "Failed to create SOLR query");
            return;
        case RequestStart::kNotSent:
            count("cloud_update_SOLR_failed", files);
            DRIVERUPDATE_ERROR("agent_driverupdate: Get Setup Failed [dbname: {}][files: {}]: {}",
                               dbname, files, error.message());
            notifyUserInterfaces(kFailureNode, "reason", "HTTP Request Failed: " + error.message());
            return;
    }
}

void norvane_agent_driverupdate::getSetupSolrResponse(const nv::net::http::HttpResponse& response,
                                                      const boost::system::error_code& error,
                                                      const SetupResults& results,
                                                      const std::string& files,
                                                      const std::string& dbname,
                                                      std::size_t expected) {
    activeDownloads.erase(files);
    results->emplace_back(response.payload(), files, dbname, error, response.status());
    if (results->size() == expected) getSetupFinalResponse(results);
}

void norvane_agent_driverupdate::getSetupFinalResponse(const SetupResults& results) {
    pugi::xml_document listing;
    pugi::xml_node setup = listing.append_child("setup");
    setup.append_child("drivers");
    setup.append_child("agents");
    for (SetupResult& result : *results) {
        if (!addToListing(result, setup)) return;
    }
    ConSendDataToUI(XmlHelper::convert(std::move(listing)));
}

bool norvane_agent_driverupdate::addToListing(SetupResult& result, pugi::xml_node& setup) {
    auto& [payload, files, dbname, error, status] = result;
    if (error || status != kStatusOk) {
        count("cloud_update_SOLR_failed", dbname);
        DRIVERUPDATE_ERROR(
            "agent_driverupdate: Get Setup Failed: {}: Error from SOLR [http status: {}]: {}",
            dbname, status, error.message());
        failSetup(dbname, "Failed to download drivers list", error.message());
        return false;
    }
    // In place, and given back as soon as it is copied: a controller holds thousands of files.
    std::string answer = std::move(payload);
    pugi::xml_document document;
    const pugi::xml_parse_result parsed =
        document.load_buffer_inplace(answer.data(), answer.size());
    if (!parsed) {
        count("cloud_update_SOLR_failed", dbname);
        DRIVERUPDATE_ERROR("agent_driverupdate: Get Setup Failed: {}: Error from SOLR: {}", dbname,
                           parsed.description());
        failSetup(dbname, "Could not parse the response", parsed.description());
        return false;
    }
    const pugi::xml_node found = document.document_element().child("result");
    if (found.attribute("numFound").as_int() <= 0) return true;
    pugi::xml_node list = setup.child(dbname.c_str());
    for (const pugi::xml_node child : found.children()) {
        if (child.type() != pugi::node_element) continue;
        pugi::xml_node driver = list.append_child("driver");
        const char* fileName = copyFields(child, driver);
        const bool excluded = *fileName != '\0' && isExcluded(fileName);
        driver.append_attribute("include").set_value(!excluded);
    }
    return true;
}

void norvane_agent_driverupdate::failSetup(const std::string& dbname, const std::string& what,
                                           const std::string& code) {
    const nv::XmlNode::Ptr node = nv::CreateXmlNode(kFailureNode, "");
    node->AddChild("urldb", dbname);
    node->AddChild("error", what);
    node->AddChild("errorcode", code);
    ConSendDataToUI(node);
}
