#pragma once

#include <nv/base_driver.h>
#include <nv/curl.h>
#include <nv/http.h>

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "../package/package.h"
#include "outcome_reporting.h"

// The driver-update agent: one class, one source file for each of its activities.
//
// clang-format off
// Activity           | File                                 | Entered from             | Leaves to
// -------------------+--------------------------------------+--------------------------+--------------------------------
// life in the host   | agent/norvane_agent_driverupdate.cpp | host                     | daily events, catalogue query
// commands           | agent/commands.cpp                   | host                     | command handlers
// settings           | agent/settings.cpp                   | host, commands           | daily events
// outcome reporting  | agent/outcome_reporting.cpp          | everywhere               | host
// package loading    | package/package_loading.cpp          | evaluation, registration | manifest queries
// manifest queries   | package/manifest_queries.cpp         | loading, evaluation      |
// driver evaluation  | package/evaluation.cpp               | commands                 | package loading, queries
// catalogue query    | catalogue/query.cpp                  | the three requests, life | transport
// answer             | catalogue/answer.cpp                 | update request, lookup   | installation, registration
// setup listing      | catalogue/setup_listing.cpp          | commands, network        | catalogue query
// update request     | catalogue/update_request.cpp         | update run, network      | catalogue query, answer
// agent lookup       | catalogue/agent_lookup.cpp           | commands, network        | catalogue query, answer
// download           | install/download.cpp                 | installation, registr.   | transport
// completion         | install/completion.cpp               | network                  | host, registration
// installation       | install/driver_installation.cpp      | commands, answer         | download, host
// agent registration | install/agent_registration.cpp       | answer, completion       | package loading, download, host
// daily events       | schedule/auto_update_events.cpp      | life, settings           | host's scheduler
// update run         | schedule/auto_update_run.cpp         | host, commands           | update request
// clang-format on
//
// The entry points of the plug-in (agent/entry_points.cpp) make the object and know nothing else.

template <typename Callback>
class HttpSolrRequestShim;

/// Name, library, file name and version of an agent that is to be added; all empty while a driver
/// is updated.
using add_agent_data_tuple_type = std::tuple<std::string, std::string, std::string, std::string>;

namespace driverupdate {

/// MD5 of a file in lower-case hexadecimal; empty, with a warning in the log, when it cannot be
/// read. Defined in install/completion.cpp.
std::string GetMD5Checksum(const std::string& path);

}  // namespace driverupdate

/// Keeps the drivers of a controller current.
///
/// Lives on the loop that the host gives to its device, and is entered there only: by the host's
/// calls, by commands and schedule events, and by the completions of its own network requests.
/// Nothing is locked. The host destroys it through its hosted interface; requests that are then
/// under way are cancelled, and a late completion does nothing.
class norvane_agent_driverupdate : public NVBaseAgentDriver {
  public:
    using SolrCallback =
        std::function<void(const nv::net::http::HttpResponse&, const boost::system::error_code&)>;

    // ---- agent/norvane_agent_driverupdate.cpp: life in the host ---------------------------------

    /// @param context  the host's creation context, which outlives the agent
    explicit norvane_agent_driverupdate(void* context);
    ~norvane_agent_driverupdate() override;
    norvane_agent_driverupdate(const norvane_agent_driverupdate&) = delete;
    norvane_agent_driverupdate& operator=(const norvane_agent_driverupdate&) = delete;

    RESULTX LateInitialize() override;
    IAgent* GetAgent() override;
    IDevice* GetDevice() override;
    void OnProjectLoaded() override {}
    void OnProjectClosing() override {}
    void UsbSerialDeviceRemoved(const std::string&) override {}
    void OnVariableAdded(unsigned int, unsigned int) override {}
    void OnVariableRemoved(unsigned int, unsigned int) override {}
    void OnDeviceAdded(unsigned int) override {}
    void OnDeviceRemoved(unsigned int) override {}
    void OnConnectionsChanged() override {}
    void OnSchedulerEventRemoved(unsigned int) override {}

    // ---- agent/commands.cpp: what the host may ask for by name ----------------------------------

    void RegisterCommands() override;

    // ---- agent/settings.cpp: settings, their persistence and their commands ---------------------

    using NVBaseAgentDriver::Initialize;
    /// Takes the settings from the node that the host stored; always 0.
    RESULTX Initialize(unsigned int deviceId, nv::XmlNode::Ptr& configuration,
                       nv::XmlNode::Ptr persisted) override;
    /// Switches automatic updating on and leaves the other settings alone.
    void ResetSettings() override;
    nv::XmlNode::Ptr GetPersistData() override;
    /// Whether the dealer excluded a driver file of exactly this name from updating.
    bool isExcluded(const std::string& fileName) const;

