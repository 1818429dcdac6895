#pragma once

#include <boost/filesystem.hpp>
#include <fstream>
#include <iterator>
#include <string>

/// A folder of its own for one test, gone with it.
class TemporaryFolder {
  public:
    explicit TemporaryFolder(
        const boost::filesystem::path& parent = boost::filesystem::temp_directory_path())
        : path_(parent / boost::filesystem::unique_path("house-test-%%%%%%%%%%%%")) {
        boost::filesystem::create_directories(path_);
    }
    ~TemporaryFolder() {
        boost::system::error_code ignored;
        boost::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const boost::filesystem::path& path() const { return path_; }
    boost::filesystem::path operator/(const std::string& name) const { return path_ / name; }

    boost::filesystem::path write(const std::string& name, const std::string& text) const {
        boost::filesystem::create_directories((path_ / name).parent_path());
        std::ofstream((path_ / name).string(), std::ios::binary) << text;
        return path_ / name;
    }

  private:
    boost::filesystem::path path_;
};

/// A file's content; "(none)" where there is no file.
inline std::string contentOf(const boost::filesystem::path& file) {
    std::ifstream stream(file.string(), std::ios::binary);
    if (!stream) return "(none)";
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}
