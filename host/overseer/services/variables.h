#pragma once

#include <nv/driver_host.h>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace overseer {

/// A variable and whose it is.
struct DeviceVariable {
    std::uint32_t deviceId = 0;
    VariableDeclaration declaration;  ///< `value` is the present one
};

/// The variables of all devices. They live as long as the host does. I/O thread only.
class Variables {
  public:
    /// Adds a variable; one of that id that the device already has takes the new declaration.
    void declare(std::uint32_t deviceId, const VariableDeclaration& declaration);
    /// Does nothing when the device has no such variable.
    void change(std::uint32_t deviceId, unsigned int id, const std::string& value);
    void remove(std::uint32_t deviceId, unsigned int id);
    void removeDevice(std::uint32_t deviceId);
    /// Those that users are shown, in order of device and id.
    std::vector<DeviceVariable> list() const;

  private:
    std::map<std::pair<std::uint32_t, unsigned int>, DeviceVariable> variables_;
};

}  // namespace overseer
