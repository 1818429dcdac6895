// The completion of a download: verifies the file, puts it in place of the installed one, has the
// host apply it, and reports.
// Entered from the network when a transfer of install/download.cpp ends, well or not. Leaves to the
// host's driver update, or to install/agent_registration.cpp for an agent. Writes no member.
#include <nv/crypto.h>
#include <nv/file.h>
#include <nv/system.h>

#include <boost/filesystem/operations.hpp>
#include <fstream>

#include "norvane_agent_driverupdate.h"

namespace fs = boost::filesystem;
using driverupdate::isPresent;

/// An outcome that ends a download before the host is asked; every text is followed by the name.
struct norvane_agent_driverupdate::FailedDownload {
    const char* metric;
    const char* logText;
    const char* lastMessage;
    const char* history;
};

const norvane_agent_driverupdate::FailedDownload norvane_agent_driverupdate::kChecksumMismatch = {
    "cloud_update_md5_check_failed",
    "agent_driverupdate: Driver update failed (md5 mismatch): ",
    "Driver update failed (md5 mismatch): ",
    "Driver Update Failed (md5 mismatch): ",
};
const norvane_agent_driverupdate::FailedDownload norvane_agent_driverupdate::kCurrentFileMissing = {
    "cloud_update_cur_driver_not_exist_failed",
    "agent_driverupdate: Driver update failed (current driver file does not exist): ",
    "Driver update failed (current driver file does not exist): ",
    "Driver Update Failed (current driver file does not exist): ",
};
const norvane_agent_driverupdate::FailedDownload norvane_agent_driverupdate::kDownloadMissing = {
    "cloud_update_downloaded_driver_not_exist_failed",
    "agent_driverupdate: Driver update failed (downloaded driver file does not exist): ",
    "Driver update failed (downloaded driver file does not exist): ",
    "Driver Update Failed (downloaded driver file does not exist): ",
};

namespace {

/// Empties the folder and unpacks the package into it; left empty when that fails.
void unpack(const fs::path& package, const fs::path& folder) {
    boost::system::error_code ignored;
    fs::remove_all(folder, ignored);
    fs::create_directory(folder, ignored);
    if (driverupdate::isEndless(package)) return;
    const std::string command = "unzip \"" + package.string() + "\" -d \"" + folder.string() + "\"";
    nv::system(command.c_str());
}

}  // namespace

std::string driverupdate::GetMD5Checksum(const std::string& path) {
    boost::system::error_code error;
    std::string checksum =
        nv::crypto::computeFileHash(path, "md5", error, nv::crypto::CryptoEncoding::kHexLower);
    if (error) {
        DRIVERUPDATE_WARN("[DriverUpdateAgent] Unable to compute hash of file {}. {}", path,
                          error.message());
        return {};
    }
    return checksum;
}

void norvane_agent_driverupdate::onDone(
    nv::Curl::Transfer::Ptr,  // NOLINT(performance-unnecessary-value-param)
    const nv::Curl::Code& code, std::string& filename, std::string& tempFolder,
    const std::string& md5sum, boost::shared_ptr<std::ofstream>& out,
    std::uint64_t startMilliseconds, const add_agent_data_tuple_type& agentData) {
    DRIVERUPDATE_DEBUG(
        "agent_driverupdate: Finished downloading file: {}, Curl Code: {}, tempPath: {}", filename,
        code.toString(), tempFolder);
    out->flush();
    out->close();
    out.reset();
    // How the transfer ended is not looked at: the checksum catches what is not whole.
    const bool inPlace = isPackaged(filename) ? placePackage(filename, tempFolder, md5sum)
                                              : placePlainDriver(filename, tempFolder, md5sum);
    if (!inPlace) return;
    if (std::get<0>(agentData).empty()) {
        applyUpdate(filename, startMilliseconds);
    } else {
        finishAgentDownload(agentData, startMilliseconds);
    }
}

bool norvane_agent_driverupdate::placePackage(const std::string& filename,
                                              const std::string& tempFolder,
                                              const std::string& md5sum) {
    const fs::path folder = driverFolder(filename);
    const fs::path current = folder / filename;
    const fs::path downloaded = fs::path(tempFolder) / filename;
    if (driverupdate::GetMD5Checksum(downloaded.string()) != md5sum) {
        failDownload(kChecksumMismatch, filename, tempFolder);
        return false;
    }
    boost::system::error_code ignored;
    nv::file::replace(downloaded, current, ignored);
    fs::remove_all(tempFolder, ignored);
    unpack(current, folder / current.stem());
    return true;
}

bool norvane_agent_driverupdate::placePlainDriver(const std::string& filename,
                                                  const std::string& tempFolder,
                                                  const std::string& md5sum) {
    const fs::path current = fs::path(driverFolder(filename)) / filename;
    const fs::path downloaded = fs::path(tempFolder) / filename;
    const FailedDownload* failure = nullptr;
    if (driverupdate::GetMD5Checksum(downloaded.string()) != md5sum) {
        failure = &kChecksumMismatch;
    } else if (!isPresent(current)) {
        failure = &kCurrentFileMissing;
    } else if (!isPresent(downloaded)) {
        failure = &kDownloadMissing;
    }
    if (failure != nullptr) {
        failDownload(*failure, filename, tempFolder);
        return false;
    }
    boost::system::error_code ignored;
    nv::file::replace(downloaded, current, ignored);
    fs::remove_all(tempFolder, ignored);
    return true;
}

void norvane_agent_driverupdate::failDownload(const FailedDownload& failure,
                                              const std::string& filename,
                                              const std::string& tempFolder) {
    count(failure.metric, filename);
    DRIVERUPDATE_ERROR("{}{}", failure.logText, filename);
    setLastMessage(failure.lastMessage + filename);
    recordHistory(failure.history + filename, driverupdate::kAutoUpdate, "Failed");
    boost::system::error_code ignored;
    fs::remove_all(tempFolder, ignored);
}

void norvane_agent_driverupdate::applyUpdate(const std::string& filename,
                                             std::uint64_t startMilliseconds) {
    if (GetOverseer()->UpdateDriver(filename) < 0) {
        DRIVERUPDATE_ERROR("agent_driverupdate: Driver update failed: {}", filename);
        count("cloud_update_failed", filename);
        setLastMessage("Driver update failed: " + filename);
        recordHistory("Driver Update Failed: " + filename, driverupdate::kAutoUpdate, "Failed");
        return;
    }
    DRIVERUPDATE_DEBUG("agent_driverupdate: Driver updated: {}", filename);
    count("cloud_update_success", filename);
    const std::uint64_t elapsed = clockMilliseconds() - startMilliseconds;
    DRIVERUPDATE_INFO("{} update time: {} milliseconds", filename, elapsed);
    sendTiming("updatetime", filename, elapsed);
    setLastMessage("Driver updated: " + filename);
    recordHistory("Driver Updated: " + filename, driverupdate::kAutoUpdate, "Updated");
    notifyUserInterfaces("driver_updated", "driver_name", filename);
}

void norvane_agent_driverupdate::finishAgentDownload(const add_agent_data_tuple_type& agentData,
                                                     std::uint64_t startMilliseconds) {
    const auto& [name, library, filename, version] = agentData;
    const std::uint64_t elapsed = clockMilliseconds() - startMilliseconds;
    DRIVERUPDATE_INFO("{} add time: {} milliseconds", filename, elapsed);
    sendTiming("auto_add_agent_time", filename, elapsed);
    autoAddAgent(name, library, filename);
}
