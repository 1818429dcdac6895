#include "runtime/command_message.h"

#include <string_view>
#include <utility>

namespace overseer {

CommandMessage::CommandMessage(std::string name, std::map<std::string, std::string> parameters)
    : name_(std::move(name)), parameters_(std::move(parameters)) {}

const std::string& CommandMessage::parameter(const std::string& name) const {
    const auto found = parameters_.find(name);
    if (found == parameters_.end()) throw ExceptionParameterMissing(name);
    return found->second;
}

std::string CommandMessage::GetStringParameter(const std::string& name) const {
    return parameter(name);
}

bool CommandMessage::GetBoolParameter(const std::string& name) const {
    const std::string& text = parameter(name);
    return !text.empty() && std::string_view("1tTyY").find(text.front()) != std::string_view::npos;
}

}  // namespace overseer
