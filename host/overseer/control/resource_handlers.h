#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "control/json_forms.h"
#include "control/resources.h"

/// The resources behind the table of resources.cpp: each answers one method on one path.
namespace overseer::control {

struct Call {
    ControlServices& services;
    const Request& request;
    std::vector<std::string> arguments;  ///< the path's variable segments, in order
};

// agent_resources.cpp
Answer listAgents(const Call& call);
Answer runCommand(const Call& call);
Answer showSettings(const Call& call);
Answer startRun(const Call& call);
Answer showLastRun(const Call& call);
Answer showStatus(const Call& call);

// host_resources.cpp
Answer showHost(const Call& call);
Answer showNetwork(const Call& call);
Answer listVariables(const Call& call);
Answer listHistory(const Call& call);
Answer listNotifications(const Call& call);

// driver_resources.cpp
Answer listSchedule(const Call& call);
Answer fireEvent(const Call& call);
Answer listDrivers(const Call& call);
Answer showDriver(const Call& call);
Answer placeDriver(const Call& call);
Answer restoreDriver(const Call& call);

// resources.cpp: what they share
Response jsonResponse(const Json& json, unsigned int status = 200);
/// The number that the query gives under that name, `fallback` where it gives none; an error for
/// any other text and for numbers beyond `maximum`.
Result<std::uint64_t> queryNumber(const Request& request, const std::string& name,
                                  std::uint64_t fallback, std::uint64_t maximum);
/// How long the query lets a request wait (`timeout`, seconds), one minute where it does not say.
Result<std::chrono::milliseconds> waitLimit(const Request& request);
Response badQuery(const Error& error);

}  // namespace overseer::control
