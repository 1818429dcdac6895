// The command table.
// Entered from the host: registration once, then its dispatchers call the handlers. Leaves to the
// handlers in agent/settings.cpp, package/, catalogue/, install/ and schedule/. Writes no member.
#include "norvane_agent_driverupdate.h"

#include <functional>

void norvane_agent_driverupdate::RegisterCommands() {
    using Agent = norvane_agent_driverupdate;
    UICmdDispatcher& answered = GetUICmdDispatcher();
    CmdDispatcher& plain = GetCmdDispatcher();
    const auto handler = [this](auto member) {
        return std::bind(member, this, std::placeholders::_1);
    };

    answered.RegisterUICmd("GET_STATE", handler(&Agent::OnCmdGetState));
    answered.RegisterUICmd("GET_SETUP", handler(&Agent::OnCmdGetSetup));
    answered.RegisterUICmd("EVALUATE_DRIVER", handler(&Agent::OnCmdEvaluate));
    plain.RegisterCmd1("SET_STATE", handler(&Agent::OnCmdSetState));
    plain.RegisterCmd1("SET_EXCLUDE", handler(&Agent::OnCmdSetExclude));
    plain.RegisterCmd1("EXECUTE_AUTO_UPDATE", handler(&Agent::OnCmdExecuteAutoUpdate));
    plain.RegisterCmd1("UPDATE_DRIVERS", handler(&Agent::OnCmdUpdateDrivers));
    plain.RegisterCmd1("AUTO_ADD_AGENT", handler(&Agent::OnCmdAutoAddAgent));
}
