#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <nv/asio_forward.h>

#include "control/body_budget.h"
#include "control/http_message.h"
#include "control/limits.h"
#include "control/passage.h"

namespace overseer::control {

/// One peer: reads its requests one after the other, has them answered and writes the answers.
/// Server's thread only.
class Connection {
  public:
    /// What a connection lives on; all of it outlives the connection.
    struct Surroundings {
        boost::asio::io_context& context;
        const Limits& limits;
        BodyBudget& bodies;
        std::shared_ptr<Passage> passage;
        std::function<void(Connection&)> closed;  ///< called once; it may drop the connection
    };

    virtual ~Connection() = default;
    virtual void start() = 0;
    /// Ends what waits with an answer that says so, lets an answer under way go out, and closes.
    virtual void stop() = 0;
    /// Closes at once.
    virtual void abandon() = 0;
};

/// A connection over a connected socket, which it owns from here on.
/// @param refused  where given, the peer's first request gets this answer, unread, and that is all
std::shared_ptr<Connection> makeConnection(int socket, Connection::Surroundings surroundings,
                                           std::optional<Response> refused);

}  // namespace overseer::control
