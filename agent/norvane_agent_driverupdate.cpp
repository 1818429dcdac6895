// Life in the host: construction, late initialisation, destruction, and the interfaces that the
// agent has or has not.
// Entered from the entry points (construction) and from the host. Leaves to the daily events once
// the project is there, and to the catalogue requests in flight when the agent goes. Writes no
// member but by taking them down.
#include "norvane_agent_driverupdate.h"

norvane_agent_driverupdate::norvane_agent_driverupdate(void* context)
    : NVBaseAgentDriver(context) {}

norvane_agent_driverupdate::~norvane_agent_driverupdate() {
    VmRemove(kLastMessageId);
    cancelRequests();
}

RESULTX norvane_agent_driverupdate::LateInitialize() {
    NVBaseAgentDriver::LateInitialize();
    scheduleAutoUpdateEvent();
    return scheduleForcedAutoUpdateEvent();
}

IAgent* norvane_agent_driverupdate::GetAgent() {
    return this;
}

IDevice* norvane_agent_driverupdate::GetDevice() {
    return nullptr;
}
