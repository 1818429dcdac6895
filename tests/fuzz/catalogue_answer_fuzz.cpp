// A catalogue's answer, any bytes: whatever it names is fetched from the catalogue itself, into
// folders of downloads that lie side by side, and nothing else comes to be.
#include "agent_session.h"
#include "fuzz_input.h"

namespace {

void checkDownloads(const support::AgentSession& session) {
    const std::string base = std::string(support::AgentSession::kBaseUrl) + "/";
    const std::vector<std::string> urls = session.transport->urls();
    for (std::size_t at = 1; at < urls.size(); ++at) {
        require(urls[at].starts_with(base));
        require(urls[at].find_first_of("/?#", base.size()) == std::string::npos);
    }
    // A second download of one name shares the first one's; none has a folder without a transfer.
    require(session.downloadFolders().size() <= urls.size() - 1);
    for (const std::string& folder : session.downloadFolders()) {
        const boost::filesystem::path path = boost::filesystem::path(session.temporary) / folder;
        require(support::namesIn(path).size() <= 1);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    support::AgentSession session;
    session.start();
    session.log.setLevel(log4cplus::FATAL_LOG_LEVEL);
    session.command("EXECUTE_AUTO_UPDATE");
    session.journal.take();
    const std::vector<std::string> before = support::namesIn(session.root.path());

    session.answer(0, 200, textOf(data, size));
    checkDownloads(session);
    require(support::namesIn(session.root.path()) == before);
    require(support::namesIn(session.host.packagedFolder).empty());
    require(support::namesIn(session.host.plainFolder).empty());
    return 0;
}
