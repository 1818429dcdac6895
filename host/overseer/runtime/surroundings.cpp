#include "runtime/surroundings.h"

#include <boost/filesystem/operations.hpp>

#include "runtime/process.h"

namespace overseer {

namespace fs = boost::filesystem;

namespace {

constexpr const char* kBuiltInAgent = "norvane_agent_driverupdate.so";

}  // namespace

nv::hosting::Environment hostEnvironment(const Configuration& configuration,
                                         const ControllerRoot& root) {
    nv::hosting::Environment environment;
    environment.solrDriversUrl = configuration.catalogue;
    if (const Result<VersionNumbers> version = readVersion(configuration.version)) {
        environment.majorVersion = version->majorPart;
        environment.minorVersion = version->minorPart;
        environment.buildNumber = version->build;
    }
    // The host has set its log up before anything else; an agent that asks has nothing left to do.
    environment.initializeLogging = [] {};
    environment.commandLog = root.commandLog();
    environment.temporaryFolder = root.temporary();
    environment.commandTimeLimit = std::chrono::seconds(configuration.commandTimeLimit);
    return environment;
}

nv::hosting::TransportSettings transportSettings(const Configuration& configuration,
                                                 const ControllerRoot& root) {
    nv::hosting::TransportSettings settings;
    settings.transfersPerServer = configuration.transfers;
    settings.caFile = root.caBundle().string();
    settings.lowSpeedBytesPerSecond = configuration.lowSpeedRate;
    settings.lowSpeedTime = std::chrono::seconds(configuration.lowSpeedTime);
    settings.maximumDownload = static_cast<std::uint64_t>(configuration.largestFile) << 20;
    settings.userAgent = "overseer/" + configuration.version;
    if (configuration.proxy.empty()) return settings;
    const std::size_t at = configuration.proxy.rfind('@');
    if (at != std::string::npos) {
        const std::string account = configuration.proxy.substr(0, at);
        const std::size_t colon = account.find(':');
        settings.proxyUser = account.substr(0, colon);
        if (colon != std::string::npos) settings.proxyPassword = account.substr(colon + 1);
    }
    const std::string peer =
        at == std::string::npos ? configuration.proxy : configuration.proxy.substr(at + 1);
    if (const Result<HostAndPort> address = readHostAndPort(peer)) {
        settings.proxyHost = address->host;
        settings.proxyPort = address->port;
    }
    return settings;
}

StatsdSettings statsdSettings(const Configuration& configuration) {
    StatsdSettings settings;
    settings.durationNamespaces = {configuration.timingNamespaces.begin(),
                                   configuration.timingNamespaces.end()};
    if (const Result<HostAndPort> peer = readHostAndPort(configuration.statsd)) {
        settings.host = peer->host;
        settings.port = static_cast<std::uint16_t>(peer->port);
    }
    return settings;
}

std::vector<std::string> agentLibraries(const Configuration& configuration) {
    if (!configuration.agents.empty()) return configuration.agents;
    const fs::path folder = fs::path(process::ownProgram()).parent_path();
    for (const char* place : {"../lib", "../lib/overseer", "."}) {
        const fs::path library = (folder / place / kBuiltInAgent).lexically_normal();
        boost::system::error_code ignored;
        if (fs::exists(library, ignored)) return {library.string()};
    }
    return {};
}

}  // namespace overseer
