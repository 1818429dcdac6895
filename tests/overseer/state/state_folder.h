#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "state/database.h"

/// A state folder of its own for one test, gone with it.
class StateFolder {
  public:
    /// 2026-11-23 01:02:03 UTC
    static constexpr overseer::UtcMilliseconds kNow = 1'795'395'723'000;

    StateFolder()
        : path_(boost::filesystem::temp_directory_path() /
                boost::filesystem::unique_path("state-test-%%%%%%%%%%%%")) {
        boost::filesystem::create_directories(path_);
    }
    ~StateFolder() {
        boost::system::error_code ignored;
        boost::filesystem::remove_all(path_, ignored);
    }
    StateFolder(const StateFolder&) = delete;
    StateFolder& operator=(const StateFolder&) = delete;

    const boost::filesystem::path& path() const { return path_; }
    boost::filesystem::path database() const { return path_ / overseer::Database::kFileName; }

    overseer::Result<std::unique_ptr<overseer::Database>> tryOpen() const {
        return overseer::Database::open(path_, kNow);
    }
    /// Opens the database, which must succeed.
    std::unique_ptr<overseer::Database> open() const {
        auto opened = tryOpen();
        if (!opened) throw std::runtime_error(opened.error().message);
        return std::move(*opened);
    }
    std::string contentOf(const boost::filesystem::path& file) const {
        if (boost::filesystem::is_directory(file)) return "(folder)";
        std::ifstream stream(file.c_str(), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }
    void write(const boost::filesystem::path& file, const std::string& content) const {
        std::ofstream(file.c_str(), std::ios::binary | std::ios::trunc) << content;
    }
    /// Names in the folder, in ascending order.
    std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const auto& entry : boost::filesystem::directory_iterator(path_))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

  private:
    boost::filesystem::path path_;
};

/// The value of a result that must be there.
template <typename T>
T valueOf(overseer::Result<T> result) {
    if (!result) throw std::runtime_error(result.error().message);
    return std::move(*result);
}
