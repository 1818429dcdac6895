#pragma once

#include <boost/system/error_code.hpp>
#include <string>

namespace nv::crypto {

/// Text form of a digest.
enum class CryptoEncoding { kRaw = 0, kBase64 = 1, kHexLower = 2 };

/// Digest of a regular file's content, read in pieces.
/// @param algorithm  a name that OpenSSL knows, "md5" for instance
/// @param error      set when the file cannot be read or the algorithm is unknown
/// @return the digest in `encoding`, empty when `error` is set
std::string computeFileHash(const std::string& path, const std::string& algorithm,
                            boost::system::error_code& error, CryptoEncoding encoding);

}  // namespace nv::crypto
