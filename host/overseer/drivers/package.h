#pragma once

#include <nvhost/archive.h>

#include <boost/filesystem/path.hpp>
#include <string>
#include <vector>

#include "common/result.h"
#include "drivers/package_members.h"

namespace overseer {

/// A driver package, open for reading, whose members were found fit to be unpacked: names and links
/// that stay inside (see checkMembers), no encryption, nothing but files, folders and links, at
/// most 65,536 members and 1 GB in all. The content itself is checked only as it is read.
class Package {
  public:
    static constexpr const char* kManifest = "driver.xml";

    /// Opens a regular file, never through a link.
    static Result<Package> open(const boost::filesystem::path& file);

    const std::vector<PackageMember>& members() const { return members_; }
    bool holdsFile(const std::string& name) const;
    /// The manifest's text, at most 16 MB.
    Result<std::string> manifestText() const;
    /// Reads every member to its end: what passes can be unpacked wherever there is room.
    Result<> checkContent() const;
    /// Unpacks into an existing empty folder. Fails where a member's content does not match its
    /// checksum or its size; what was unpacked until then stays for the caller to remove.
    Result<> unpackTo(const boost::filesystem::path& folder) const;

  private:
    Package(boost::filesystem::path file, nv::hosting::Archive archive,
            std::vector<PackageMember> members);
    static Result<std::vector<PackageMember>> readMembers(zip* archive);
    static Result<PackageMember> readMember(zip* archive, std::uint64_t index);
    Result<> unpackFile(const PackageMember& member, const boost::filesystem::path& target) const;

    boost::filesystem::path file_;
    nv::hosting::Archive archive_;
    std::vector<PackageMember> members_;
};

}  // namespace overseer
