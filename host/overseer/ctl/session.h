#pragma once

#include <iosfwd>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "ctl/client.h"
#include "ctl/interruption.h"

namespace overseer::ctl {

using Json = nlohmann::ordered_json;

/// Where the program reads and writes, and what stands at the other end.
struct Console {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    bool liveOutput = false;   ///< `out` is a terminal: a line may be written over
    bool interactive = false;  ///< a person can be asked: `in` and `out` are terminals
    bool coloured = false;
};

/// What every command works with.
struct Session {
    Client& client;
    Console& console;
    const Interruption& interruption;
    std::string agent;  ///< which the user named; empty for the one that fits
    bool json = false;  ///< listings for programs
};

/// Prints the reason on standard error. @return the exit code that belongs to it
int report(const Session& session, const Failure& failure);

/// The JSON document behind a target.
Answered<Json> getJson(Session& session, const std::string& target);

/// The agent that a command goes to: the one the user named, else the only loaded one that knows
/// `command`, or the only one at all where `command` is empty.
Answered<std::string> chooseAgent(Session& session, std::string_view command);

/// Has an agent run a command; the body of the reply is its answer.
Answered<Reply> sendCommand(Session& session, const std::string& agent, const std::string& command,
                            const std::map<std::string, std::string>& parameters);

/// Asks the person at the terminal, who answers no unless it is a clear yes.
bool isConfirmed(Session& session, const std::string& question);

/// Whether it can travel: bodies carry UTF-8 only.
bool isUtf8(const std::string& text);

/// "/agents/NAME" followed by `rest`.
std::string agentTarget(const std::string& agent, std::string_view rest);

/// The text member of that name, empty where it is null or absent.
std::string textOf(const Json& object, const char* member);
/// The number member of that name as text; `nothing` where it is null, absent or 0.
std::string numberOf(const Json& object, const char* member, std::string_view nothing = "");
/// The moment member of that name, to the second in local time; empty where it is null or absent.
std::string localTimeOf(const Json& object, const char* member);

}  // namespace overseer::ctl
