#include "test_authority.h"

#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <fstream>

namespace nv::test {

namespace {

Key makeKey() {
    return {EVP_EC_gen("P-256"), &EVP_PKEY_free};
}

void setName(X509_NAME* name, const std::string& text) {
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(text.c_str()), -1, -1, 0);
}

void addExtension(X509* certificate, int nid, const std::string& value) {
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, nid, value.c_str());
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

Certificate makeCertificate(const std::string& name, const Key& key, const Identity* issuer) {
    static long serial = 1;
    Certificate certificate(X509_new(), &X509_free);
    X509* raw = certificate.get();
    X509_set_version(raw, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(raw), serial++);
    X509_gmtime_adj(X509_getm_notBefore(raw), -86400);
    X509_gmtime_adj(X509_getm_notAfter(raw), 86400);
    setName(X509_get_subject_name(raw), name);
    X509_set_issuer_name(
        raw, X509_get_subject_name(issuer != nullptr ? issuer->certificate.get() : raw));
    X509_set_pubkey(raw, key.get());
    return certificate;
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
    namespace fs = boost::filesystem;
    path_ = (fs::temp_directory_path() / fs::unique_path("net-%%%%-%%%%-%%%%")).string();
    fs::create_directory(path_);
}

TemporaryFolder::~TemporaryFolder() {
    boost::system::error_code ignored;
    boost::filesystem::remove_all(path_, ignored);
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

TestAuthority::TestAuthority(const std::string& name) {
    self_.key = makeKey();
    self_.certificate = makeCertificate(name, self_.key, nullptr);
    addExtension(self_.certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
    X509_sign(self_.certificate.get(), self_.key.get(), EVP_sha256());
}

Identity TestAuthority::issue(const std::string& subjectAlternativeName, int days) const {
    Identity identity;
    identity.key = makeKey();
    identity.certificate = makeCertificate("Server", identity.key, &self_);
    constexpr long kDay = 86400;
    X509* const certificate = identity.certificate.get();
    X509_gmtime_adj(X509_getm_notBefore(certificate), -10 * kDay);
    X509_gmtime_adj(X509_getm_notAfter(certificate), days * kDay);
    addExtension(identity.certificate.get(), NID_subject_alt_name, subjectAlternativeName);
    X509_sign(identity.certificate.get(), self_.key.get(), EVP_sha256());
    return identity;
}

std::string TestAuthority::pem() const {
    const std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), &BIO_free);
    PEM_write_bio_X509(memory.get(), self_.certificate.get());
    char* data = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &data);
    return {data, static_cast<std::size_t>(size)};
}

}  // namespace nv::test