    // ---- agent/outcome_reporting.cpp ------------------------------------------------------------

    void RegisterVariables() override;

    // ---- package/package_loading.cpp ------------------------------------------------------------

    /// Takes the manifest out of a package, by way of its extracted copy; blocks while it unpacks.
    /// @param fileName  file in the folder of packages, or an absolute path
    /// @param xml       the manifest as it stands in the file; left alone on failure
    /// @return negative on failure, which is logged. What the file system refuses is thrown.
    RESULTX loadNVZ(const std::string& fileName, std::string& xml) const;
    /// Takes in a bare driver, which is its own manifest; the same contract.
    /// @param fileName  file in the folder of bare drivers; ".nvi" is added where it has no
    /// extension
    RESULTX loadNVI(const std::string& fileName, std::string& xml) const;

    // ---- package/manifest_queries.cpp -----------------------------------------------------------

    /// In document order.
    using updateProxies = std::vector<driverupdate::ManifestRecord>;
    using updateCapabilities = std::vector<driverupdate::ManifestRecord>;

    // Each asks a manifest's text; the file's name is for the log. False when the text does not
    // parse, which is logged. Lists are appended to.

    /// @return false also where no version stands; `version` is then left alone
    bool getDriverVersion(const std::string& fileName, const std::string& manifest,
                          int& version) const;
    bool getDriverProxies(const std::string& fileName, const std::string& manifest,
                          updateProxies& proxies) const;
    bool getDriverCapabilities(const std::string& fileName, const std::string& manifest,
                               updateCapabilities& capabilities) const;
    /// @param restart  false where the manifest does not say
    bool getDriverRestartAfterUpdate(const std::string& fileName, const std::string& manifest,
                                     bool& restart) const;
    /// The same of a manifest file; false also when it is missing or cannot be read.
    bool getDriverProxies(const std::string& filePath, updateProxies& proxies) const;
    bool getDriverCapabilities(const std::string& filePath, updateCapabilities& capabilities) const;

    // ---- catalogue/query.cpp --------------------------------------------------------------------

    /// URL of a catalogue query.
    /// @param files   file list: escaped, double-quoted names, joined by commas
    /// @param fields  names of the fields wanted, joined by commas
    /// @param core    collection to ask; only a forced query honours it, any other asks "drivers"
    std::string buildSolrQueryUrl(const std::string& files, const std::string& fields,
                                  const std::string& core, bool forceAutoUpdate) const;
    /// The unforced query for these file names, escaped here.
    std::string buildSolrQueryUrl(const std::vector<std::string>& fileNames,
                                  const std::string& fields, const std::string& core) const;

    // ---- schedule/auto_update_run.cpp -----------------------------------------------------------

    /// One of the two daily events fires.
    void OnSchedulerEvent(unsigned int eventId) override;

  private:
    // ---- agent/settings.cpp ---------------------------------------------------------------------

    nv::XmlNode::Ptr OnCmdGetState(const ICmdMessage& message);
    void OnCmdSetState(const ICmdMessage& message);
    void OnCmdSetExclude(const ICmdMessage& message);

    // ---- agent/outcome_reporting.cpp ------------------------------------------------------------

    static constexpr unsigned int kLastMessageId = 1000;
    void setLastMessage(const std::string& text);
    void recordHistory(const std::string& text, const std::string& subcategory,
                       const std::string& result);
    /// One occurrence of an outcome about `tag`.
    void count(const std::string& metric, const std::string& tag);
    /// One occurrence of an outcome that is about no subject.
    void countPlain(const std::string& metric);
    void sendTiming(const std::string& metric, const std::string& fileName,
                    std::uint64_t milliseconds);
    /// Sends the node `notification` with one child that holds `text`.
    void notifyUserInterfaces(const std::string& notification, const std::string& child,
                              const std::string& text);

    // ---- package/package_loading.cpp ------------------------------------------------------------

    struct PackagePaths;
    /// Whether the extracted copy serves as it is.
    bool isCopyCurrent(const std::string& fileName, const PackagePaths& paths) const;
    /// Whether a copy that is not known to be this package's has to be kept all the same.
    bool isCopyNewer(const std::string& fileName, const PackagePaths& paths) const;
    static void extractPackage(const PackagePaths& paths);
    static RESULTX readExtractedManifest(const PackagePaths& paths, std::string& xml);

    // ---- package/manifest_queries.cpp: the queries, of a manifest that is parsed already --------

