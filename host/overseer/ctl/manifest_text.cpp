#include "ctl/manifest_text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

// Manifests come in the encodings that an XML file may have; a command carries UTF-8 only. Only the
// encoding is changed here: read and written anew as a tree, a manifest could change its meaning.
namespace overseer::ctl {
namespace {

/// What a text consists of: numbers of `width` bytes.
struct Encoding {
    enum class Kind { kUtf8, kLatin1, kUtf16, kUtf32 };
    Kind kind = Kind::kUtf8;
    bool bigEndian = false;
    std::size_t mark = 0;  ///< bytes of the byte-order mark
};

struct Signature {
    std::string_view bytes;
    Encoding encoding;
};

using namespace std::string_view_literals;

// The longer ones first: a mark of UTF-32 begins with one of UTF-16.
constexpr std::array kSignatures{
    Signature{"\0\0\xfe\xff"sv, {Encoding::Kind::kUtf32, true, 4}},
    Signature{"\xff\xfe\0\0"sv, {Encoding::Kind::kUtf32, false, 4}},
    Signature{"\0\0\0<"sv, {Encoding::Kind::kUtf32, true, 0}},
    Signature{"<\0\0\0"sv, {Encoding::Kind::kUtf32, false, 0}},
    Signature{"\xfe\xff"sv, {Encoding::Kind::kUtf16, true, 2}},
    Signature{"\xff\xfe"sv, {Encoding::Kind::kUtf16, false, 2}},
    Signature{"\xef\xbb\xbf"sv, {Encoding::Kind::kUtf8, false, 3}},
    Signature{"\0<"sv, {Encoding::Kind::kUtf16, true, 0}},
    Signature{"<\0"sv, {Encoding::Kind::kUtf16, false, 0}},
};

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

/// "encoding=..." in an XML declaration.
struct DeclaredEncoding {
    std::size_t begin;
    std::size_t end;
    std::string_view name;
};

std::optional<DeclaredEncoding> findDeclaredEncoding(std::string_view text) {
    constexpr std::string_view kStart = "<?xml";
    constexpr std::string_view kName = "encoding";
    if (text.substr(0, kStart.size()) != kStart) return std::nullopt;
    const std::string_view declaration = text.substr(0, text.find('?', kStart.size()));
    const std::size_t begin = declaration.find(kName, kStart.size());
    if (begin == std::string_view::npos || !isSpace(declaration[begin - 1])) return std::nullopt;
    const auto skipSpace = [declaration](std::size_t at) {
        while (at < declaration.size() && isSpace(declaration[at])) ++at;
        return at;
    };
    std::size_t at = skipSpace(begin + kName.size());
    if (at == declaration.size() || declaration[at] != '=') return std::nullopt;
    at = skipSpace(at + 1);
    if (at == declaration.size() || (declaration[at] != '"' && declaration[at] != '\'')) {
        return std::nullopt;
    }
    const std::size_t end = declaration.find(declaration[at], at + 1);
    if (end == std::string_view::npos) return std::nullopt;
    return DeclaredEncoding{begin, end + 1, declaration.substr(at + 1, end - at - 1)};
}

bool isLatin1(std::string_view name) {
    std::string lower(name);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return lower == "iso-8859-1" || lower == "latin1";
}

Encoding encodingOf(std::string_view bytes) {
    for (const Signature& signature : kSignatures) {
        if (bytes.substr(0, signature.bytes.size()) == signature.bytes) return signature.encoding;
    }
    const auto declared = findDeclaredEncoding(bytes);
    return {declared && isLatin1(declared->name) ? Encoding::Kind::kLatin1 : Encoding::Kind::kUtf8,
            false, 0};
}

/// @return false for what is no character
bool append(std::uint32_t character, std::string& text) {
    const auto put = [&text](std::uint32_t byte) { text.push_back(static_cast<char>(byte)); };
    const auto follow = [&put, character](int shift) {
        put(0x80u | ((character >> shift) & 0x3fu));
    };
    if (character < 0x80) {
        put(character);
    } else if (character < 0x800) {
        put(0xc0u | (character >> 6));
        follow(0);
    } else if (character < 0x10000) {
        if (character >= 0xd800 && character < 0xe000) return false;
        put(0xe0u | (character >> 12));
        follow(6);
        follow(0);
    } else if (character < 0x110000) {
        put(0xf0u | (character >> 18));
        follow(12);
        follow(6);
        follow(0);
    } else {
        return false;
    }
    return true;
}

/// Reads a text number by number.
class Units {
  public:
    Units(std::string_view bytes, std::size_t width, bool bigEndian)
        : bytes_(bytes), width_(width), bigEndian_(bigEndian) {}

