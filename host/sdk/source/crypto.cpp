// Digests of files, over OpenSSL.

#include <nv/crypto.h>
#include <nvhost/regular_file.h>

#include <openssl/evp.h>
#include <unistd.h>
#include <array>
#include <cerrno>
#include <memory>
#include <vector>

namespace nv::crypto {
namespace {

using hosting::Descriptor;
using hosting::lastError;
using hosting::openRegularFile;

using Digest = std::vector<unsigned char>;
using Context = std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)>;

boost::system::error_code failed(boost::system::errc::errc_t reason) {
    return boost::system::errc::make_error_code(reason);
}

Digest digestOf(int file, const EVP_MD* algorithm, boost::system::error_code& error) {
    const Context context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    // The library may know the algorithm and still refuse it, as one configured for FIPS does.
    if (!context || EVP_DigestInit_ex(context.get(), algorithm, nullptr) != 1) {
        error = failed(boost::system::errc::not_supported);
        return {};
    }
    std::vector<unsigned char> piece(128u << 10);
    for (;;) {
        const ssize_t count = ::read(file, piece.data(), piece.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) {
            error = lastError();
            return {};
        }
        if (count == 0) break;
        EVP_DigestUpdate(context.get(), piece.data(), static_cast<std::size_t>(count));
    }
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(context.get(), bytes.data(), &length) != 1) {
        error = failed(boost::system::errc::io_error);
        return {};
    }
    return {bytes.begin(), bytes.begin() + length};
}

std::string toHex(const Digest& digest) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : digest) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

std::string toBase64(const Digest& digest) {
    std::vector<unsigned char> text(4 * (digest.size() / 3 + 1) + 1);
    const int length = EVP_EncodeBlock(text.data(), digest.data(), static_cast<int>(digest.size()));
    return {text.begin(), text.begin() + length};
}

}  // namespace

std::string computeFileHash(const std::string& path, const std::string& algorithm,
                            boost::system::error_code& error, CryptoEncoding encoding) {
    error.clear();
    const EVP_MD* const method = EVP_get_digestbyname(algorithm.c_str());
    if (method == nullptr) {
        error = failed(boost::system::errc::not_supported);
        return {};
    }
    const Descriptor file = openRegularFile(path, error);
    if (error) return {};
    const Digest digest = digestOf(file.get(), method, error);
    if (error) return {};
    switch (encoding) {
        case CryptoEncoding::kRaw:
            return {digest.begin(), digest.end()};
        case CryptoEncoding::kBase64:
            return toBase64(digest);
        case CryptoEncoding::kHexLower:
            return toHex(digest);
    }
    error = failed(boost::system::errc::invalid_argument);
    return {};
}

}  // namespace nv::crypto
