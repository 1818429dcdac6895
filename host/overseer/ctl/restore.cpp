#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <ostream>

#include "control/http_message.h"
#include "ctl/commands.h"
#include "ctl/exit_codes.h"
#include "ctl/table.h"

// Back to an earlier package, and out of the way of the next run, which would replace it again.
namespace overseer::ctl {
namespace {

bool wantsExclusion(Session& session, const std::string& file) {
    if (!session.console.interactive) {
        session.console.err << "The next run would fetch the newer one again; `overseerctl exclude "
                               "add` keeps it from that."
                            << std::endl;
        return false;
    }
    return isConfirmed(session,
                       fmt::format("The next run would fetch the newer one again. Exclude {} from "
                                   "updates?",
                                   printable(file)));
}

}  // namespace

int restoreDriver(Session& session, const std::string& file, bool exclude) {
    const auto reply =
        session.client.post("/drivers/" + control::percentEncoded(file) + "/restore", "");
    if (!reply) {
        return report(session, reply.error());
    }
    const Json restored = Json::parse(reply->body, nullptr, false);
    session.console.out << fmt::format("{}: version {} is in place again ({} package)\n",
                                       printable(file), numberOf(restored, "version", "0"),
                                       textOf(restored, "package"));
    if (!exclude && !wantsExclusion(session, file)) {
        return session.interruption.requested() ? kInterrupted : kSuccess;
    }
    return changeExclusion(session, ExclusionChange::kAdd, {file});
}

}  // namespace overseer::ctl
