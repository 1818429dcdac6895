#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

#include "common/result.h"

namespace overseer {

/// What the host reads in a driver's manifest ("driver.xml" of a package, or the bare driver file):
/// children of the root element, whatever its name.
struct Manifest {
    int version = 0;
    std::string name;
    std::string model;
    std::string manufacturer;
    bool agent = false;   ///< "agent" begins with 1, t, T, y or Y: the package is an agent's
    std::string library;  ///< "library": the plug-in of such an agent, a member of its package
};

/// Reads a manifest. It must parse and have a "version" with a text; that is read as the agent and
/// the catalogue read it: leading digits count, anything else is 0.
/// @param source  what the text is of, for the message
Result<Manifest> parseManifest(const std::string& text, const std::string& source);

/// The text of the manifest of a driver file, as its bytes are, at most 16 MB: a package's member,
/// or the bare driver itself. Never through a link.
/// @param name  tells which of the two the file is; it may lie there under any other
Result<std::string> readManifestText(const boost::filesystem::path& file, const std::string& name);

}  // namespace overseer
