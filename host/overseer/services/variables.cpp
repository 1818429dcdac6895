#include "services/variables.h"

namespace overseer {

void Variables::declare(std::uint32_t deviceId, const VariableDeclaration& declaration) {
    const DeviceVariable variable{deviceId, declaration};
    const auto [place, added] = variables_.insert_or_assign({deviceId, declaration.id}, variable);
    tell(added ? VariableChange::kAdded : VariableChange::kChanged, variable);
}

bool Variables::change(std::uint32_t deviceId, unsigned int id, const std::string& value) {
    const auto found = variables_.find({deviceId, id});
    if (found == variables_.end()) return false;
    std::string& present = found->second.declaration.value;
    if (present == value) return true;
    present = value;
    tell(VariableChange::kChanged, DeviceVariable(found->second));
    return true;
}

bool Variables::remove(std::uint32_t deviceId, unsigned int id) {
    const auto removed = variables_.extract({deviceId, id});
    if (removed.empty()) return false;
    tell(VariableChange::kRemoved, removed.mapped());
    return true;
}

void Variables::removeDevice(std::uint32_t deviceId) {
    for (auto at = variables_.lower_bound({deviceId, 0});
         at != variables_.end() && at->first.first == deviceId;
         at = variables_.lower_bound({deviceId, 0}))
        remove(deviceId, at->first.second);
}

std::vector<DeviceVariable> Variables::list(bool withHidden) const {
    std::vector<DeviceVariable> listing;
    for (const auto& [key, variable] : variables_)
        if (withHidden || !variable.declaration.hidden) listing.push_back(variable);
    return listing;
}

void Variables::observe(Observer observer) {
    observers_.push_back(std::move(observer));
}

void Variables::tell(VariableChange change, const DeviceVariable& variable) const {
    for (const Observer& observer : observers_) observer(change, variable);
}

}  // namespace overseer