    bool atEnd() const { return at_ + width_ > bytes_.size(); }
    /// Bytes at the end that make no whole number.
    bool isCutShort() const { return bytes_.size() % width_ != 0; }

    std::uint32_t next() {
        std::uint32_t unit = 0;
        for (std::size_t byte = 0; byte < width_; ++byte) {
            const std::size_t offset = bigEndian_ ? byte : width_ - 1 - byte;
            unit = unit << 8 | static_cast<unsigned char>(bytes_[at_ + offset]);
        }
        at_ += width_;
        return unit;
    }

    /// The next number when it is the second half of a pair, else 0.
    std::uint32_t secondHalf() {
        if (atEnd()) return 0;
        const std::size_t before = at_;
        const std::uint32_t unit = next();
        if (unit >= 0xdc00 && unit < 0xe000) return unit;
        at_ = before;
        return 0;
    }

  private:
    std::string_view bytes_;
    std::size_t width_;
    bool bigEndian_;
    std::size_t at_ = 0;
};

Result<std::string> decode(std::string_view bytes, const Encoding& encoding) {
    const bool pairs = encoding.kind == Encoding::Kind::kUtf16;
    const bool single = encoding.kind == Encoding::Kind::kLatin1;
    Units units(bytes, single ? 1 : pairs ? 2 : 4, encoding.bigEndian);
    std::string text;
    text.reserve(bytes.size());
    bool valid = !units.isCutShort();
    while (valid && !units.atEnd()) {
        std::uint32_t character = units.next();
        if (pairs && character >= 0xd800 && character < 0xdc00) {
            const std::uint32_t low = units.secondHalf();
            if (low != 0) character = 0x10000 + ((character - 0xd800) << 10) + (low - 0xdc00);
        }
        valid = append(character, text);
    }
    if (valid) return text;
    return failure("the manifest is not the {} that it begins as", pairs ? "UTF-16" : "UTF-32");
}

/// Length of the character that the bytes begin with, 0 where they begin with none.
std::size_t lengthOfCharacter(std::string_view bytes) {
    const auto first = static_cast<unsigned char>(bytes.front());
    if (first < 0x80) return 1;
    const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || bytes.size() < length) return 0;
    std::uint32_t character = first & (0x7fu >> length);
    for (std::size_t at = 1; at < length; ++at) {
        const auto byte = static_cast<unsigned char>(bytes[at]);
        if ((byte & 0xc0u) != 0x80u) return 0;
        character = character << 6 | (byte & 0x3fu);
    }
    // Written longer than need be, it would come out shorter.
    std::string again;
    return append(character, again) && again.size() == length ? length : 0;
}

Result<std::string> checkUtf8(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = lengthOfCharacter(text.substr(at));
        if (length == 0) {
            return failure(
                "the manifest is not UTF-8 at byte {}; save it as UTF-8, or have it declare "
                "Latin-1 "
                "(encoding=\"ISO-8859-1\") where it is that",
                at);
        }
        at += length;
    }
    return std::string(text);
}

}  // namespace

Result<std::string> toUtf8Manifest(const std::string& bytes) {
    const Encoding encoding = encodingOf(bytes);
    const std::string_view content = std::string_view(bytes).substr(encoding.mark);
    Result<std::string> text =
        encoding.kind == Encoding::Kind::kUtf8 ? checkUtf8(content) : decode(content, encoding);
    if (!text) return text;
    if (const auto declared = findDeclaredEncoding(*text)) {
        // Together with the blank before it; the version keeps its place.
        std::size_t begin = declared->begin;
        while (isSpace((*text)[begin - 1])) --begin;
        text->erase(begin, declared->end - begin);
    }
    return text;
}

}  // namespace overseer::ctl
