#pragma once

#include <boost/filesystem/path.hpp>

#include "root/controller_root.h"

namespace overseer {

/// Where distributions keep the certificates that they trust.
inline constexpr const char* kSystemCaBundle = "/etc/ssl/certs/ca-certificates.crt";

/// Makes a controller root: its folders, a configuration file with every key commented out, an
/// empty project and restart list, and a copy of the CA bundle `caFile`.
/// Refuses, touching nothing, where a root or anything else already is, and a bundle that does not
/// hold at least one certificate.
Result<ControllerRoot> initializeRoot(const boost::filesystem::path& folder,
                                      const boost::filesystem::path& caFile = kSystemCaBundle);

}  // namespace overseer
