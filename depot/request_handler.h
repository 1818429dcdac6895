#pragma once

#include <httplib.h>

#include "depot/catalogue.h"

namespace depot {

/// Answers one request whose target and header fields stand in `request` as they were sent.
void handleRequest(Catalogue& catalogue, const httplib::Request& request,
                   httplib::Response& response);

}  // namespace depot
