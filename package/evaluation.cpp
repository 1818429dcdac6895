// Driver evaluation: whether an offered driver may replace the installed one, whether to ask
// before, and whether the controller must restart afterwards.
// Entered from the host's dispatcher. Leaves to package/package_loading.cpp, to
// package/manifest_queries.cpp and to the host's list of devices. Writes no member.
#include <nv/file.h>

#include <algorithm>

#include "norvane_agent_driverupdate.h"

using driverupdate::DriverOffer;
using driverupdate::EvaluationFailure;
using driverupdate::ManifestRecord;
using driverupdate::ParsedManifest;
using driverupdate::Verdict;

/// What is compared of the two drivers.
struct norvane_agent_driverupdate::DriverFacts {
    int version = 0;
    updateProxies proxies;
    updateCapabilities capabilities;
};

namespace {

constexpr const char* kVersionUnknown = "ERROR_FAILED_TO_GET_DRIVER_VERSION";
constexpr const char* kProxiesUnknown = "ERROR_FAILED_TO_GET_PROXY_DETAILS";
constexpr const char* kCapabilitiesUnknown = "ERROR_FAILED_TO_GET_CAPABILITIES";

// clang-format off
constexpr EvaluationFailure kNamesDiffer = {
    "ERROR_FILE_NAMES_MUST_MATCH",
    "New driver filename must match the existing driver filename",
    "New driver filename must match the existing driver filename", nullptr};
constexpr EvaluationFailure kNotLoaded = {
    "ERROR_LOADING_DRIVER", "Unable to load existing driver",
    "Unable to load existing driver", "driver_load_failed"};
constexpr EvaluationFailure kNoOfferedVersion = {
    kVersionUnknown, "Failed to get version of new driver",
    "Failed to get version of new driver", "get_new_driver_version_failed"};
constexpr EvaluationFailure kNoInstalledVersion = {
    kVersionUnknown, "Failed to get version of existing driver",
    "Failed to get version of existing driver", "get_existing_driver_version_failed"};
constexpr EvaluationFailure kNoInstalledProxies = {
    kProxiesUnknown, "Failed to get current proxy details",
    "Failed to get current proxy details", "get_existing_driver_proxy_failed"};
constexpr EvaluationFailure kNoOfferedProxies = {
    kProxiesUnknown, "Failed to get new proxy details",
    "Failed to get new proxy details", "get_new_driver_proxy_failed"};
// Dashboards know this metric as it is spelled here, and the log text of this row is its own.
constexpr EvaluationFailure kNoInstalledCapabilities = {
    kCapabilitiesUnknown, "Failed to get current driver capabilities",
    "Failed to get current capabilities", "get_exixting_driver_capabilities_failed"};
constexpr EvaluationFailure kNoOfferedCapabilities = {
    kCapabilitiesUnknown, "Failed to get new driver capabilities",
    "Failed to get new driver capabilities", "get_new_driver_capabilities_failed"};
// clang-format on

DriverOffer readOffer(const nv::XmlNode& item) {
    return {item.GetChildData("cur_driver_file"), item.GetChildData("new_driver_file"),
            item.GetChildData("new_driver_xml")};
}

void addFailure(nv::XmlNode& driver, const EvaluationFailure& failure) {
    driver.AddChild("update_code", failure.code);
    driver.AddChild("update_message", failure.message);
    driver.AddChild("can_update_driver", false);
}

void addVerdict(nv::XmlNode& driver, const Verdict& verdict) {
    driver.AddChild("update_code", "SUCCESS");
    driver.AddChild("can_update_driver", true);
    driver.AddChild("prompt_overwrite", !verdict.prompt.empty());
    if (!verdict.prompt.empty()) driver.AddChild("prompt_overwrite_message", verdict.prompt);
    driver.AddChild("requires_restart", verdict.requiresRestart);
    if (verdict.requiresRestart) {
        driver.AddChild("requires_restart_message", "Driver requires restart after update.");
    }
}

std::string overwritePrompt(int offered, int installed) {
    if (offered == installed) return "Versions are equal.";
    return installed > offered ? "Current version is newer." : "";
}

/// Names of the proxies whose drivers always need a restart; none when there is no such list.
std::vector<std::string> readRestartList(const boost::filesystem::path& file) {
    std::string text;
    if (FileX::Load(file.string(), text) < 0) return {};
    pugi::xml_document document;
    if (!document.load_buffer(text.data(), text.size())) return {};
    std::vector<std::string> names;
    for (const pugi::xml_node& proxy : document.document_element().child("proxies")) {
        if (proxy.type() != pugi::node_element) continue;
        names.emplace_back(proxy.attribute("name").value());
    }
    return names;
}

/// Whether any attribute of any proxy has this value.
bool isMentioned(const std::string& name, const std::vector<ManifestRecord>& proxies) {
    return std::any_of(proxies.begin(), proxies.end(), [&name](const ManifestRecord& proxy) {
        return std::any_of(proxy.attributes.begin(), proxy.attributes.end(),
                           [&name](const auto& entry) { return entry.second == name; });
    });
}

bool areSame(const std::vector<ManifestRecord>& left, const std::vector<ManifestRecord>& right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](const ManifestRecord& one, const ManifestRecord& other) {
                          return one.attributes == other.attributes;
                      });
}

}  // namespace

