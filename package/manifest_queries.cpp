// Manifest queries: version, proxies, capabilities and restart flag of a driver, from the text of
// its manifest.
// Entered from package/package_loading.cpp (version) and package/evaluation.cpp. Leaves nowhere.
// Writes no member.
#include <nv/file.h>

#include "norvane_agent_driverupdate.h"

using driverupdate::ManifestRecord;
using driverupdate::ParsedManifest;

namespace {

bool isBinding(const std::string& attribute) {
    return attribute == "proxybindingid" || attribute == "primary";
}

ManifestRecord proxyRecord(const pugi::xml_node& proxy) {
    ManifestRecord record;
    for (const pugi::xml_attribute& attribute : proxy.attributes()) {
        if (isBinding(attribute.name())) {
            record.bindings.emplace_back(attribute.name(), attribute.value());
        } else {
            record.attributes.emplace(attribute.name(), attribute.value());
        }
    }
    // An attribute of that name was there first, and wins.
    record.attributes.emplace("proxydata", proxy.text().get());
    return record;
}

/// The text of a manifest file; false when it is not there or cannot be read.
bool readManifestFile(const std::string& path, std::string& manifest) {
    return driverupdate::isPresent(path) && FileX::Load(path, manifest) >= 0;
}

}  // namespace

bool norvane_agent_driverupdate::getDriverVersion(const std::string& fileName,
                                                  const std::string& manifest, int& version) const {
    return getDriverVersion(fileName, ParsedManifest(manifest), version);
}

bool norvane_agent_driverupdate::getDriverVersion(const std::string& fileName,
                                                  const ParsedManifest& manifest,
                                                  int& version) const {
    if (!manifest.result) {
        DRIVERUPDATE_ERROR("{}: Failed to parse driver xml \"{}\": {}", "getDriverVersion",
                           fileName, manifest.result.description());
        return false;
    }
    const pugi::xml_text text = manifest.root().child("version").text();
    if (!text) return false;
    version = static_cast<int>(text.as_uint());
    return true;
}

bool norvane_agent_driverupdate::getDriverProxies(const std::string& fileName,
                                                  const std::string& manifest,
                                                  updateProxies& proxies) const {
    return getDriverProxies(fileName, ParsedManifest(manifest), proxies);
}

bool norvane_agent_driverupdate::getDriverProxies(const std::string& fileName,
                                                  const ParsedManifest& manifest,
                                                  updateProxies& proxies) const {
    if (!manifest.result) {
        DRIVERUPDATE_ERROR("{}: Failed to parse driver.xml: {}: {}", "getDriverProxies", fileName,
                           manifest.result.description());
        return false;
    }
    const pugi::xml_node root = manifest.root();
    if (const pugi::xml_node container = root.child("proxies")) {
        for (const pugi::xml_node& proxy : container) proxies.push_back(proxyRecord(proxy));
    } else if (const pugi::xml_node proxy = root.child("proxy")) {
        proxies.push_back(proxyRecord(proxy));
    }
    return true;
}

bool norvane_agent_driverupdate::getDriverProxies(const std::string& filePath,
                                                  updateProxies& proxies) const {
    std::string manifest;
    return readManifestFile(filePath, manifest) && getDriverProxies(filePath, manifest, proxies);
}

bool norvane_agent_driverupdate::getDriverCapabilities(const std::string& fileName,
                                                       const std::string& manifest,
                                                       updateCapabilities& capabilities) const {
    return getDriverCapabilities(fileName, ParsedManifest(manifest), capabilities);
}

bool norvane_agent_driverupdate::getDriverCapabilities(const std::string& fileName,
                                                       const ParsedManifest& manifest,
                                                       updateCapabilities& capabilities) const {
    if (!manifest.result) {
        DRIVERUPDATE_ERROR("{}: Failed to parse driver.xml: {}: {}", "getDriverCapabilities",
                           fileName, manifest.result.description());
        return false;
    }
    for (const pugi::xml_node& capability : manifest.root().child("capabilities")) {
        capabilities.push_back({{}, {{capability.name(), capability.text().get()}}});
    }
    return true;
}

bool norvane_agent_driverupdate::getDriverCapabilities(const std::string& filePath,
                                                       updateCapabilities& capabilities) const {
    std::string manifest;
    return readManifestFile(filePath, manifest) &&
           getDriverCapabilities(filePath, manifest, capabilities);
}

bool norvane_agent_driverupdate::getDriverRestartAfterUpdate(const std::string& fileName,
                                                             const std::string& manifest,
                                                             bool& restart) const {
    return getDriverRestartAfterUpdate(fileName, ParsedManifest(manifest), restart);
}

bool norvane_agent_driverupdate::getDriverRestartAfterUpdate(const std::string& fileName,
                                                             const ParsedManifest& manifest,
                                                             bool& restart) const {
    if (!manifest.result) {
        DRIVERUPDATE_ERROR("{}: Failed to parse driver restart tag \"{}\": {}",
                           "getDriverRestartAfterUpdate", fileName, manifest.result.description());
        return false;
    }
    restart = manifest.root().child("restart_after_update").text().as_bool();
    return true;
}
