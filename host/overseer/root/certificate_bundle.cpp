#include "root/certificate_bundle.h"

#include <nv/file.h>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <boost/filesystem/operations.hpp>
#include <memory>

namespace overseer {

Result<int> countCertificates(const boost::filesystem::path& file) {
    // The bundle of a distribution is a link more often than not.
    boost::system::error_code error;
    const std::string place = boost::filesystem::canonical(file, error).string();
    if (error) return failure("{}: {}", file.string(), error.message());
    std::string text;
    if (FileX::Load(place, text) < 0) {
        return failure("{} is not a readable file of at most 16 MB", file.string());
    }
    const std::unique_ptr<BIO, decltype(&BIO_free)> input(
        BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), BIO_free);
    ERR_clear_error();
    int count = 0;
    while (X509* certificate = PEM_read_bio_X509_AUX(input.get(), nullptr, nullptr, nullptr)) {
        X509_free(certificate);
        ++count;
    }
    const unsigned long last = ERR_peek_last_error();
    ERR_clear_error();
    // The end of the text shows as a missing start line.
    if (ERR_GET_REASON(last) != PEM_R_NO_START_LINE) {
        return failure("{}: certificate {} cannot be read", file.string(), count + 1);
    }
    if (count == 0) return failure("{} holds no certificate", file.string());
    return count;
}

}  // namespace overseer
