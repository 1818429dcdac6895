// Outcome reporting: the log, the variable LAST_MESSAGE, the history, the metrics and the
// notifications of user interfaces.
// Entered from the host (registration of variables) and from every file that reports an outcome,
// which chooses channels, texts and order itself. Leaves to the host's operations; what they answer
// never changes what the reporter does next. Writes no member.
#include "norvane_agent_driverupdate.h"

#include <nv/logger.h>

namespace driverupdate {

namespace {

const log4cplus::Logger rootLogger = log4cplus::Logger::getRoot();

}  // namespace

const std::string kSeverityCritical = "Critical";
const std::string kSeverityWarning = "Warning";
const std::string kSeverityInfo = "Info";
const std::string kMetricNamespace = "overseer.agent.driverupdate";
const std::string kAutoUpdate = "Auto Update";

const log4cplus::Logger& logger() {
    if (!nv::Logger::hasBeenInitialized()) nv::Logger::initialize();
    return rootLogger;
}

}  // namespace driverupdate

void norvane_agent_driverupdate::RegisterVariables() {
    VmAdd(kLastMessageId, "LAST_MESSAGE", NVTypes::VariableType::kString, "", true, false,
          "The result of the last update.");
}

void norvane_agent_driverupdate::setLastMessage(const std::string& text) {
    ChangeMyVariable(kLastMessageId, text);
}

void norvane_agent_driverupdate::recordHistory(const std::string& text,
                                               const std::string& subcategory,
                                               const std::string& result) {
    RecordInfoHistoricalEvent(text, "Driver Update Agent", subcategory, result);
}

void norvane_agent_driverupdate::count(const std::string& metric, const std::string& tag) {
    GetStatsdClient()->Count(driverupdate::kMetricNamespace, metric, tag);
}

void norvane_agent_driverupdate::countPlain(const std::string& metric) {
    GetStatsdClient()->Count(driverupdate::kMetricNamespace, metric, 1, 0);
}

void norvane_agent_driverupdate::sendTiming(const std::string& metric, const std::string& fileName,
                                            std::uint64_t milliseconds) {
    GetStatsdClient()->Count(driverupdate::kMetricNamespace + "." + metric, fileName,
                             std::to_string(milliseconds));
}

void norvane_agent_driverupdate::notifyUserInterfaces(const std::string& notification,
                                                      const std::string& child,
                                                      const std::string& text) {
    const nv::XmlNode::Ptr node = nv::CreateXmlNode(notification, "");
    node->AddChild(child, text);
    ConSendDataToUI(node);
}
