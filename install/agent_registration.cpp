// Agent registration: decides whether a package on the device serves for an agent that is to be
// added or a fresh one is needed, and has the host add the agent.
// Entered from catalogue/answer.cpp with a package document, and from install/completion.cpp with a
// fresh package in place. Leaves to package/package_loading.cpp, install/download.cpp, and to the
// host's add operation. Writes no member.
#include <nv/text.h>
#include <nv/version.h>

#include <array>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/filesystem/path.hpp>
#include <cstdlib>
#include <locale>
#include <optional>
#include <pugixml.hpp>

#include "norvane_agent_driverupdate.h"

namespace {

constexpr const char* kAutoAddAgent = "Auto-Add Agent";

/// Major, minor and build.
using SystemVersion = std::array<unsigned long, 3>;

SystemVersion currentSystem() {
    return {nv::version::get_major_version(), nv::version::get_minor_version(),
            nv::version::get_build_number()};
}

/// The least version that a package asks for; nothing where it does not state all three parts.
/// @throws std::invalid_argument, std::out_of_range  for a part that is no number
std::optional<SystemVersion> readMinimum(const std::string& text) {
    const std::vector<std::string> parts = StringToVector(text, ".", true);
    if (parts.size() < 3) return std::nullopt;
    return SystemVersion{std::stoul(parts[0]), std::stoul(parts[1]), std::stoul(parts[2])};
}

/// Whether a package of the version on the device is too old for what was asked for.
bool isStale(int local, int offered, const std::string& requested) {
    if (boost::algorithm::iequals(requested, "latest", std::locale())) return local < offered;
    return local < std::strtol(requested.c_str(), nullptr, 10);
}

}  // namespace

void norvane_agent_driverupdate::autoAddAgentDownload(const std::string& filename,
                                                      const std::string& md5sum, int version,
                                                      const std::string& minimumOSVersion,
                                                      const add_agent_data_tuple_type& agentData) {
    const auto& [name, library, requestedFile, requestedVersion] = agentData;
    DRIVERUPDATE_DEBUG("agent_driverupdate: Auto-Add Agent: {}", filename);
    const boost::filesystem::path localCopy =
        boost::filesystem::path(GetConfigManager()->GetPackagedDriverFolder()) / filename;
    const int localVersion = driverupdate::isPresent(localCopy) ? localAgentVersion(filename) : 0;
    if (localVersion != 0 && !isStale(localVersion, version, requestedVersion)) {
        autoAddAgent(name, library, filename);
        return;
    }
    if (!isSystemRecentEnough(filename, minimumOSVersion)) return;
    downloadDriver(localCopy.string(), filename, md5sum, agentData);
}

int norvane_agent_driverupdate::localAgentVersion(const std::string& filename) const {
    std::string manifest;
    if (loadNVZ(filename, manifest) < 0) {
        DRIVERUPDATE_ERROR("agent_driverupdate: Auto-Add Agent: Failed to load local copy: {}",
                           filename);
        return 0;
    }
    const driverupdate::ParsedManifest parsed(manifest);
    if (!parsed.result) {
        DRIVERUPDATE_ERROR(
            "agent_driverupdate: auto-adding agent: failed to parse driver.xml of local copy: {}: "
            "{}",
            filename, parsed.result.description());
        return 0;
    }
    const pugi::xml_node version = parsed.root().child("version");
    if (!version) {
        DRIVERUPDATE_ERROR(
            "agent_driverupdate: auto-adding agent: failed to determine version of local copy: {}",
            filename);
        return 0;
    }
    return version.text().as_int();
}

bool norvane_agent_driverupdate::isSystemRecentEnough(const std::string& filename,
                                                      const std::string& minimumOSVersion) const {
    const std::optional<SystemVersion> minimum = readMinimum(minimumOSVersion);
    const SystemVersion current = currentSystem();
    if (!minimum || current >= *minimum) return true;
    DRIVERUPDATE_ERROR(
        "agent_driverupdate: Auto-Add Agent: the agent is not compatible with the current system "
        "version: {}: [minimum supported version: {}.{}.{}][current system version: {}.{}.{}]",
        filename, (*minimum)[0], (*minimum)[1], (*minimum)[2], current[0], current[1], current[2]);
    return false;
}

void norvane_agent_driverupdate::autoAddAgent(const std::string& name, const std::string& library,
                                              const std::string& filename) {
    if (!GetOverseer()->GetDeviceRegistry().GetDeviceIds(filename).empty()) return;
    if (GetOverseer()->AddAgent(name, library, filename) < 0) {
        DRIVERUPDATE_ERROR("agent_driverupdate: Auto-Add Agent Failed: {}", filename);
        count("auto_add_agent_failed", filename);
        setLastMessage("Auto-Add Agent Failed: " + filename);
        recordHistory("Auto-Add Agent Failed: " + filename, kAutoAddAgent, "Failed");
        return;
    }
    DRIVERUPDATE_DEBUG("agent_driverupdate: Auto-Add Agent: Agent added: {}", filename);
    count("auto_add_agent_success", filename);
    setLastMessage("Auto-Add Agent Added: " + filename);
    recordHistory("Auto-Add Agent: " + filename, kAutoAddAgent, "Added");
    notifyUserInterfaces("auto_add_agent", "agent_name", filename);
}
