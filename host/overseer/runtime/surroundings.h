#pragma once

#include <nvhost/environment.h>
#include <nvhost/transport.h>

#include <string>
#include <vector>

#include "root/controller_root.h"
#include "runtime/configuration.h"
#include "services/statsd_client.h"

/// What the configuration means for each part of the host.
namespace overseer {

nv::hosting::Environment hostEnvironment(const Configuration& configuration,
                                         const ControllerRoot& root);
nv::hosting::TransportSettings transportSettings(const Configuration& configuration,
                                                 const ControllerRoot& root);
StatsdSettings statsdSettings(const Configuration& configuration);
/// The agents' libraries: those configured, else the one that lies beside the host's program.
std::vector<std::string> agentLibraries(const Configuration& configuration);

}  // namespace overseer
