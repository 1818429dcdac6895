#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

#include "common/result.h"
#include "root/controller_root.h"

namespace overseer {

/// Whether a driver file may be called so. Refused: the empty name, one with a slash, a control
/// character or a double quote, one that begins with a dot, one longer than a file system takes
/// (255 bytes; a package's than 250, for what is put to it), and a package's whose stem again ends
/// in ".nvz": the folder that is emptied for its copy is named by the stem, and would be another
/// package.
Result<> checkDriverFileName(const std::string& fileName);

/// Whether a person may bring in a driver file of that name: one that may be called so, and that
/// is a package's or a bare driver's.
Result<> checkOfferedFileName(const std::string& fileName);

/// Whether the name is a package's; exact, case included.
bool isPackageName(const std::string& fileName);

/// Where the file of a checked name lies, and for a package its unpacked copy and that copy's
/// checksum file.
boost::filesystem::path driverFile(const ControllerRoot& root, const std::string& fileName);
boost::filesystem::path unpackedFolder(const ControllerRoot& root, const std::string& fileName);
boost::filesystem::path checksumFile(const ControllerRoot& root, const std::string& fileName);

}  // namespace overseer
