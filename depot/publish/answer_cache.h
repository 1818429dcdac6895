#pragma once

#include <string>

#include "depot/result.h"

namespace depot {

/// Empties a cache folder of nginx: removes the files in it and in its folders that have the name
/// of a cached answer (32 hexadecimal digits), nothing else; links are not followed. nginx notices
/// by itself and asks Solr again.
Result<void> purgeAnswerCache(const std::string& folder);

}  // namespace depot
