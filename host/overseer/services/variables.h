#pragma once

#include <nv/driver_host.h>
#include <cstdint>
#include <functional>
#include <map>
#include <utility>
#include <vector>

namespace overseer {

/// A variable and whose it is.
struct DeviceVariable {
    std::uint32_t deviceId = 0;
    VariableDeclaration declaration;  ///< `value` is the present one
};

/// What happened to a variable.
enum class VariableChange { kAdded, kChanged, kRemoved };

/// The variables of all devices. They live as long as the host does. I/O thread only.
class Variables {
  public:
    using Observer = std::function<void(VariableChange, const DeviceVariable&)>;

    /// Adds a variable; one of that id that the device already has takes the new declaration.
    void declare(std::uint32_t deviceId, const VariableDeclaration& declaration);
    /// False when the device has no such variable. Setting the value that it has tells nobody.
    bool change(std::uint32_t deviceId, unsigned int id, const std::string& value);
    bool remove(std::uint32_t deviceId, unsigned int id);
    void removeDevice(std::uint32_t deviceId);
    /// In order of device and id. @param withHidden  those left out of listings for users too
    std::vector<DeviceVariable> list(bool withHidden) const;
    /// Called after each change, for as long as the object lives.
    void observe(Observer observer);

  private:
    void tell(VariableChange change, const DeviceVariable& variable) const;

    std::map<std::pair<std::uint32_t, unsigned int>, DeviceVariable> variables_;
    std::vector<Observer> observers_;
};

}  // namespace overseer
