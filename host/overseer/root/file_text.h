#pragma once

#include <boost/filesystem/path.hpp>
#include <boost/system/error_code.hpp>
#include <string>

#include "common/result.h"

namespace overseer {

/// The content of a regular file of at most 16 MB, never through a link.
Result<std::string> readText(const boost::filesystem::path& file);

/// Why a file could not be opened or read: "FILE: reason".
tl::unexpected<Error> readFailure(const boost::filesystem::path& file,
                                  const boost::system::error_code& error);

}  // namespace overseer
