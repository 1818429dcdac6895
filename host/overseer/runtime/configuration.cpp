#include "runtime/configuration.h"

#include <nv/http.h>

#include <CLI/CLI.hpp>
#include <boost/filesystem/operations.hpp>
#include <charconv>
#include <cstring>
#include <iostream>
#include <sstream>

#include "root/file_text.h"

#ifndef OVERSEER_VERSION
#error "the build names the version"
#endif

namespace overseer {

namespace {

constexpr const char* kAbout =
    "The controller's host process: loads the agents and keeps their drivers current.\n"
    "\n"
    "  overseer --root /var/lib/overseer init             make a controller root\n"
    "  overseer --root /var/lib/overseer install a.nvz    put driver packages in place there\n"
    "  overseer --root /var/lib/overseer --catalogue https://catalogue.example/solr\n"
    "                                                     run on it, in the foreground\n";

Configuration defaults() {
    Configuration configuration;
    configuration.version = OVERSEER_VERSION;
    configuration.timingNamespaces = {"overseer.agent.driverupdate.updatetime",
                                      "overseer.agent.driverupdate.auto_add_agent_time"};
    return configuration;
}

/// One declaration for both the command line and overseer.conf.
void declareSettings(CLI::App& app, Configuration& to) {
    app.add_option("--catalogue", to.catalogue, "base URL of the driver catalogue");
    app.add_option("--agent", to.agents, "agent library to load (repeatable)")
        ->take_all()
        ->allow_extra_args(false);
    app.add_option("--statsd", to.statsd, "where metrics go, HOST:PORT over UDP");
    app.add_option("--log-level", to.logLevel, "least severe level that is logged")
        ->check(CLI::IsMember({"trace", "debug", "info", "warn", "error"}))
        ->capture_default_str();
    app.add_option("--host-version", to.version, "this host's version, major.minor.build")
        ->capture_default_str();
    app.add_option("--transfers", to.transfers, "transfers at once for each server")
        ->check(CLI::Range(1, 64))
        ->capture_default_str();
    app.add_option("--proxy", to.proxy, "HTTP proxy, [http://][USER:PASSWORD@]HOST:PORT");
    app.add_option("--low-speed-rate", to.lowSpeedRate,
                   "bytes per second under which a download counts as stalled")
        ->check(CLI::Range(0, 1 << 30))
        ->capture_default_str();
    app.add_option("--low-speed-time", to.lowSpeedTime, "seconds until a stalled one is given up")
        ->check(CLI::Range(1, 86400))
        ->capture_default_str();
    app.add_option("--largest-file", to.largestFile, "MB that a download may have at most")
        ->check(CLI::Range(1, 1 << 20))
        ->capture_default_str();
    app.add_option("--command-time-limit", to.commandTimeLimit,
                   "seconds that a child such as unzip may take")
        ->check(CLI::Range(1, 86400))
        ->capture_default_str();
    app.add_option("--timing-namespaces", to.timingNamespaces,
                   "metric namespaces that carry durations")
        ->delimiter(',');
}

void declareActions(CLI::App& app, Invocation& to) {
    app.add_option("--root", to.configuration.root, "the controller root")
        ->envname("OVERSEER_ROOT")
        ->required();
    CLI::App* init = app.add_subcommand("init", "make a controller root in a new folder");
    init->add_option("--ca", to.caFile, "certificate authorities, instead of the system's");
    init->callback([&to] { to.action = Invocation::Action::kInit; });
    CLI::App* install = app.add_subcommand(
        "install", "put driver packages in place and give each a device, while no host runs");
    install->add_option("FILE", to.files, "driver files, .nvz or .nvi")->required();
    install->callback([&to] { to.action = Invocation::Action::kInstall; });
    app.require_subcommand(0, 1);
}

bool readCommandLine(int argc, const char* const* argv, Invocation& to) {
    CLI::App app(kAbout, "overseer");
    app.set_version_flag("--version", OVERSEER_VERSION);
    declareActions(app, to);
    declareSettings(app, to.configuration);
    try {
        app.parse(argc, argv);
        return true;
    } catch (const CLI::ParseError& error) {
        to.action = Invocation::Action::kExit;
        to.exitCode = app.exit(error, std::cout, std::cerr) == 0 ? 0 : 2;
        return false;
    }
}

/// The line on which a key or a section stands, for a message: "line 7", or "" when none fits.
std::string placeOf(const std::string& text, const std::string& message) {
    std::istringstream in(text);
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        const std::size_t begin = line.find_first_not_of(" \t");
        const std::size_t end = line.find_first_of(" \t=:", begin == std::string::npos ? 0 : begin);
        if (begin == std::string::npos || line[begin] == '#' || line[begin] == ';') continue;
        const std::string key = line.substr(begin, end == std::string::npos ? end : end - begin);
        const bool isSection = line[begin] == '[';
        if (isSection || message.find(key) != std::string::npos) {
            return fmt::format(" line {}", number);
        }
    }
    return "";
}

/// The first line that is neither empty nor a comment nor a section and sets nothing; 0 for none. A
/// file that was cut ends in such a line, and the library would take the key for a flag.
int lineWithoutValue(const std::string& text) {
    std::istringstream in(text);
    std::string line;
    bool inList = false;
    for (int number = 1; std::getline(in, line); ++number) {
        const std::size_t begin = line.find_first_not_of(" \t\r");
        if (begin == std::string::npos || std::strchr("#;[", line[begin]) != nullptr) continue;
        if (!inList && line.find('=') == std::string::npos) return number;
        inList =
            (inList || line.find('[') != std::string::npos) && line.find(']') == std::string::npos;
    }
    return 0;
}

/// What a damaged file holds must not steer the terminal that shows the message.
std::string printable(std::string text) {
    for (char& character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x20 || byte >= 0x7f) character = '?';
    }
    return text;
}

