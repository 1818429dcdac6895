#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "depot/document.h"
#include "depot/snapshot.h"

namespace depot::testing {

/// A folder that is there for one test.
class TemporaryFolder {
  public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string path() const { return path_.string(); }
    std::string path(const std::string& name) const { return (path_ / name).string(); }
    void write(const std::string& name, const std::string& text) const;
    void remove(const std::string& name) const { std::filesystem::remove(path_ / name); }

  private:
    std::filesystem::path path_;
};

/// The text of a bare driver of that version.
std::string bareDriver(int version, const std::string& name = "Lamp");

/// A document with that name and an MD5 sum made of its version.
Document document(const std::string& filename, int version = 1);

/// A snapshot of these documents, which must be in ascending order of their names.
Snapshot snapshotOf(const std::vector<Document>& documents);

/// Certificate and key of a server at 127.0.0.1, signed by itself, as PEM files in `folder`.
struct ServerIdentity {
    explicit ServerIdentity(const TemporaryFolder& folder);
    std::string certificateFile;
    std::string keyFile;
};

}  // namespace depot::testing
