// `overseer init`: a controller root from nothing.

#include "root/initialization.h"

#include <nvhost/transport.h>

#include <boost/filesystem/operations.hpp>

#include "common/system_failure.h"
#include "root/placement.h"

namespace overseer {
namespace fs = boost::filesystem;

namespace {

constexpr char kProject[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<project next-id="1">
    <devices />
    <agents />
</project>
)";

constexpr char kRestartList[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<!-- A driver that offers one of these proxies restarts the controller when it is updated:
     <proxy name="light" /> -->
<proxy_restart>
    <proxies />
</proxy_restart>
)";

constexpr char kConfiguration[] =
    R"(# What the host of this controller is told when it starts; the command line overrides it.
# docs/operating.md says more about each key.
# A line that begins with # stands for the default that it shows, or for an example where there is
# none.

# Base URL of the driver catalogue and of its package files (no default: no catalogue is asked).
#catalogue = "https://catalogue.example.com/solr"

# Plug-in libraries of agents to load (the one that was installed with the host).
#agent = ["/usr/lib/overseer/norvane_agent_driverupdate.so"]

# Where metrics are sent, HOST:PORT (nowhere).
#statsd = "127.0.0.1:8125"

# Namespaces whose tagged counts carry milliseconds and are sent as timings.
#timing-namespaces = ["overseer.agent.driverupdate.updatetime", "overseer.agent.driverupdate.auto_add_agent_time"]

# Least severe level that is logged: trace, debug, info, warn or error.
#log-level = "info"

# Transfers at a time from one server.
#transfers = 6

# Proxy for everything that goes out, http://[USER:PASSWORD@]HOST:PORT (none).
#proxy = "http://proxy.example.com:3128"

# A package download fails when it stays under so many bytes per second for so many seconds.
#low-speed-rate = 1024
#low-speed-time = 60

# A package download fails when it comes to more than so many MB.
#largest-file = 1024

# Seconds after which a command that a driver runs, unzip for instance, is ended.
#command-time-limit = 600

# Version of the host that drivers' minimum versions are compared with, "major.minor.build".
#host-version = ")" OVERSEER_VERSION R"("
)";

bool isEmptyFolder(const fs::path& folder, boost::system::error_code& error) {
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        // What a fresh file system of one's own comes with.
        if (entry->path().filename() != "lost+found") return false;
    }
    return !error;
}

Result<> checkWayTo(fs::path folder) {
    boost::system::error_code error;
    while (!fs::exists(folder, error) && !folder.empty()) folder = folder.parent_path();
    if (folder.empty() || fs::is_directory(folder, error)) return {};
    return failure(
        "{} is no folder, so there can be no controller root below it; name another place",
        folder.string());
}

Result<> checkVacant(const ControllerRoot& root) {
    const std::string name = root.path().string();
    if (root.exists()) return failure("{} already is a controller root; it was left alone", name);
    boost::system::error_code error;
    const fs::file_type type = fs::symlink_status(root.path(), error).type();
    if (type == fs::file_not_found) return checkWayTo(root.path().parent_path());
    if (type != fs::directory_file) {
        return failure("{} is no folder; name one that is empty, or a new one", name);
    }
    if (!isEmptyFolder(root.path(), error)) {
        return failure("the folder {} is not empty; name one that is, or a new one", name);
    }
    return {};
}

Result<> fill(const ControllerRoot& root, const fs::path& caFile) {
    boost::system::error_code error;
    fs::create_directories(root.path().parent_path(), error);
    if (error) return systemFailure(root.path().parent_path().string(), error);
    const fs::path bundle = fs::canonical(caFile, error);
    if (error) return systemFailure(caFile.string(), error);

    Result<> done = root.createFolders();
    if (done) done = copyInPlace(bundle, root.caBundle());
    if (done) {
        done =
            writeInPlace(root.configuration() / "proxy_restart.xml", kRestartList, Flush::kBefore);
    }
    if (done) done = writeInPlace(root.projectFile(), kProject, Flush::kBefore);
    if (done) done = writeInPlace(root.configurationFile(), kConfiguration, Flush::kBefore);
    if (done) done = flushFileSystem(root.path());
    return done;
}

}  // namespace

Result<ControllerRoot> initializeRoot(const fs::path& folder, const fs::path& caFile) {
    Result<ControllerRoot> root = ControllerRoot::at(folder);
    if (!root) return root;
    if (const Result<> vacant = checkVacant(*root); !vacant) {
        return tl::unexpected<Error>(vacant.error());
    }
    boost::system::error_code ignored;
    if (const auto unusable = nv::hosting::checkCaFile(caFile.string())) {
        return failure("the CA bundle {}: {}; name another one with --ca FILE", caFile.string(),
                       unusable.message());
    }
    const bool wasThere = fs::exists(root->path(), ignored);
    if (const Result<> filled = fill(*root, caFile); !filled) {
        // What this call made goes again, so that the next one finds the place vacant.
        for (const char* made : {"drivers", "config", "certs", "state", "log", "run", "tmp",
                                 "project.xml", "overseer.conf"}) {
            fs::remove_all(root->path() / made, ignored);
        }
        if (!wasThere) fs::remove(root->path(), ignored);
        return inContext("the controller root was not completed", filled.error());
    }
    return root;
}

}  // namespace overseer
