#pragma once

#include <cstdint>
#include <string>

#include <nv/driver_host.h>
#include <nv/driver_operations.h>

/// Base of every driver: stands on the host's object for it, and answers every operation that a
/// driver need not have with the neutral answer.
///
/// Lives on the I/O thread from creation to destruction, like all that it calls.
class NVBaseDriver : public IDriverOperations, public IHostedDriver {
  public:
    /// @param context  a CreationContext that outlives the driver
    explicit NVBaseDriver(void* context);
    ~NVBaseDriver() override;
    NVBaseDriver(const NVBaseDriver&) = delete;
    NVBaseDriver& operator=(const NVBaseDriver&) = delete;

    IDriverOperations& GetOperations() override { return *this; }

    RESULTX LateInitialize() override { return 0; }
    RESULTX Initialize(unsigned int deviceId, nv::XmlNode::Ptr& configuration) override;
    void ResetSettings() override {}
    void OnProjectLoaded() override {}
    void OnProjectClosing() override {}
    nv::XmlNode::Ptr GetPersistData() override { return {}; }
    bool GetPersistState() const override { return true; }
    DriverType GetDriverType() const override { return DriverType::kDevice; }
    IAgent* GetAgent() override { return nullptr; }
    IDevice* GetDevice() override { return nullptr; }
    void UsbSerialDeviceOnline(const std::string&) override {}
    void UsbSerialDeviceOffline(const std::string&) override {}
    void UsbSerialDeviceRemoved(const std::string&) override {}
    void OnVariableChanged(unsigned int, unsigned int) override {}
    void OnVariableAdded(unsigned int, unsigned int) override {}
    void OnVariableRemoved(unsigned int, unsigned int) override {}
    void OnDeviceAdded(unsigned int) override {}
    void OnDeviceRemoved(unsigned int) override {}
    void OnConnectionsChanged() override {}
    void OnNetworkBound() override {}
    void OnSchedulerEvent(unsigned int) override {}
    void OnSchedulerEventRemoved(unsigned int) override {}
    void OnNetworkBindingChanged() override {}
    RESULTX Initialize(unsigned int deviceId, nv::XmlNode::Ptr& configuration,
                       nv::XmlNode::Ptr persisted) override;
    void RegisterCommands() override {}
    void RegisterConditionals() override {}
    void RegisterVariables() override {}

  protected:
    std::uint32_t GetDeviceId() const { return deviceId_; }
    IOverseer* GetOverseer() const { return &host_.GetOverseer(); }
    IConfigManager* GetConfigManager() const { return &host_.GetConfigManager(); }
    IInstanceManager* GetInstanceManager() const { return &host_.GetInstanceManager(); }
    IStatsdClient* GetStatsdClient() const { return &host_.GetStatsdClient(); }

    /// Adds a variable of this driver. @param readOnly only this driver changes it
    /// @param hidden left out of listings for users
    void VmAdd(unsigned int id, const std::string& name, NVTypes::VariableType type,
               const std::string& value, bool readOnly, bool hidden,
               const std::string& description);
    void VmRemove(unsigned int id);
    void ChangeMyVariable(unsigned int id, const std::string& value);
    void RecordInfoHistoricalEvent(const std::string& text, const std::string& category,
                                   const std::string& subcategory, const std::string& result);
    /// Sends a notification to every user interface.
    void ConSendDataToUI(const nv::XmlNode::Ptr& notification);
    /// Has an emitter's event delivered to OnSchedulerEvent; 0 is success.
    RESULTX EmRegisterListener(unsigned int emitterId, unsigned int eventId);

  private:
    IDriverHost& host_;
    std::uint32_t deviceId_;
};

/// Base of every agent: a driver without a device that takes commands.
class NVBaseAgentDriver : public NVBaseDriver, public IAgent {
  public:
    explicit NVBaseAgentDriver(void* context);
    ~NVBaseAgentDriver() override;

    using NVBaseDriver::Initialize;
    RESULTX Initialize(unsigned int deviceId, nv::XmlNode::Ptr& configuration,
                       nv::XmlNode::Ptr persisted) override;
    DriverType GetDriverType() const override { return DriverType::kAgent; }
    IAgent* GetAgent() override { return this; }

    CmdDispatcher& GetCmdDispatcher() override { return commands_; }
    UICmdDispatcher& GetUICmdDispatcher() override { return uiCommands_; }

  private:
    CmdDispatcher commands_;
    UICmdDispatcher uiCommands_;
};
