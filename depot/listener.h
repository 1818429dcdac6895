#pragma once

#include <string>

#include "depot/file_descriptor.h"
#include "depot/result.h"

namespace depot {

/// A listening TCP socket, non-blocking.
struct Listener {
    FileDescriptor socket;
    int port = 0;  ///< the one that was bound, also where any free one was asked for
};

/// Binds and listens. @param address  numeric, IPv4 or IPv6; @param port  0 for any free one
Result<Listener> listenOn(const std::string& address, int port);

/// The address as it stands in a URL: IPv6 in brackets.
std::string addressInUrl(const std::string& address);

}  // namespace depot
