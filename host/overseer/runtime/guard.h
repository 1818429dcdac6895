#pragma once

#include <exception>
#include <functional>
#include <string>

#include "common/result.h"

namespace overseer {

/// Type and text of the exception being handled, for a log line: "std::runtime_error: no room".
std::string currentException();

/// Runs one call into an agent. What it throws ends here as a failure "WHAT threw TYPE: TEXT".
template <typename Call>
Result<> guarded(const std::string& what, Call&& call) {
    try {
        std::forward<Call>(call)();
        return {};
    } catch (...) {
        return failure("{} threw {}", what, currentException());
    }
}

}  // namespace overseer
