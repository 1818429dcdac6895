#include "agent_session.h"

#include <cstdlib>
#include <stdexcept>

#include "norvane_agent_driverupdate.h"

namespace support {

namespace {

nv::hosting::Environment environmentOf(const std::shared_ptr<ManualClock>& clock) {
    nv::hosting::Environment environment;
    environment.solrDriversUrl = AgentSession::kBaseUrl;
    environment.majorVersion = 3;
    environment.minorVersion = 4;
    environment.clock = clock;
    environment.initializeLogging = [] {};
    return environment;
}

std::string temporaryVariable() {
    const char* value = std::getenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe)
    return value == nullptr ? "" : value;
}

}  // namespace

std::string answerOf(const std::vector<Offer>& offers) {
    std::string text = "<response><result name=\"response\" numFound=\"" +
                       std::to_string(offers.size()) + "\" start=\"0\">";
    for (const Offer& offer : offers) {
        text += "<doc><str name=\"filename\">" + offer.filename + "</str><int name=\"version\">" +
                std::to_string(offer.version) + "</int><str name=\"md5sum\">" + offer.md5sum +
                "</str>" + offer.more + "</doc>";
    }
    return text + "</result></response>";
}

AgentSession::AgentSession()
    : temporary(root.makeFolder("tmp")),
      clock(std::make_shared<ManualClock>()),
      host(journal, loop.context()),
      transport(std::make_shared<RecordingTransport>(journal)),
      log(journal),
      environment_(environmentOf(clock)),
      previousTemporary_(temporaryVariable()),
      context_{host, RecordingHost::kDeviceId} {
    host.packagedFolder = root.makeFolder("packaged");
    host.plainFolder = root.makeFolder("plain");
    host.configurationFolder = root.makeFolder("config");
    host.certificateFolder = root.makeFolder("certs");
    setenv("TMPDIR", temporary.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    nv::hosting::replaceTransport(loop.context(), transport);
    agent_ = std::make_unique<norvane_agent_driverupdate>(&context_);
}

AgentSession::~AgentSession() {
    destroyAgent();
    loop.runReady();
    if (previousTemporary_.empty()) {
        unsetenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe)
    } else {
        setenv("TMPDIR", previousTemporary_.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    }
}

IDriverOperations& AgentSession::operations() {
    return *agent_;
}

void AgentSession::start(const nv::XmlNode::Ptr& persisted) {
    nv::XmlNode::Ptr configuration;
    operations().Initialize(RecordingHost::kDeviceId, configuration, persisted);
    operations().RegisterCommands();
    operations().RegisterConditionals();
    operations().RegisterVariables();
    operations().LateInitialize();
    journal.take();
}

void AgentSession::destroyAgent() {
    agent_.reset();
}

void AgentSession::command(const std::string& name, const CommandMessage::Parameters& parameters) {
    const CommandMessage message(name, parameters);
    if (!operations().GetAgent()->GetCmdDispatcher().DispatchCmd(message)) {
        throw std::logic_error("no such command: " + name);
    }
}

nv::XmlNode::Ptr AgentSession::ask(const std::string& name,
                                   const CommandMessage::Parameters& parameters) {
    nv::XmlNode::Ptr answer;
    const CommandMessage message(name, parameters);
    if (!operations().GetAgent()->GetUICmdDispatcher().DispatchUICmd(message, answer)) {
        throw std::logic_error("no such command: " + name);
    }
    return answer;
}

void AgentSession::answer(std::size_t transfer, int status, const std::string& body) {
    transport->answer(transfer, status, body);
    loop.runReady();
}

void AgentSession::fail(std::size_t transfer, int curlCode, const std::string& message) {
    transport->fail(transfer, curlCode, message);
    loop.runReady();
}

std::vector<std::string> AgentSession::askedFileLists() const {
    const std::string begin = "fq=filename:(IN+";
    const std::string quote = "%22";
    std::vector<std::string> lists;
    for (const std::string& url : transport->urls()) {
        const std::size_t from = url.find(begin);
        if (from == std::string::npos) continue;
        const std::size_t start = from + begin.size();
        std::string list = url.substr(start, url.find(")+AND+") - start);
        for (std::size_t at = list.find(quote); at != std::string::npos; at = list.find(quote)) {
            list.replace(at, quote.size(), "\"");
        }
        lists.push_back(list);
    }
    return lists;
}

}  // namespace support
