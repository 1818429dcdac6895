#include "command_message.h"

#include <utility>

namespace support {

CommandMessage::CommandMessage(std::string name, Parameters parameters)
    : name_(std::move(name)), parameters_(std::move(parameters)) {}

std::string CommandMessage::GetStringParameter(const std::string& name) const {
    const auto found = parameters_.find(name);
    if (found == parameters_.end()) throw ExceptionParameterMissing(name);
    return found->second;
}

bool CommandMessage::GetBoolParameter(const std::string& name) const {
    return GetStringParameter(name).find_first_of("1tTyY") == 0;
}

}  // namespace support
