#pragma once

#include <nv/driver_operations.h>
#include <nvhost/environment.h>

#include <memory>
#include <string>
#include <vector>

#include "command_message.h"
#include "event_loop.h"
#include "journal.h"
#include "log_capture.h"
#include "manual_clock.h"
#include "recording_host.h"
#include "recording_transport.h"
#include "temporary_folder.h"

class norvane_agent_driverupdate;

namespace support {

/// A package document of a catalogue answer.
struct Offer {
    std::string filename;
    int version = 0;
    std::string md5sum;
    std::string more;  ///< further field elements, as they stand
};

/// A whole catalogue answer with these documents.
std::string answerOf(const std::vector<Offer>& offers);

/// The agent in a recording host, on a controller of its own in a temporary folder, with a network
/// and a clock that the test drives. TMPDIR points into the folder while it lives.
class AgentSession {
  public:
    static constexpr const char* kBaseUrl = "https://catalogue.test/solr";

    AgentSession();
    ~AgentSession();
    AgentSession(const AgentSession&) = delete;
    AgentSession& operator=(const AgentSession&) = delete;

    /// Initialises and registers everything as a host does; empties the journal afterwards.
    void start(const nv::XmlNode::Ptr& persisted = {});
    norvane_agent_driverupdate& agent() { return *agent_; }
    IDriverOperations& operations();
    void destroyAgent();

    /// A command without an answer; what its handler throws comes through.
    void command(const std::string& name, const CommandMessage::Parameters& parameters = {});
    /// A command that answers.
    nv::XmlNode::Ptr ask(const std::string& name,
                         const CommandMessage::Parameters& parameters = {});

    /// Ends a transfer with an answer and runs what that makes ready.
    void answer(std::size_t transfer, int status, const std::string& body);
    void fail(std::size_t transfer, int curlCode, const std::string& message);
    /// The lists of file names that the catalogue was asked about, in order, as they were built.
    std::vector<std::string> askedFileLists() const;

    /// Folders of downloads that are still on disk.
    std::vector<std::string> downloadFolders() const { return namesIn(temporary); }

    TemporaryFolder root;
    const std::string temporary;
    const std::shared_ptr<ManualClock> clock;
    Journal journal;
    EventLoop loop;
    RecordingHost host;
    const std::shared_ptr<RecordingTransport> transport;
    LogCapture log;

  private:
    nv::hosting::EnvironmentScope environment_;
    std::string previousTemporary_;
    CreationContext context_;
    std::unique_ptr<norvane_agent_driverupdate> agent_;
};

}  // namespace support