Result<> readFile(const boost::filesystem::path& root, Configuration& to) {
    const std::string file = (root / "overseer.conf").string();
    const Result<std::string> read = readText(file);
    if (!read && !boost::filesystem::exists(root / "project.xml")) {
        return failure("{} is no controller root; make one with: overseer --root DIR init",
                       root.string());
    }
    if (!read) return failure("{}; mend that before starting", read.error().message);
    const std::string& text = *read;
    if (const int line = lineWithoutValue(text); line != 0) {
        return failure("{} line {}: a key without a value", file, line);
    }
    std::istringstream in(text);
    CLI::App app;
    declareSettings(app, to);
    app.allow_config_extras(CLI::config_extras_mode::error);
    try {
        app.parse_from_stream(in);
    } catch (const CLI::ParseError& error) {
        return failure("{}{}: {}", file, placeOf(text, error.what()), printable(error.what()));
    }
    return {};
}

Result<> check(Configuration& configuration) {
    if (!configuration.catalogue.empty()) {
        Result<std::string> url = normalizedBaseUrl(configuration.catalogue);
        if (!url) return tl::unexpected(url.error());
        configuration.catalogue = *url;
    }
    for (std::string& library : configuration.agents) {
        // The host works in another folder than the one that it was started in. A bare name is
        // looked for where the system has its libraries.
        if (library.find('/') != std::string::npos) {
            library = boost::filesystem::absolute(library).string();
        }
    }
    if (Result<VersionNumbers> version = readVersion(configuration.version); !version) {
        return tl::unexpected(version.error());
    }
    if (!configuration.statsd.empty()) {
        if (Result<HostAndPort> peer = readHostAndPort(configuration.statsd); !peer) {
            return inContext("statsd", peer.error());
        }
    }
    if (!configuration.proxy.empty()) {
        constexpr std::string_view kScheme = "http://";
        if (configuration.proxy.rfind(kScheme, 0) == 0)
            configuration.proxy.erase(0, kScheme.size());
        const std::size_t at = configuration.proxy.rfind('@');
        if (Result<HostAndPort> peer = readHostAndPort(
                at == std::string::npos ? configuration.proxy : configuration.proxy.substr(at + 1));
            !peer) {
            return inContext("proxy", peer.error());
        }
    }
    return {};
}

template <typename Number>
bool readNumber(std::string_view text, Number& out) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out);
    return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

Result<Invocation> readInvocation(int argc, const char* const* argv) {
    Invocation first;
    first.configuration = defaults();
    if (!readCommandLine(argc, argv, first)) return first;
    if (first.action == Invocation::Action::kInit) return first;

    // The file gives the values, then the command line goes over them once more.
    Invocation invocation;
    invocation.configuration = defaults();
    if (Result<> read = readFile(first.configuration.root, invocation.configuration); !read) {
        return tl::unexpected(read.error());
    }
    readCommandLine(argc, argv, invocation);
    if (Result<> checked = check(invocation.configuration); !checked) {
        return tl::unexpected(checked.error());
    }
    return invocation;
}

Result<std::string> normalizedBaseUrl(const std::string& text) {
    boost::system::error_code error;
    nv::net::http::Url::createUrl(text, error);
    if (error) {
        return failure("the catalogue URL \"{}\" is not usable: {}", text, error.message());
    }
    if (text.find_first_of("?#") != std::string::npos) {
        return failure("the catalogue URL \"{}\" must have no query and no fragment", text);
    }
    const std::size_t last = text.find_last_not_of('/');
    return text.substr(0, last + 1);
}

Result<VersionNumbers> readVersion(const std::string& text) {
    VersionNumbers numbers;
    const std::size_t first = text.find('.');
    const std::size_t second = first == std::string::npos ? first : text.find('.', first + 1);
    const std::string_view view = text;
    if (second == std::string::npos || !readNumber(view.substr(0, first), numbers.majorPart) ||
        !readNumber(view.substr(first + 1, second - first - 1), numbers.minorPart) ||
        !readNumber(view.substr(second + 1), numbers.build)) {
        return failure("the host version \"{}\" is not of the form major.minor.build", text);
    }
    return numbers;
}

Result<HostAndPort> readHostAndPort(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    HostAndPort peer;
    if (colon == std::string::npos || colon == 0 ||
        !readNumber(std::string_view(text).substr(colon + 1), peer.port) || peer.port < 1 ||
        peer.port > 65535) {
        return failure("\"{}\" is not of the form HOST:PORT", text);
    }
    peer.host = text.substr(0, colon);
    if (peer.host.size() > 2 && peer.host.front() == '[' && peer.host.back() == ']') {
        peer.host = peer.host.substr(1, peer.host.size() - 2);
    }
    return peer;
}

}  // namespace overseer
