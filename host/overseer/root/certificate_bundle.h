#pragma once

#include <boost/filesystem/path.hpp>

#include "common/result.h"

namespace overseer {

/// How many certificates a PEM file holds: at least one, all of them readable.
Result<int> countCertificates(const boost::filesystem::path& file);

}  // namespace overseer
