#pragma once

#include <cstdint>

/// Result of a host operation: zero or positive is success, negative is failure.
using RESULTX = std::int32_t;
