#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>

namespace nv::test {

/// A folder for one test, removed with it.
class TemporaryFolder {
  public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    std::string path(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

void writeFile(const std::string& path, const std::string& content);

using Key = std::shared_ptr<EVP_PKEY>;
using Certificate = std::shared_ptr<X509>;

/// What a server shows to its clients.
struct Identity {
    Certificate certificate;
    Key key;
};

/// A certificate authority made for one test.
class TestAuthority {
  public:
    explicit TestAuthority(const std::string& name = "Test authority");
    /// A server certificate for, say, "IP:127.0.0.1", good for so many days from now.
    Identity issue(const std::string& subjectAlternativeName, int days = 1) const;
    /// What it signs with, for a server that vouches for itself.
    const Identity& self() const { return self_; }
    /// Its own certificate, as a CA file holds it.
    std::string pem() const;

  private:
    Identity self_;
};

}  // namespace nv::test
