#pragma once

#include <boost/filesystem/path.hpp>
#include <string>
#include <utility>
#include <vector>

namespace support {

/// Makes driver packages: real zip archives.
class PackageBuilder {
  public:
    PackageBuilder& member(const std::string& name, const std::string& content);
    /// Adds a "driver.xml" that states a version and nothing else.
    PackageBuilder& version(int version);
    void writeTo(const boost::filesystem::path& file) const;
    /// The archive's bytes.
    std::string bytes() const;

  private:
    std::vector<std::pair<std::string, std::string>> members_;
};

/// MD5 in lower-case hexadecimal.
std::string md5Of(const std::string& bytes);

}  // namespace support
