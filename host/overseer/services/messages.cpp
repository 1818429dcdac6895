#include "services/messages.h"

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <nv/xml_node.h>

namespace overseer {
namespace {

log4cplus::LogLevel levelOf(int severity) {
    if (severity <= 0) return log4cplus::INFO_LOG_LEVEL;
    return severity == 1 ? log4cplus::WARN_LOG_LEVEL : log4cplus::ERROR_LOG_LEVEL;
}

}  // namespace

void Messages::show(const std::string& agent, const std::string& text, int severity) {
    log4cplus::Logger::getRoot().log(levelOf(severity), agent.empty() ? text : agent + ": " + text,
                                     __FILE__, __LINE__, static_cast<const char*>(__func__));
    const nv::XmlNode::Ptr message = nv::CreateXmlNode("host_message", "");
    message->AddChild("text", text);
    message->AddChild("severity", std::to_string(severity));
    notifications_.publish(agent, message->ToText());
}

}  // namespace overseer
