#pragma once

#include <memory>

#include <nvhost/transport.h>

namespace nv::net {

/// The loop's transport, to be kept across calls: gone when it was replaced or the loop destroyed.
std::weak_ptr<hosting::Transport> currentTransport(boost::asio::io_context& context);

}  // namespace nv::net
