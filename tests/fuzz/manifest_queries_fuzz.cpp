// Manifest queries on any bytes: no query throws, all agree on what parses, and what one of them
// answers does not depend on the others.
#include "agent_session.h"
#include "fuzz_input.h"
#include "norvane_agent_driverupdate.h"

namespace {

void checkRecords(const norvane_agent_driverupdate::updateProxies& proxies,
                  const norvane_agent_driverupdate::updateCapabilities& capabilities) {
    for (const auto& proxy : proxies) {
        require(proxy.attributes.count("proxydata") == 1);
        require(proxy.attributes.count("primary") + proxy.attributes.count("proxybindingid") == 0);
    }
    for (const auto& capability : capabilities) {
        require(capability.bindings.empty() && capability.attributes.size() == 1);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static support::AgentSession session;
    session.journal.take();
    session.log.setLevel(log4cplus::FATAL_LOG_LEVEL);
    const norvane_agent_driverupdate& agent = session.agent();
    const std::string manifest = textOf(data, size);

    constexpr int kUntouched = -77;
    int version = kUntouched;
    bool restart = false;
    norvane_agent_driverupdate::updateProxies proxies;
    norvane_agent_driverupdate::updateCapabilities capabilities;
    const bool hasVersion = agent.getDriverVersion("lamp.nvi", manifest, version);
    const bool parses = agent.getDriverProxies("lamp.nvi", manifest, proxies);
    require(parses || (!hasVersion && version == kUntouched && proxies.empty()));
    require(agent.getDriverCapabilities("lamp.nvi", manifest, capabilities) == parses);
    require(agent.getDriverRestartAfterUpdate("lamp.nvi", manifest, restart) == parses);
    require(parses || (capabilities.empty() && !restart));
    checkRecords(proxies, capabilities);
    return 0;
}
