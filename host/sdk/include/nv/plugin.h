#pragma once

#include <string>
#include <vector>

#include <nv/driver_operations.h>

/// The two exports of a plug-in library, unmangled.
namespace nv::plugin {

/// Makes a driver. Null when there is no memory; what its constructor throws is let through. The
/// host destroys the object through IHostedDriver's destructor, and the library outlives it.
/// @param context  a CreationContext
using CreationFunc = IHostedDriver* (*)(void* context);

/// "GetAgentName": appends the names of the agents in the library.
using GetAgentNameFunc = void (*)(std::vector<std::string>& names);
inline constexpr const char* kGetAgentName = "GetAgentName";

/// "GetCreationFunc": the address of the creation function.
using GetCreationFuncFunc = CreationFunc (*)();
inline constexpr const char* kGetCreationFunc = "GetCreationFunc";

}  // namespace nv::plugin
