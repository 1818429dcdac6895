#include "depot/answer.h"

namespace depot {

Answer htmlError(int status, std::string_view reason) {
    const std::string title = std::to_string(status) + " " + std::string(reason);
    return {status,
            "text/html; charset=UTF-8",
            "<html>\n<head><title>Error " + title + "</title></head>\n<body><h2>HTTP ERROR " +
                title + "</h2></body>\n</html>\n",
            {{"Cache-Control", "no-cache, no-store"}}};
}

}  // namespace depot
