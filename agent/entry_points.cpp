// The two exports of the plug-in, and the creation function behind one of them.
// Entered from the host when it loads the library; leaves to the agent's constructor.
#include <nv/plugin.h>

#include <new>

#include "norvane_agent_driverupdate.h"

namespace {

/// Null without memory; what the constructor throws goes to the host. The host destroys the object
/// through the interface that it is given here.
IHostedDriver* createAgent(void* context) {
    return new (std::nothrow) norvane_agent_driverupdate(context);
}

}  // namespace

extern "C" {

/// Appends the names of the library's agents.
__attribute__((visibility("default"))) void GetAgentName(std::vector<std::string>& names) {
    names.emplace_back("Driver Update");
}

__attribute__((visibility("default"))) nv::plugin::CreationFunc GetCreationFunc() {
    return &createAgent;
}

}  // extern "C"
