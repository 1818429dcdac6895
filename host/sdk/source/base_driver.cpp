#include <nv/base_driver.h>

#include <utility>

NVBaseDriver::NVBaseDriver(void* context)
    : host_(static_cast<CreationContext*>(context)->host),
      deviceId_(static_cast<CreationContext*>(context)->deviceId) {}

NVBaseDriver::~NVBaseDriver() = default;

RESULTX NVBaseDriver::Initialize(unsigned int, nv::XmlNode::Ptr&) {
    return 0;
}

RESULTX NVBaseDriver::Initialize(unsigned int deviceId, nv::XmlNode::Ptr& configuration,
                                 nv::XmlNode::Ptr) {
    return Initialize(deviceId, configuration);
}

void NVBaseDriver::VmAdd(unsigned int id, const std::string& name, NVTypes::VariableType type,
                         const std::string& value, bool readOnly, bool hidden,
                         const std::string& description) {
    host_.AddVariable({id, name, type, value, readOnly, hidden, description});
}

void NVBaseDriver::VmRemove(unsigned int id) {
    host_.RemoveVariable(id);
}

void NVBaseDriver::ChangeMyVariable(unsigned int id, const std::string& value) {
    host_.ChangeVariable(id, value);
}

void NVBaseDriver::RecordInfoHistoricalEvent(const std::string& text, const std::string& category,
                                             const std::string& subcategory,
                                             const std::string& result) {
    host_.RecordHistory({text, category, subcategory, result});
}

void NVBaseDriver::ConSendDataToUI(const nv::XmlNode::Ptr& notification) {
    host_.SendToUserInterfaces(notification);
}

RESULTX NVBaseDriver::EmRegisterListener(unsigned int emitterId, unsigned int eventId) {
    return host_.RegisterListener(emitterId, eventId);
}

NVBaseAgentDriver::NVBaseAgentDriver(void* context) : NVBaseDriver(context) {}

NVBaseAgentDriver::~NVBaseAgentDriver() = default;

RESULTX NVBaseAgentDriver::Initialize(unsigned int deviceId, nv::XmlNode::Ptr& configuration,
                                      nv::XmlNode::Ptr persisted) {
    return NVBaseDriver::Initialize(deviceId, configuration, std::move(persisted));
}
