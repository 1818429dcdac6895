#pragma once

#include <boost/system/error_code.hpp>
#include <string>

#include "common/result.h"

namespace overseer {

/// What `errno` says, in words.
std::string lastErrorText();

/// Whether an error number of the system tells of the machine, and not of the file that was looked
/// at; see Error::ofMachine.
bool isOfMachine(int number);

/// "WHAT: why", for an error number of the system.
tl::unexpected<Error> systemFailure(const std::string& what, int number);
/// The same for an error code of any library.
tl::unexpected<Error> systemFailure(const std::string& what,
                                    const boost::system::error_code& error);

}  // namespace overseer
