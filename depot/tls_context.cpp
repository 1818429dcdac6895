#include "depot/tls_context.h"

#include <openssl/err.h>

#include <array>

namespace depot {
namespace {

std::string lastTlsError() {
    std::array<char, 256> text{};
    const unsigned long code = ERR_get_error();
    ERR_error_string_n(code, text.data(), text.size());
    ERR_clear_error();
    return code == 0 ? "no reason given" : text.data();
}

}  // namespace

Result<TlsContext> makeTlsContext(const std::string& certificateFile, const std::string& keyFile) {
    ERR_clear_error();
    TlsContext context(SSL_CTX_new(TLS_server_method()));
    if (!context) return failure("TLS cannot be set up: " + lastTlsError());
    SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    SSL_CTX_set_mode(context.get(),
                     SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    // A client that ends without a closing alert is no fault of its request.
    SSL_CTX_set_options(context.get(), SSL_OP_IGNORE_UNEXPECTED_EOF);
    if (SSL_CTX_use_certificate_chain_file(context.get(), certificateFile.c_str()) != 1)
        return failure("certificate " + certificateFile + " cannot be used: " + lastTlsError());
    if (SSL_CTX_use_PrivateKey_file(context.get(), keyFile.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_check_private_key(context.get()) != 1)
        return failure("private key " + keyFile + " cannot be used with certificate " +
                       certificateFile + ": " + lastTlsError());
    return context;
}

}  // namespace depot
