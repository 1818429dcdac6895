#pragma once

#include <nv/command.h>

#include <map>
#include <string>

namespace overseer {

/// A command as it came over the control interface.
class CommandMessage : public ICmdMessage {
  public:
    CommandMessage(std::string name, std::map<std::string, std::string> parameters);
    const std::string& GetName() const override { return name_; }
    std::string GetStringParameter(const std::string& name) const override;
    bool GetBoolParameter(const std::string& name) const override;

  private:
    const std::string& parameter(const std::string& name) const;

    std::string name_;
    std::map<std::string, std::string> parameters_;
};

}  // namespace overseer
