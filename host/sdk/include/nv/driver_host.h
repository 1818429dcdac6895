#pragma once

#include <cstdint>
#include <string>

#include <nv/config_manager.h>
#include <nv/overseer.h>
#include <nv/result.h>
#include <nv/scheduler.h>
#include <nv/statsd.h>
#include <nv/xml_node.h>

namespace NVTypes {

/// Type of a variable's value.
enum class VariableType : int { kNumber = 0, kString = 1, kBoolean = 2 };

}  // namespace NVTypes

/// A variable as a driver registers it.
struct VariableDeclaration {
    unsigned int id = 0;
    std::string name;
    NVTypes::VariableType type = NVTypes::VariableType::kString;
    std::string value;
    bool readOnly = false;  ///< only its driver changes it
    bool hidden = false;    ///< left out of listings for users
    std::string description;
};

/// A line of the history.
struct HistoryEvent {
    std::string text;
    std::string category;
    std::string subcategory;
    std::string result;
};

/// What a driver's base class stands on: one object for each driver, made by the host and outliving
/// the driver. Called on the I/O thread only.
class IDriverHost {
  public:
    virtual ~IDriverHost() = default;
    virtual IOverseer& GetOverseer() = 0;
    virtual IConfigManager& GetConfigManager() = 0;
    virtual IInstanceManager& GetInstanceManager() = 0;
    virtual IStatsdClient& GetStatsdClient() = 0;
    virtual void AddVariable(const VariableDeclaration& variable) = 0;
    virtual void ChangeVariable(unsigned int id, const std::string& value) = 0;
    virtual void RemoveVariable(unsigned int id) = 0;
    virtual void RecordHistory(const HistoryEvent& event) = 0;
    virtual void SendToUserInterfaces(const nv::XmlNode::Ptr& notification) = 0;
    /// Has events of that id, sent by that emitter, delivered to the driver's scheduler callback.
    /// Registering again succeeds and changes nothing. 0 is success.
    virtual RESULTX RegisterListener(unsigned int emitterId, unsigned int eventId) = 0;
};

/// The creation context: what the opaque pointer of a creation function points to.
struct CreationContext {
    IDriverHost& host;  ///< outlives the driver
    std::uint32_t deviceId;
};
