#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace depot {

/// A small answer that is held in memory.
struct Answer {
    int status = 200;
    std::string contentType;
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;  ///< besides the content's own
};

/// The page that tells a client why nothing of the catalogue's own could be answered. It is HTML,
/// as what stands in front of a production catalogue sends it.
Answer htmlError(int status, std::string_view reason);

}  // namespace depot
