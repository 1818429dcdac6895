#pragma once

#include <boost/filesystem/path.hpp>
#include <string>
#include <vector>

namespace support {

/// An empty folder of its own, removed with all in it at the end.
class TemporaryFolder {
  public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const boost::filesystem::path& path() const { return path_; }
    boost::filesystem::path operator/(const std::string& name) const { return path_ / name; }
    /// Makes a folder in it and returns its path.
    std::string makeFolder(const std::string& name) const;

  private:
    boost::filesystem::path path_;
};

/// Sorted names in a folder, hidden ones too.
std::vector<std::string> namesIn(const boost::filesystem::path& folder);
std::string readFile(const boost::filesystem::path& file);
void writeFile(const boost::filesystem::path& file, const std::string& content);

}  // namespace support
