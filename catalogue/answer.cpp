// The catalogue's answer: judges each package document in it, and starts what is due.
// Entered from the completions of catalogue requests. Leaves to install/driver_installation.cpp
// with a driver that is to be updated, to install/agent_registration.cpp with an agent that is to
// be added, and to the user interfaces with every refusal. Writes no member.
#include <nv/text.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <pugixml.hpp>
#include <string_view>

#include "norvane_agent_driverupdate.h"

/// What a package document says; what it leaves out is empty or 0.
struct norvane_agent_driverupdate::CatalogueDocument {
    std::string filename;
    int version = 0;
    int minimumAutoUpdateVersion = 0;
    std::string minimumOSVersion;
    std::string md5sum;

    /// Takes another document's fields. The strings keep their room, since there may be many.
    void read(const pugi::xml_node& document) {
        filename.clear();
        version = 0;
        minimumAutoUpdateVersion = 0;
        minimumOSVersion.clear();
        md5sum.clear();
        for (const pugi::xml_node field : document) {
            if (field.type() != pugi::node_element) continue;
            const std::string_view name = field.attribute("name").value();
            const char* text = field.child_value();
            if (name == "filename") filename = text;
            if (name == "version") version = nv::ToInt(text);
            if (name == "minimumAutoUpdateVersion") minimumAutoUpdateVersion = nv::ToInt(text);
            if (name == "minimumOSVersion") minimumOSVersion = text;
            if (name == "md5sum") md5sum = text;
        }
    }
};

namespace {

constexpr std::string_view kPackageExtension = ".nvz";
/// No file system takes a longer one.
constexpr std::size_t kLongestFileName = 255;
/// Unpacking and the checksum file put some of their own to a package's name.
constexpr std::size_t kLongestPackageName = 250;

/// Whether a name could lead out of the folder of drivers or into another package's: the folder
/// that is emptied before unpacking is named by the stem, and names become parts of command lines.
/// An empty name is no danger and is judged like any other.
bool isHostile(const std::string& filename) {
    if (filename.empty()) return false;
    if (filename.size() > kLongestFileName) return true;
    const auto unfit = [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return byte < 0x20 || byte == 0x7f || byte == '/' || byte == '"';
    };
    if (filename.front() == '.' || std::any_of(filename.begin(), filename.end(), unfit))
        return true;
    std::string_view stem = filename;
    if (!stem.ends_with(kPackageExtension)) return false;
    if (stem.size() > kLongestPackageName) return true;
    stem.remove_suffix(kPackageExtension.size());
    return stem.ends_with(kPackageExtension);
}

/// Major, minor and patch of a dotted version; missing parts are 0.
std::array<long, 3> versionParts(const char* text) {
    std::array<long, 3> parts{};
    for (long& part : parts) {
        part = std::strtol(text, nullptr, 10);
        text = std::strchr(text, '.');
        if (text == nullptr) break;
        ++text;
    }
    return parts;
}

/// Why this host cannot take a package that asks for `minimumVersion`; null when it can. A host
/// that does not tell its version takes everything.
const char* hostRefusal(IOverseer& overseer, const std::string& minimumVersion) {
    pugi::xml_document versions;
    if (!versions.load_string(overseer.GetVersionDocument().c_str())) {
        return "cannot load overseer version xml";
    }
    const pugi::xml_node root = versions.document_element();
    if (std::strcmp(root.name(), "versions") != 0) return nullptr;
    const pugi::xml_node host = root.find_child_by_attribute("version", "name", "Overseer");
    const char* hostVersion = host.attribute("version").value();
    if (*hostVersion == '\0') return nullptr;
    return versionParts(hostVersion) < versionParts(minimumVersion.c_str())
               ? "OS version < minimum OS version"
               : nullptr;
}

}  // namespace

void norvane_agent_driverupdate::handleSolrResponse(const std::string& payload,
                                                    const std::string& core,
                                                    const add_agent_data_tuple_type& addAgentData,
                                                    bool isAgent) {
    pugi::xml_document answer;
    if (!answer.load_buffer(payload.data(), payload.size())) {
        failAnswer(core,
                   "agent_driverupdate: Update Drivers failed. Error from SOLR: Failed to parse "
                   "SOLR response",
                   "Failed to parse SOLR response");
        return;
    }
    const pugi::xml_node result = answer.document_element().child("result");
    if (!result) {
        failAnswer(core, "agent_driverupdate: Update Drivers failed. Error from SOLR",
                   "SOLR Error");
        return;
    }
    if (result.attribute("numFound").as_int() <= 0) {
        if (isAgent) reportNoSuchAgent(addAgentData);
        return;
    }
    CatalogueDocument document;
    for (const pugi::xml_node child : result) {
        if (child.type() != pugi::node_element) continue;
        document.read(child);
        handleDocument(document, addAgentData, isAgent);
    }
}

void norvane_agent_driverupdate::handleDocument(const CatalogueDocument& document,
                                                const add_agent_data_tuple_type& addAgentData,
                                                bool isAgent) {
    const std::string& filename = document.filename;
    if (isExcluded(filename)) return;
    if (isHostile(filename)) {
        if (isAgent) count("auto_add_agent_failed", filename);
        refuse(isAgent ? "auto_add_agent_failed" : "driver_update_failed", filename,
               "invalid file name");
        return;
    }
    const int installed = GetOverseer()->GetInstalledVersion(filename);
    if (isAgent) {
        autoAddAgentDownload(filename, document.md5sum, document.version, document.minimumOSVersion,
                             addAgentData);
        return;
    }
    const char* refusal = nullptr;
    if (installed >= document.version) {
        refusal = "no update available";
    } else if (installed < document.minimumAutoUpdateVersion) {
        refusal = "version < minimum version";
    } else {
        refusal = hostRefusal(*GetOverseer(), document.minimumOSVersion);
    }
    if (refusal != nullptr) {
        refuse("driver_update_failed", filename, refusal);
        return;
    }
    updateDriver(filename, document.md5sum);
}

void norvane_agent_driverupdate::failAnswer(const std::string& core, const char* logText,
                                            const char* reason) {
    count("cloud_update_SOLR_failed", core);
    DRIVERUPDATE_ERROR("{}", logText);
    notifyUserInterfaces("driver_update_failed", "reason", reason);
}

void norvane_agent_driverupdate::reportNoSuchAgent(const add_agent_data_tuple_type& addAgentData) {
    const std::string& name = std::get<0>(addAgentData);
    count("auto_add_agent_failed", name);
    DRIVERUPDATE_ERROR("agent_driverupdate: Auto-Add Agent Failed: {}: no such agent found", name);
    notifyUserInterfaces("auto_add_agent_failed", "reason", "No such agent found");
}

void norvane_agent_driverupdate::refuse(const char* notification, const std::string& filename,
                                        const char* reason) {
    DRIVERUPDATE_DEBUG("agent_driverupdate: Driver not updated ({}).: {}", reason, filename);
    pugi::xml_document document;
    pugi::xml_node node = document.append_child(notification);
    node.append_child("driver_name").text().set(filename.c_str());
    node.append_child("reason").text().set(reason);
    ConSendDataToUI(XmlHelper::convert(std::move(document)));
}
