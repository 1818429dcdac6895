#pragma once

#include <map>
#include <string>

#include "common/result.h"

namespace overseer::control {

/// Reads the body of a request: a JSON object whose members are texts, numbers or booleans, each
/// taken as text. An empty body is an empty object. Anything nested is refused where it begins, so
/// that a deep or wide body costs no memory; so are a name given twice and text that is not UTF-8.
Result<std::map<std::string, std::string>> readFlatObject(const std::string& body);

}  // namespace overseer::control
