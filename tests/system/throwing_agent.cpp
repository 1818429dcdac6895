// An agent whose creation throws, as a bad plug-in does.
#include <nv/plugin.h>

#include <stdexcept>

namespace {

IHostedDriver* createAgent(void*) {
    throw std::runtime_error("no weather today");
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) void GetAgentName(std::vector<std::string>& names) {
    names.emplace_back("Throwing");
}

__attribute__((visibility("default"))) nv::plugin::CreationFunc GetCreationFunc() {
    return &createAgent;
}

}  // extern "C"
