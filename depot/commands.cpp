// The command line: what can be asked for, and what it comes back with.
#include "depot/commands.h"

#include <signal.h>
#include <sys/signalfd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <mutex>
#include <string>
#include <system_error>

#include "depot/catalogue.h"
#include "depot/demo.h"
#include "depot/http_server.h"
#include "depot/publish/check_command.h"
#include "depot/publish/release_commands.h"

namespace depot {
namespace {

constexpr const char* kDescription =
    "driver-depot: a catalogue of driver packages for development and small sites, and the way to\n"
    "publish to a large one.\n"
    "It reads a folder of packages (.nvz, .nvi), answers the catalogue's select queries in XML "
    "and\n"
    "serves the package files over HTTPS.";

constexpr const char* kExamples =
    "Examples:\n"
    "  driver-depot demo /tmp/packages\n"
    "      writes sample packages: /tmp/packages/older and /tmp/packages/newer\n"
    "  driver-depot serve /tmp/packages/newer --port 8443 --cert server.pem --key server.key\n"
    "      serves the newer ones; `ready https://127.0.0.1:8443` says that clients can come\n"
    "  curl --cacert ca.pem 'https://127.0.0.1:8443/drivers/select?q=*:*&rows=100'\n"
    "      lists what is served\n"
    "\n"
    "  driver-depot check /tmp/packages/newer\n"
    "      says what is wrong with packages before they are published\n"
    "  driver-depot publish /tmp/packages/newer --solr http://127.0.0.1:8983/solr --files "
    "/srv/files\n"
    "      puts them out through Apache Solr as one release; `rollback` takes it back\n"
    "\n"
    "Exit codes: 0 done, 1 failed (one line on standard error says why), 2 wrong usage,\n"
    "3 packages have errors.";

struct ServeOptions {
    std::string folder;
    std::string address = "127.0.0.1";
    int port = 0;
    std::string certificateFile;
    std::string keyFile;
    bool insecureHttp = false;
    bool verbose = false;
};

/// A descriptor that becomes readable on SIGINT or SIGTERM. The signals are blocked for good, for
/// this thread and those that it starts later.
Result<FileDescriptor> stopSignals() {
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGINT);
    ::sigaddset(&signals, SIGTERM);
    FileDescriptor stop;
    if (::pthread_sigmask(SIG_BLOCK, &signals, nullptr) == 0)
        stop = FileDescriptor(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!stop)
        return failure(std::string("cannot wait for signals: ") +
                       std::generic_category().message(errno));
    return stop;
}

int serve(const ServeOptions& options) {
    std::mutex writing;
    const auto writeLine = [&writing](const std::string& line) {
        const std::lock_guard lock(writing);
        std::cerr << "driver-depot: " << line << std::endl;
    };
    const auto stop = stopSignals();
    if (!stop) return fail(stop.error().message);
    Catalogue catalogue(options.folder, writeLine);
    if (auto read = catalogue.refresh(); !read) return fail(read.error().message);
    HttpServer::Settings settings;
    settings.address = options.address;
    settings.port = options.port;
    if (!options.certificateFile.empty())
        settings.tls = HttpServer::Settings::Tls{options.certificateFile, options.keyFile};
    if (options.verbose) settings.accessLog = writeLine;
    auto server = HttpServer::open(std::move(settings), catalogue);
    if (!server) return fail(server.error().message);
    std::cout << "ready " << (*server)->url() << " (" << catalogue.snapshot()->size()
              << " packages from " << options.folder << ")" << std::endl;
    if (auto ran = (*server)->run(stop->get()); !ran) return fail(ran.error().message);
    return kExitDone;
}

int demo(const std::string& folder, const std::string& agentLibrary) {
    const auto written = writeDemo(folder, agentLibrary);
    if (!written) return fail(written.error().message);
    std::cout << "wrote " << written->older << " older packages to " << folder << "/older, "
              << written->newer << " newer ones to " << folder
              << "/newer, and what an update makes "
              << "of them to " << folder << "/expected.json" << std::endl;
    return kExitDone;
}

CLI::App* addServe(CLI::App& app, ServeOptions& options) {
    CLI::App* serving = app.add_subcommand(
        "serve",
        "Serve the packages of a folder until SIGINT or SIGTERM. Packages that are added, changed\n"
        "or removed meanwhile are noticed; write a new one under a name that begins with a dot "
        "and\n"
        "rename it. NAME.json beside a package says what it cannot say itself; see\n"
        "docs/driver-depot.md.");
    serving->add_option("DIR", options.folder, "The folder of packages")
        ->required()
        ->check(CLI::ExistingDirectory);
    serving->add_option("--port", options.port, "The port; 0 takes a free one")
        ->required()
        ->check(CLI::Range(0, 65535));
    serving->add_option("--bind", options.address, "The numeric address to listen on")
        ->capture_default_str();
    auto* certificate = serving->add_option("--cert", options.certificateFile,
                                            "The server's certificate chain, a PEM file");
    auto* key =
        serving->add_option("--key", options.keyFile, "The certificate's private key, a PEM file");
    certificate->needs(key)->check(CLI::ExistingFile);
    key->needs(certificate)->check(CLI::ExistingFile);
    serving
        ->add_flag("--insecure-http", options.insecureHttp,
                   "Serve plain HTTP; anybody on the way can then exchange packages")
        ->excludes(certificate);
    serving->add_flag("--verbose", options.verbose, "Log each request to standard error");
    return serving;
}

}  // namespace

int fail(const std::string& reason) {
    std::cerr << "driver-depot: " << reason << std::endl;
    return kExitFailed;
}

int runCommandLine(int argc, char** argv) {
    openStandardStreams();
    // A reader or peer that goes away must not end the program in the middle of something.
    ::signal(SIGPIPE, SIG_IGN);
    CLI::App app{kDescription, "driver-depot"};
    app.footer(kExamples);
    app.require_subcommand(1);
    ServeOptions options;
    CLI::App* serving = addServe(app, options);
    std::string demoFolder;
    CLI::App* writing = app.add_subcommand(
        "demo", "Write sample packages of both formats, in an older and a newer version.");
    writing->add_option("DIR", demoFolder, "The folder to write to; made when it is not there")
        ->required();
    std::string agentLibrary;
    writing
        ->add_option("--agent-library", agentLibrary,
                     "A plug-in to pack into weather_agent.nvz, whose manifest then names it")
        ->check(CLI::ExistingFile);
    Command chosen;
    addCheckCommand(app, chosen);
    addReleaseCommands(app, chosen);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kExitDone : kExitUsage;
    }
    if (writing->parsed()) return demo(demoFolder, agentLibrary);
    if (chosen) {
        const int code = chosen();
        return std::cout.flush() ? code : fail("standard output could not be written");
    }
    if (serving->parsed() && options.certificateFile.empty() && !options.insecureHttp) {
        std::cerr
            << "driver-depot: serve needs --cert FILE and --key FILE; to serve plain HTTP say "
               "--insecure-http\n";
        return kExitUsage;
    }
    return serve(options);
}

}  // namespace depot