    bool getDriverVersion(const std::string& fileName, const driverupdate::ParsedManifest& manifest,
                          int& version) const;
    bool getDriverProxies(const std::string& fileName, const driverupdate::ParsedManifest& manifest,
                          updateProxies& proxies) const;
    bool getDriverCapabilities(const std::string& fileName,
                               const driverupdate::ParsedManifest& manifest,
                               updateCapabilities& capabilities) const;
    bool getDriverRestartAfterUpdate(const std::string& fileName,
                                     const driverupdate::ParsedManifest& manifest,
                                     bool& restart) const;

    // ---- package/evaluation.cpp -----------------------------------------------------------------

    struct DriverFacts;
    nv::XmlNode::Ptr OnCmdEvaluate(const ICmdMessage& message);
    /// @return null, with the verdict filled in, when the offer may replace the installed driver
    const driverupdate::EvaluationFailure* evaluateOffer(
        const driverupdate::DriverOffer& offer, const std::vector<std::string>& restartNames,
        driverupdate::Verdict& verdict);
    const driverupdate::EvaluationFailure* readFacts(const driverupdate::DriverOffer& offer,
                                                     const driverupdate::ParsedManifest& installed,
                                                     const driverupdate::ParsedManifest& offered,
                                                     DriverFacts& installedFacts,
                                                     DriverFacts& offeredFacts) const;
    bool requiresRestart(const driverupdate::DriverOffer& offer,
                         const driverupdate::ParsedManifest& offered,
                         const DriverFacts& installedFacts, const DriverFacts& offeredFacts,
                         const std::vector<std::string>& restartNames);

    // ---- catalogue/query.cpp: queries, and the requests that carry them -------------------------

    using RequestShim = HttpSolrRequestShim<SolrCallback>;
    /// What became of issuing a request; only an issued one completes.
    enum class RequestStart { kIssued, kAlreadyInFlight, kNoQuery, kNotSent };
    /// Sends the query for `files`, unless one of this key is in flight. Its completion has to take
    /// the key out of activeDownloads.
    /// @param error  why there is no query, or why it was not sent
    RequestStart requestCatalogue(const std::string& key, const std::string& files,
                                  const std::string& core, bool forceAutoUpdate,
                                  const SolrCallback& completion, boost::system::error_code& error);
    void cancelRequests();
    /// Percent-escaped for a URL; empty when that fails.
    static std::string escapeFileName(const std::string& fileName);

    // ---- catalogue/answer.cpp: which documents of an answer lead to an update -------------------

    struct CatalogueDocument;
    void handleSolrResponse(const std::string& payload, const std::string& core,
                            const add_agent_data_tuple_type& addAgentData, bool isAgent);
    void handleDocument(const CatalogueDocument& document,
                        const add_agent_data_tuple_type& addAgentData, bool isAgent);
    void failAnswer(const std::string& core, const char* logText, const char* reason);
    void reportNoSuchAgent(const add_agent_data_tuple_type& addAgentData);
    /// Tells of a document that leads to nothing, in a node named `notification`.
    void refuse(const char* notification, const std::string& filename, const char* reason);

    // ---- catalogue/setup_listing.cpp ------------------------------------------------------------

    /// What came back for one batch: body, file list, core ("dbname" in messages), error, status.
    using SetupResult =
        std::tuple<std::string, std::string, std::string, boost::system::error_code, int>;
    /// All batches of one command share it; it grows by one with each answer.
    using SetupResults = std::shared_ptr<std::vector<SetupResult>>;
    nv::XmlNode::Ptr OnCmdGetSetup(const ICmdMessage& message);
    /// Escaped, double-quoted, joined by commas; of any length.
    static std::string fileListOf(const std::set<std::string>& fileNames);
    /// Asks about one batch. @param expected  how many batches the command has
    void getSetup(const SetupResults& results, const std::string& files, const std::string& dbname,
                  std::size_t expected);
    void getSetupSolrResponse(const nv::net::http::HttpResponse& response,
                              const boost::system::error_code& error, const SetupResults& results,
                              const std::string& files, const std::string& dbname,
                              std::size_t expected);
    /// Sends the listing, or the first failure in its place. Takes the bodies out of `results`.
    void getSetupFinalResponse(const SetupResults& results);
    bool addToListing(SetupResult& result, pugi::xml_node& setup);
    void failSetup(const std::string& dbname, const std::string& what, const std::string& code);

    // ---- catalogue/update_request.cpp -----------------------------------------------------------

    /// Asks the catalogue for updates of a file list.
    void updateDrivers(const std::string& files, bool forced);
    void requestUpdates(const std::string& files, const std::string& core, bool forced);
    void updateDriversSolrResponse(const nv::net::http::HttpResponse& response,
                                   const boost::system::error_code& error, const std::string& core,
                                   const std::string& files);

    // ---- catalogue/agent_lookup.cpp -------------------------------------------------------------

