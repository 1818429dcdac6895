#pragma once

#include <boost/system/error_code.hpp>
#include <memory>
#include <string>

struct zip;

namespace nv::hosting {

struct DiscardArchive {
    void operator()(zip* archive) const;
};
/// A zip archive that is open for reading.
using Archive = std::unique_ptr<zip, DiscardArchive>;

/// Opens an archive, a regular file and never a link.
/// @param error  of the system, or of libzip where the file is no archive
Archive openArchive(const std::string& path, boost::system::error_code& error);

}  // namespace nv::hosting
