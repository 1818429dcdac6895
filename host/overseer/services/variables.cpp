#include "services/variables.h"

namespace overseer {

void Variables::declare(std::uint32_t deviceId, const VariableDeclaration& declaration) {
    variables_.insert_or_assign({deviceId, declaration.id}, DeviceVariable{deviceId, declaration});
}

void Variables::change(std::uint32_t deviceId, unsigned int id, const std::string& value) {
    const auto found = variables_.find({deviceId, id});
    if (found != variables_.end()) found->second.declaration.value = value;
}

void Variables::remove(std::uint32_t deviceId, unsigned int id) {
    variables_.erase({deviceId, id});
}

void Variables::removeDevice(std::uint32_t deviceId) {
    std::erase_if(variables_,
                  [deviceId](const auto& entry) { return entry.first.first == deviceId; });
}

std::vector<DeviceVariable> Variables::list() const {
    std::vector<DeviceVariable> listing;
    for (const auto& [key, variable] : variables_)
        if (!variable.declaration.hidden) listing.push_back(variable);
    return listing;
}

}  // namespace overseer
