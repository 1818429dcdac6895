#pragma once

#include <nv/command.h>

#include <map>
#include <string>

namespace support {

/// A command with its parameters, as the host would hand it to a driver.
class CommandMessage : public ICmdMessage {
  public:
    using Parameters = std::map<std::string, std::string>;
    explicit CommandMessage(std::string name, Parameters parameters = {});

    const std::string& GetName() const override { return name_; }
    std::string GetStringParameter(const std::string& name) const override;
    bool GetBoolParameter(const std::string& name) const override;

  private:
    std::string name_;
    Parameters parameters_;
};

}  // namespace support