nv::XmlNode::Ptr norvane_agent_driverupdate::OnCmdEvaluate(const ICmdMessage& message) {
    const nv::XmlDocument::Ptr document =
        nv::CreateXmlDocument(message.GetStringParameter("cur_driver_files"));
    const std::vector<std::string> restartNames =
        readRestartList(boost::filesystem::path(GetConfigManager()->GetConfigurationFolder()) /
                        "proxy_restart.xml");

    nv::XmlNode::Ptr answer = nv::CreateXmlNode("drivers", "");
    nv::XmlNodeIterator each = document->GetRoot()->GetIterator();
    while (each.HasNext()) {
        const DriverOffer offer = readOffer(*each.Next());
        Verdict verdict;
        const EvaluationFailure* const failure = evaluateOffer(offer, restartNames, verdict);
        const nv::XmlNode::Ptr driver = answer->AddChild("driver", "");
        driver->AddChild("driver_name", offer.installedFile);
        if (failure == nullptr) {
            addVerdict(*driver, verdict);
            continue;
        }
        DRIVERUPDATE_ERROR("{}: {}(\"{}\").", "OnCmdEvaluate", failure->logText,
                           offer.installedFile);
        if (failure->metric != nullptr) count(failure->metric, offer.installedFile);
        addFailure(*driver, *failure);
    }
    return answer;
}

const EvaluationFailure* norvane_agent_driverupdate::evaluateOffer(
    const DriverOffer& offer, const std::vector<std::string>& restartNames, Verdict& verdict) {
    const bool isInUse =
        !GetOverseer()->GetDeviceRegistry().GetDeviceIds(offer.installedFile).empty();
    if (offer.installedFile != offer.offeredFile) return &kNamesDiffer;

    std::string manifest;
    const RESULTX loaded = isPackaged(offer.offeredFile) ? loadNVZ(offer.installedFile, manifest)
                                                         : loadNVI(offer.installedFile, manifest);
    if (loaded < 0) return &kNotLoaded;
    if (!isInUse) return nullptr;  // nothing runs on it that an update could disturb

    const ParsedManifest offered(offer.offeredManifest);
    DriverFacts offeredFacts;
    DriverFacts installedFacts;
    const EvaluationFailure* const failure =
        readFacts(offer, ParsedManifest(manifest), offered, installedFacts, offeredFacts);
    if (failure != nullptr) return failure;
    verdict.prompt = overwritePrompt(offeredFacts.version, installedFacts.version);
    verdict.requiresRestart =
        requiresRestart(offer, offered, installedFacts, offeredFacts, restartNames);
    return nullptr;
}

const EvaluationFailure* norvane_agent_driverupdate::readFacts(const DriverOffer& offer,
                                                               const ParsedManifest& installed,
                                                               const ParsedManifest& offered,
                                                               DriverFacts& installedFacts,
                                                               DriverFacts& offeredFacts) const {
    if (!getDriverVersion(offer.offeredFile, offered, offeredFacts.version)) {
        return &kNoOfferedVersion;
    }
    if (!getDriverVersion(offer.installedFile, installed, installedFacts.version)) {
        return &kNoInstalledVersion;
    }
    if (!getDriverProxies(offer.installedFile, installed, installedFacts.proxies)) {
        return &kNoInstalledProxies;
    }
    if (!getDriverProxies(offer.offeredFile, offered, offeredFacts.proxies)) {
        return &kNoOfferedProxies;
    }
    if (!getDriverCapabilities(offer.installedFile, installed, installedFacts.capabilities)) {
        return &kNoInstalledCapabilities;
    }
    if (!getDriverCapabilities(offer.offeredFile, offered, offeredFacts.capabilities)) {
        return &kNoOfferedCapabilities;
    }
    return nullptr;
}

bool norvane_agent_driverupdate::requiresRestart(const DriverOffer& offer,
                                                 const ParsedManifest& offered,
                                                 const DriverFacts& installedFacts,
                                                 const DriverFacts& offeredFacts,
                                                 const std::vector<std::string>& restartNames) {
    const auto listed = std::find_if(
        restartNames.begin(), restartNames.end(),
        [&](const std::string& name) { return isMentioned(name, offeredFacts.proxies); });
    if (listed != restartNames.end()) {
        count("proxy_requires_restart", *listed);
        return true;
    }
    if (!areSame(installedFacts.proxies, offeredFacts.proxies)) {
        count("driver_proxies_match_failed", offer.installedFile);
        return true;
    }
    if (!areSame(installedFacts.capabilities, offeredFacts.capabilities)) {
        count("capabilities_diff_requires_restart", offer.installedFile);
        return true;
    }
    bool restart = false;
    getDriverRestartAfterUpdate(offer.offeredFile, offered, restart);
    if (restart) count("driver_requires_restart", offer.installedFile);
    return restart;
}