    void OnCmdAutoAddAgent(const ICmdMessage& message);
    void autoAddAgentSolrResponse(const nv::net::http::HttpResponse& response,
                                  const boost::system::error_code& error,
                                  const add_agent_data_tuple_type& data);

    // ---- install/download.cpp -------------------------------------------------------------------

    /// Starts the download of a package; false when its output cannot be had.
    /// @param currentDriverPath  installed file, only for messages
    bool downloadDriver(std::string currentDriverPath, const std::string& filename,
                        const std::string& md5sum, const add_agent_data_tuple_type& agentData);
    bool onData(nv::Curl::Transfer::Ptr transfer, const boost::asio::const_buffer& data,
                boost::shared_ptr<std::ofstream>& out);
    void ensureCurlClient();
    /// The host's clock in milliseconds, which wrap at 32 bits.
    static std::uint64_t clockMilliseconds();

    // ---- install/completion.cpp: from a finished download to an updated driver ------------------

    void onDone(nv::Curl::Transfer::Ptr transfer, const nv::Curl::Code& code, std::string& filename,
                std::string& tempFolder, const std::string& md5sum,
                boost::shared_ptr<std::ofstream>& out, std::uint64_t startMilliseconds,
                const add_agent_data_tuple_type& agentData);
    /// Verify and put in place; false when the outcome is decided already.
    bool placePackage(const std::string& filename, const std::string& tempFolder,
                      const std::string& md5sum);
    bool placePlainDriver(const std::string& filename, const std::string& tempFolder,
                          const std::string& md5sum);
    void applyUpdate(const std::string& filename, std::uint64_t startMilliseconds);
    void finishAgentDownload(const add_agent_data_tuple_type& agentData,
                             std::uint64_t startMilliseconds);
    struct FailedDownload;
    static const FailedDownload kChecksumMismatch;
    static const FailedDownload kCurrentFileMissing;
    static const FailedDownload kDownloadMissing;
    void failDownload(const FailedDownload& failure, const std::string& filename,
                      const std::string& tempFolder);

    // ---- install/driver_installation.cpp --------------------------------------------------------

    void updateDriver(const std::string& filename, const std::string& md5sum);
    void OnCmdUpdateDrivers(const ICmdMessage& message);
    void installDriver(const std::string& name, bool requiresRestart);
    /// Whether a driver file of that name is a package.
    static bool isPackaged(const std::string& filename);
    /// Where a driver file of that name belongs.
    std::string driverFolder(const std::string& filename) const;

    // ---- install/agent_registration.cpp ---------------------------------------------------------

    /// Adds the agent out of the package on the device, or downloads a fresh one first.
    /// @param minimumOSVersion  checked before a download; a part of it that is no number is thrown
    void autoAddAgentDownload(const std::string& filename, const std::string& md5sum, int version,
                              const std::string& minimumOSVersion,
                              const add_agent_data_tuple_type& agentData);
    /// Version of the package on the device; 0, which is logged, where it cannot be had.
    int localAgentVersion(const std::string& filename) const;
    bool isSystemRecentEnough(const std::string& filename,
                              const std::string& minimumOSVersion) const;
    /// Has the host add the agent, unless a device of that file is there already.
    void autoAddAgent(const std::string& name, const std::string& library,
                      const std::string& filename);

    // ---- schedule/auto_update_events.cpp --------------------------------------------------------

    struct DailyEvent;
    RESULTX scheduleAutoUpdateEvent();
    RESULTX scheduleForcedAutoUpdateEvent();
    RESULTX scheduleDailyEvent(const DailyEvent& event);
    /// Adds the event to the schedule, at a random time of day; 0 when it was refused.
    std::uint32_t addDailyEvent(const std::string& name, nv::scheduler::IScheduler& scheduler);

    // ---- schedule/auto_update_run.cpp -----------------------------------------------------------

    void OnCmdExecuteAutoUpdate(const ICmdMessage& message);
    void executeAutoUpdate(bool forced);

    // ---- state, in the order in which it is set up; taken down in the reverse order -------------

    bool autoUpdateEnabled = true;
    bool autoUpdateSetByDealer = false;
    std::uint32_t autoUpdateEventId = 0;
    std::uint32_t forcedAutoUpdateEventId = 0;
    std::shared_ptr<nv::Curl> curlClient;  ///< made by the first download
    std::shared_ptr<void> auxState;
    std::string scratchText;
    std::string excludedFiles;  ///< file names joined by commas, as received
    /// Catalogue requests in flight, by the key that their issuer chose.
    std::map<std::string,
             std::pair<std::shared_ptr<RequestShim>, std::shared_ptr<nv::net::http::HttpClient>>>
        activeDownloads;
};
