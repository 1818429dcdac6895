#include "ca_file.h"

#include <nvhost/transport.h>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cerrno>
#include <memory>

#include "errors.h"

namespace nv::net {

namespace {

constexpr off_t kMaximumSize = 16 << 20;
constexpr std::size_t kMaximumEntries = 16;

boost::system::error_code systemError() {
    return {errno, boost::system::system_category()};
}

bool same(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

boost::system::error_code readCertificates(const std::string& path) {
    const std::unique_ptr<BIO, decltype(&BIO_free)> file(BIO_new_file(path.c_str(), "r"),
                                                         &BIO_free);
    if (!file) {
        const auto error = systemError();
        ERR_clear_error();
        return error;
    }
    int count = 0;
    while (X509* certificate = PEM_read_bio_X509_AUX(file.get(), nullptr, nullptr, nullptr)) {
        X509_free(certificate);
        ++count;
    }
    const auto reason = ERR_GET_REASON(ERR_peek_last_error());
    ERR_clear_error();
    if (reason != PEM_R_NO_START_LINE) return errorCode(Error::kCaFileDamaged);
    return count > 0 ? boost::system::error_code{} : errorCode(Error::kCaFileWithoutCertificate);
}

}  // namespace

CaFiles::Seen CaFiles::look(const std::string& path) {
    const auto now = std::chrono::steady_clock::now();
    struct stat identity {};
    if (::stat(path.c_str(), &identity) != 0) {
        const auto error = systemError();
        entries_.erase(path);
        return {error, now};
    }
    const auto known = entries_.find(path);
    if (known != entries_.end() && same(known->second.identity, identity)) {
        return known->second.seen;
    }
    const bool readable = S_ISREG(identity.st_mode) && identity.st_size <= kMaximumSize;
    const Seen seen{readable ? readCertificates(path) : errorCode(Error::kCaFileNotRegular), now};
    if (entries_.size() >= kMaximumEntries) entries_.clear();
    entries_[path] = {identity, seen};
    return seen;
}

}  // namespace nv::net

namespace nv::hosting {

boost::system::error_code checkCaFile(const std::string& path) {
    return net::CaFiles().look(path).error;
}

}  // namespace nv::hosting
