#pragma once

#include <string>
#include <vector>

#include "common/result.h"

namespace overseer {

/// How the host is to run: `overseer.conf` of the root, overridden by the command line.
struct Configuration {
    std::string root;
    std::string catalogue;  ///< base URL without a trailing slash; empty: none
    std::vector<std::string>
        agents;                     ///< plug-in libraries; empty: the one that comes with the host
    std::string statsd;             ///< HOST:PORT, empty: no metrics are sent
    std::string logLevel = "info";  ///< trace, debug, info, warn, error
    std::string version;            ///< the host's own, "major.minor.build"
    int transfers = 6;              ///< at once for each server
    std::string proxy;              ///< [USER:PASSWORD@]HOST:PORT, empty: none
    int lowSpeedRate = 1024;        ///< bytes per second
    int lowSpeedTime = 60;          ///< seconds
    int largestFile = 1024;         ///< MB that a download may have
    int commandTimeLimit = 600;     ///< seconds
    std::vector<std::string> timingNamespaces;
};

/// What the command line asks for.
struct Invocation {
    enum class Action { kRun, kInit, kInstall, kExit };
    Action action = Action::kRun;
    int exitCode = 0;                ///< for kExit: help was shown, or the words were off
    std::string caFile;              ///< of `init`, empty for the system's bundle
    std::vector<std::string> files;  ///< of `install`
    Configuration configuration;     ///< for kInit without what the root's file says
};

/// Reads the command line, then the root's `overseer.conf`, which it overrides. Help and usage
/// errors are printed here; the message of a failure names the file and the line.
Result<Invocation> readInvocation(int argc, const char* const* argv);

/// A catalogue's base URL as the agent is given it: trailing slashes lost; one with a query, a
/// fragment or credentials, or no http or https URL at all, is refused.
Result<std::string> normalizedBaseUrl(const std::string& text);

/// The three parts of a version text; refused unless it is three decimal numbers.
struct VersionNumbers {
    unsigned int majorPart = 0;
    unsigned int minorPart = 0;
    unsigned int build = 0;
};
Result<VersionNumbers> readVersion(const std::string& text);

/// HOST:PORT taken apart; an IPv6 address stands in brackets.
struct HostAndPort {
    std::string host;
    int port = 0;
};
Result<HostAndPort> readHostAndPort(const std::string& text);

}  // namespace overseer
