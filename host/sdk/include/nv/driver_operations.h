#pragma once

#include <string>

#include <nv/command.h>
#include <nv/result.h>
#include <nv/xml_node.h>

/// Kind of driver.
enum class DriverType : int { kDevice = 0, kAgent = 1 };

class IAgent;
class IDevice;

/// The primary interface of every driver: what the host calls, on the I/O thread only.
///
/// The order of these operations is the order of the slots in the virtual table that plug-ins built
/// at another time rely on: operations are never moved, and new ones go to the end.
class IDriverOperations {
  public:
    virtual ~IDriverOperations() = default;

    /// After initialisation and all registrations, once the project is there. Negative: not ready.
    virtual RESULTX LateInitialize() = 0;
    /// Device form of initialisation: the driver's configuration.
    virtual RESULTX Initialize(unsigned int deviceId, nv::XmlNode::Ptr& configuration) = 0;
    /// Puts the settings back to what a new driver has. Only at a user's wish.
    virtual void ResetSettings() = 0;
    virtual void OnProjectLoaded() = 0;
    virtual void OnProjectClosing() = 0;
    /// What the host is to store for the driver and to hand back at its initialisation; null for
    /// nothing.
    virtual nv::XmlNode::Ptr GetPersistData() = 0;
    /// True when GetPersistData is worth asking.
    virtual bool GetPersistState() const = 0;
    virtual DriverType GetDriverType() const = 0;
    /// The agent's interface, null for a driver that is none.
    virtual IAgent* GetAgent() = 0;
    /// The device's interface, null for a driver without a device.
    virtual IDevice* GetDevice() = 0;
    virtual void UsbSerialDeviceOnline(const std::string& port) = 0;
    virtual void UsbSerialDeviceOffline(const std::string& port) = 0;
    virtual void UsbSerialDeviceRemoved(const std::string& port) = 0;
    virtual void OnVariableChanged(unsigned int deviceId, unsigned int variableId) = 0;
    virtual void OnVariableAdded(unsigned int deviceId, unsigned int variableId) = 0;
    virtual void OnVariableRemoved(unsigned int deviceId, unsigned int variableId) = 0;
    virtual void OnDeviceAdded(unsigned int deviceId) = 0;
    virtual void OnDeviceRemoved(unsigned int deviceId) = 0;
    virtual void OnConnectionsChanged() = 0;
    virtual void OnNetworkBound() = 0;
    /// An event of the schedule that the driver listens to fires.
    virtual void OnSchedulerEvent(unsigned int eventId) = 0;
    virtual void OnSchedulerEventRemoved(unsigned int eventId) = 0;
    virtual void OnNetworkBindingChanged() = 0;
    /// Agent form of initialisation: configuration, and the node stored last time (null or empty
    /// when there is none).
    virtual RESULTX Initialize(unsigned int deviceId, nv::XmlNode::Ptr& configuration,
                               nv::XmlNode::Ptr persisted) = 0;
    virtual void RegisterCommands() = 0;
    virtual void RegisterConditionals() = 0;
    virtual void RegisterVariables() = 0;
};

/// The host-facing interface: what a creation function returns, and through which the host destroys
/// the driver.
class IHostedDriver {
  public:
    virtual ~IHostedDriver() = default;
    virtual IDriverOperations& GetOperations() = 0;
};

/// What an agent has beside a driver: its commands.
class IAgent {
  public:
    virtual ~IAgent() = default;
    virtual CmdDispatcher& GetCmdDispatcher() = 0;
    virtual UICmdDispatcher& GetUICmdDispatcher() = 0;
};
