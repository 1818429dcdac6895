#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>

#include "depot/result.h"

namespace depot {

struct TlsContextFree {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
using TlsContext = std::unique_ptr<SSL_CTX, TlsContextFree>;

/// A server's TLS settings: version 1.2 or later, with the certificate chain and the private key of
/// two PEM files. An error names the file.
Result<TlsContext> makeTlsContext(const std::string& certificateFile, const std::string& keyFile);

}  // namespace depot
