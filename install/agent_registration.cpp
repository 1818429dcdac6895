// Agent registration: where a package that is to be added as an agent arrives. Not built yet: both
// entries refuse, and the host's side of the call logs it.
// Entered from catalogue/answer.cpp and install/completion.cpp. Writes no member.
#include <stdexcept>

#include "norvane_agent_driverupdate.h"

void norvane_agent_driverupdate::autoAddAgentDownload(const std::string& filename,
                                                      const std::string&, int, const std::string&,
                                                      const add_agent_data_tuple_type&) {
    throw std::runtime_error("adding the agent " + filename + " is not yet available");
}

void norvane_agent_driverupdate::autoAddAgent(const std::string&, const std::string&,
                                              const std::string& filename) {
    throw std::runtime_error("adding the agent " + filename + " is not yet available");
}
