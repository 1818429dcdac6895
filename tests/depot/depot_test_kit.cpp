#include "depot_test_kit.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <stdlib.h>

#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace depot::testing {
namespace {

using Key = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)>;
using Certificate = std::unique_ptr<X509, void (*)(X509*)>;

void addExtension(X509* certificate, int kind, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value);
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

Certificate selfSigned(EVP_PKEY* key) {
    Certificate certificate(X509_new(), &X509_free);
    X509_set_version(certificate.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
    X509_set_pubkey(certificate.get(), key);
    X509_NAME* name = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("depot test"), -1, -1, 0);
    X509_set_issuer_name(certificate.get(), name);
    addExtension(certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
    addExtension(certificate.get(), NID_subject_alt_name, "IP:127.0.0.1");
    X509_sign(certificate.get(), key, EVP_sha256());
    return certificate;
}

template <typename Write>
void writePem(const std::string& path, Write write) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "w"), &std::fclose);
    if (!file || write(file.get()) != 1) throw std::runtime_error("cannot write " + path);
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "depot-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
    path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void TemporaryFolder::write(const std::string& name, const std::string& text) const {
    std::ofstream file(path_ / name, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (!file) throw std::runtime_error("cannot write " + name);
}

std::string bareDriver(int version, const std::string& name) {
    return "<devicedata><name>" + name + "</name><version>" + std::to_string(version) +
           "</version></devicedata>";
}

Document document(const std::string& filename, int version) {
    Document made;
    made.filename = filename;
    made.version = version;
    const std::string digits = std::to_string(version);
    made.md5sum = std::string(32 - digits.size(), '0') + digits;
    return made;
}

Snapshot snapshotOf(const std::vector<Document>& documents) {
    std::vector<Snapshot::Entry> entries;
    for (const Document& each : documents)
        entries.push_back(std::make_shared<CatalogueEntry>(CatalogueEntry{each, {}}));
    return Snapshot(std::move(entries));
}

ServerIdentity::ServerIdentity(const TemporaryFolder& folder)
    : certificateFile(folder.path("server.pem")), keyFile(folder.path("server.key")) {
    const Key key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
    const Certificate certificate = selfSigned(key.get());
    writePem(certificateFile, [&](FILE* file) { return PEM_write_X509(file, certificate.get()); });
    writePem(keyFile, [&](FILE* file) {
        return PEM_write_PrivateKey(file, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
}

}  // namespace depot::testing
