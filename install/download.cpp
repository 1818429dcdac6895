// The download: fetches one package into a private temporary folder.
// Entered from install/driver_installation.cpp, and from the network with each piece of the body.
// Leaves to the host's transfer client, whose completion is install/completion.cpp. Writes
// curlClient.
#include <curl/curl.h>
#include <nv/kernel.h>
#include <nv/url_vault.h>

#include <boost/asio/buffer.hpp>
#include <boost/filesystem/operations.hpp>
#include <fstream>
#include <new>

#include "norvane_agent_driverupdate.h"

namespace fs = boost::filesystem;

namespace {

/// A folder of its own for one download. Nothing is checked: where it cannot be made, the output
/// fails to open and the completion finds the download missing.
fs::path makeTemporaryFolder() {
    boost::system::error_code ignored;
    fs::path folder =
        fs::temp_directory_path(ignored) / fs::unique_path("%%%%-%%%%-%%%%-%%%%", ignored);
    fs::create_directory(folder, ignored);
    return folder;
}

nv::Curl::Transfer::Options transferOptions() {
    nv::Curl::Transfer::Options options;
    options.retryCount = 3;
    options.retryDelaySeconds = 5;
    options.followRedirects = true;
    options.headersOnly = false;
    options.totalTimeoutSeconds = 0;
    options.maximumRedirects = 5;
    options.freshConnection = false;
    options.closeConnection = false;
    options.proxyHost.clear();
    options.proxyPort = 1080;
    options.proxyUser.clear();
    options.proxyPassword.clear();
    return options;
}

nv::Curl::Transfer::Callbacks emptyCallbacks() {
    nv::Curl::Transfer::Callbacks callbacks;
    callbacks.started.clear();
    callbacks.header.clear();
    callbacks.data.clear();
    callbacks.progress.clear();
    callbacks.completed.clear();
    return callbacks;
}

}  // namespace

bool norvane_agent_driverupdate::downloadDriver(std::string currentDriverPath,
                                                const std::string& filename,
                                                const std::string& md5sum,
                                                const add_agent_data_tuple_type& agentData) {
    using Agent = norvane_agent_driverupdate;
    using std::placeholders::_1;
    using std::placeholders::_2;
    DRIVERUPDATE_DEBUG("agent_driverupdate: Download Driver:  {}", filename);
    const fs::path tempFolder = makeTemporaryFolder();
    const fs::path packageFile = tempFolder / filename;
    const std::string url = nv::UrlVault("").solrDriversUrl() + "/" + escapeFileName(filename);
    const nv::Curl::Transfer::Options options = transferOptions();
    nv::Curl::Transfer::Callbacks callbacks = emptyCallbacks();
    ensureCurlClient();

    // Only the handle is tested, not the stream: a file that did not open swallows the data, and
    // the completion finds out.
    boost::shared_ptr<std::ofstream> out(new (std::nothrow) std::ofstream(
        packageFile.string(), std::ios::binary | std::ios::out | std::ios::trunc));
    if (!out) {
        DRIVERUPDATE_ERROR("agent_driverupdate: failed to open output file: {}", currentDriverPath);
        return false;
    }
    const std::uint64_t startMilliseconds = clockMilliseconds();
    callbacks.data = std::bind(&Agent::onData, this, _1, _2, out);
    callbacks.completed = std::bind(&Agent::onDone, this, _1, _2, filename, tempFolder.string(),
                                    md5sum, out, startMilliseconds, agentData);
    DRIVERUPDATE_DEBUG("agent_driverupdate: Start Download");
    curlClient->start(url, options, callbacks);
    return true;
}

bool norvane_agent_driverupdate::onData(
    nv::Curl::Transfer::Ptr,  // NOLINT(performance-unnecessary-value-param)
    const boost::asio::const_buffer& data, boost::shared_ptr<std::ofstream>& out) {
    // The result carries on whatever became of the bytes: the checksum has the last word.
    out->write(static_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
    return false;
}

void norvane_agent_driverupdate::ensureCurlClient() {
    if (curlClient) return;
    nv::Curl::Options options;
    options.minimumTlsVersion = 1;
    options.waitForMultiplexing = true;
    options.httpVersion = 1;
    curlClient =
        std::make_shared<nv::Curl>(GetOverseer()->GetDeviceIoContext(GetDeviceId()), options);
}

std::uint64_t norvane_agent_driverupdate::clockMilliseconds() {
    timespec now{};
    KernelX::gettime(&now);
    // In 32 bits at both ends of a download; a wrap between them shows as a huge time taken.
    const std::uint32_t milliseconds = static_cast<std::uint32_t>(now.tv_sec) * 1000U +
                                       static_cast<std::uint32_t>(now.tv_nsec / 1000000);
    return milliseconds;
}
