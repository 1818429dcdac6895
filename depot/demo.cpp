#include "depot/demo.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <system_error>

#include "depot/demo_archive.h"
#include "depot/demo_drivers.h"
#include "depot/demo_manifest.h"
#include "depot/demo_picture.h"
#include "depot/sidecar.h"

namespace depot {
namespace {

/// Writes beside the file and renames, because the folder may be served while it is written.
Result<void> writeFile(const std::string& folder, const std::string& name,
                       const std::string& text) {
    const std::string path = folder + "/" + name;
    const std::string beside = folder + "/.new-" + name;
    std::ofstream file(beside, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    std::error_code error;
    if (file) std::filesystem::rename(beside, path, error);
    if (!file || error) return failure(path + ": cannot be written");
    return {};
}

Result<void> makeFolder(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error) return failure(path + ": cannot be made: " + error.message());
    return {};
}

/// The bytes of a plug-in; those of no file at all are none.
Result<std::string> readLibrary(const std::string& path) {
    if (path.empty()) return std::string();
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    if (!file || bytes.str().empty()) return failure(path + ": cannot be read, or is empty");
    return bytes.str();
}

Result<void> writePackage(const std::string& folder, const DemoDriver& driver, int version,
                          const std::string& library) {
    if (!driver.filename.ends_with(".nvz"))
        return writeFile(folder, driver.filename, demoManifest(driver, version));
    std::uint32_t seed = 0;
    for (const char character : driver.filename)
        seed = seed * 31 + static_cast<unsigned char>(character);
    ArchiveMembers members{{"driver.xml", demoManifest(driver, version)},
                           {"driver.lua", demoScript(driver, version)},
                           {"www/documentation.html", demoPage(driver, version)}};
    for (const std::uint32_t side : {16U, 32U, 70U})
        members.emplace_back("www/icons/device_" + std::to_string(side) + ".png",
                             demoPicture(side, seed + static_cast<std::uint32_t>(version)));
    if (!driver.library.empty()) members.emplace_back(driver.library, library);
    return writeArchive(folder + "/" + driver.filename, members);
}

Result<void> writeDriver(const std::string& folder, const DemoDriver& driver,
                         const std::string& library, DemoCounts& counts) {
    if (driver.olderVersion) {
        auto written = writePackage(folder + "/older", driver, *driver.olderVersion, library);
        if (!written) return written;
        ++counts.older;
    }
    if (!driver.newerVersion) return {};
    auto written = writePackage(folder + "/newer", driver, *driver.newerVersion, library);
    if (!written) return written;
    ++counts.newer;
    if (!driver.sidecar) return {};
    return writeFile(folder + "/newer", driver.filename + std::string(kSidecarSuffix),
                     *driver.sidecar);
}

nlohmann::ordered_json expectation(const DemoDriver& driver) {
    const auto versionAfter = [&](DemoOutcome outcome) {
        return outcome == DemoOutcome::kUpdated ? *driver.newerVersion : *driver.olderVersion;
    };
    nlohmann::ordered_json entry;
    entry["file"] = driver.filename;
    entry["olderVersion"] = *driver.olderVersion;
    entry["newerVersion"] = driver.newerVersion ? nlohmann::ordered_json(*driver.newerVersion)
                                                : nlohmann::ordered_json(nullptr);
    entry["outcome"] = outcomeText(driver.outcome);
    entry["versionAfter"] = versionAfter(driver.outcome);
    entry["forcedOutcome"] = outcomeText(driver.forcedOutcome);
    entry["versionAfterForced"] = versionAfter(driver.forcedOutcome);
    return entry;
}

}  // namespace

Result<DemoCounts> writeDemo(const std::string& folder, const std::string& agentLibrary) {
    DemoCounts counts;
    const Result<std::string> library = readLibrary(agentLibrary);
    if (!library) return tl::make_unexpected(library.error());
    nlohmann::ordered_json files = nlohmann::ordered_json::array();
    nlohmann::ordered_json agents = nlohmann::ordered_json::array();
    for (const char* part : {"/older", "/newer"}) {
        if (auto made = makeFolder(folder + part); !made) return tl::make_unexpected(made.error());
    }
    std::vector<DemoDriver> drivers = demoDrivers();
    for (DemoDriver& driver : drivers) {
        if (library->empty()) driver.library.clear();
        if (auto written = writeDriver(folder, driver, *library, counts); !written)
            return tl::make_unexpected(written.error());
        if (driver.olderVersion) {
            files.push_back(expectation(driver));
        } else {
            agents.push_back({{"file", driver.filename},
                              {"version", *driver.newerVersion},
                              {"added", driver.outcome != DemoOutcome::kHeldBack}});
        }
    }
    const nlohmann::ordered_json expected{{"files", files}, {"agents", agents}};
    if (auto written = writeFile(folder, "expected.json", expected.dump(2) + "\n"); !written)
        return tl::make_unexpected(written.error());
    return counts;
}

}  // namespace depot
