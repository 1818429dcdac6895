#include "temporary_folder.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fs = boost::filesystem;

namespace support {

TemporaryFolder::TemporaryFolder()
    : path_(fs::canonical("/tmp") / fs::unique_path("house-test-%%%%%%%%%%%%")) {
    if (!fs::create_directory(path_)) throw std::runtime_error("exists: " + path_.string());
}

TemporaryFolder::~TemporaryFolder() {
    boost::system::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string TemporaryFolder::makeFolder(const std::string& name) const {
    fs::create_directories(path_ / name);
    return (path_ / name).string();
}

std::vector<std::string> namesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (fs::directory_iterator entry(folder), end; entry != end; ++entry) {
        names.push_back(entry->path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string readFile(const fs::path& file) {
    std::ifstream in(file.string(), std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + file.string());
    return {std::istreambuf_iterator<char>(in), {}};
}

void writeFile(const fs::path& file, const std::string& content) {
    std::ofstream out(file.string(), std::ios::binary);
    out << content;
    if (!out.flush()) throw std::runtime_error("cannot write " + file.string());
}

}  // namespace support
