#include <nv/command.h>

ExceptionParameterMissing::ExceptionParameterMissing(const std::string& parameter)
    : std::runtime_error("parameter missing: " + parameter) {}

// Out of line, so that the type has one home and is caught across libraries.
ExceptionParameterMissing::~ExceptionParameterMissing() = default;

namespace {

template <typename Handlers>
std::vector<std::string> namesOf(const Handlers& handlers) {
    std::vector<std::string> names;
    names.reserve(handlers.size());
    for (const auto& [name, handler] : handlers) names.push_back(name);
    return names;
}

}  // namespace

void CmdDispatcher::RegisterCmd1(const std::string& name, Handler handler) {
    handlers_.insert_or_assign(name, std::move(handler));
}

bool CmdDispatcher::DispatchCmd(const ICmdMessage& message) {
    const auto found = handlers_.find(message.GetName());
    if (found == handlers_.end()) return false;
    found->second(message);
    return true;
}

std::vector<std::string> CmdDispatcher::GetCmdNames() const {
    return namesOf(handlers_);
}

void UICmdDispatcher::RegisterUICmd(const std::string& name, Handler handler) {
    handlers_.insert_or_assign(name, std::move(handler));
}

bool UICmdDispatcher::DispatchUICmd(const ICmdMessage& message, nv::XmlNode::Ptr& answer) {
    const auto found = handlers_.find(message.GetName());
    if (found == handlers_.end()) return false;
    answer = found->second(message);
    return true;
}

std::vector<std::string> UICmdDispatcher::GetUICmdNames() const {
    return namesOf(handlers_);
}
