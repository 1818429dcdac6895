#include "ctl/manifest_text.h"

#include <gmock/gmock.h>
#include <pugixml.hpp>
#include <sstream>

namespace overseer::ctl {
namespace {

using testing::HasSubstr;
using namespace std::string_literals;

/// Each character of the text as two or four bytes; the text is Latin-1.
std::string widened(const std::string& text, std::size_t width, bool bigEndian) {
    std::string wide;
    for (const char byte : text) {
        const std::string padding(width - 1, '\0');
        wide += bigEndian ? padding + byte : byte + padding;
    }
    return wide;
}

struct EncodingCase {
    const char* name;
    std::string bytes;
    std::string text;
};

class EachEncoding : public testing::TestWithParam<EncodingCase> {};

TEST_P(EachEncoding, BecomesUtf8WithoutSayingSo) {
    const auto text = toUtf8Manifest(GetParam().bytes);
    ASSERT_TRUE(text) << text.error().message;
    EXPECT_EQ(*text, GetParam().text);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Manifests, EachEncoding, testing::Values(
    EncodingCase{"Utf8", "<d>ü</d>", "<d>ü</d>"},
    EncodingCase{"Utf8WithMark", "\xef\xbb\xbf<d>ü</d>", "<d>ü</d>"},
    EncodingCase{"Utf8Declared", "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n<d/>", "<?xml version=\"1.0\" standalone=\"yes\"?>\n<d/>"},
    EncodingCase{"Latin1", "<?xml version='1.0' encoding = 'Latin1'?><d>\xfc</d>", "<?xml version='1.0'?><d>ü</d>"},
    EncodingCase{"Utf16LittleWithMark", "\xff\xfe" + widened("<?xml version=\"1.0\" encoding=\"UTF-16\"?><d>\xfc</d>", 2, false), "<?xml version=\"1.0\"?><d>ü</d>"},
    EncodingCase{"Utf16BigWithMark", "\xfe\xff" + widened("<d>\xfc</d>", 2, true), "<d>ü</d>"},
    EncodingCase{"Utf16WithoutMark", widened("<d/>", 2, false), "<d/>"},
    EncodingCase{"Utf16BigWithoutMark", widened("<d/>", 2, true), "<d/>"},
    EncodingCase{"Utf16Pair", widened("<d>", 2, false) + "\x3d\xd8\xa1\xdc"s + widened("</d>", 2, false), "<d>💡</d>"},
    EncodingCase{"Utf32WithMark", "\xff\xfe\0\0"s + widened("<d>\xfc</d>", 4, false), "<d>ü</d>"},
    EncodingCase{"Utf32BigWithoutMark", widened("<d/>", 4, true), "<d/>"},
    EncodingCase{"DeclarationInsideIsText", "<d a='encoding=\"latin1\"'/>", "<d a='encoding=\"latin1\"'/>"},
    EncodingCase{"UnendedDeclaration", "<?xml encoding=\"latin1", "<?xml encoding=\"latin1"},
    EncodingCase{"DeclarationWithoutValue", "<?xml encoding=latin1?><d/>", "<?xml encoding=latin1?><d/>"}),
    [](const auto& row) { return row.param.name; });
// clang-format on

struct RefusedCase {
    const char* name;
    std::string bytes;
    const char* reason;
};

class EachRefused : public testing::TestWithParam<RefusedCase> {};

TEST_P(EachRefused, SaysWhatItIsNot) {
    const auto text = toUtf8Manifest(GetParam().bytes);
    ASSERT_FALSE(text) << *text;
    EXPECT_THAT(text.error().message, HasSubstr(GetParam().reason));
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Manifests, EachRefused, testing::Values(
    RefusedCase{"UndeclaredLatin1", "<d>\xfc</d>", "not UTF-8 at byte 3"},
    RefusedCase{"OtherEncodingDeclared", "<?xml version=\"1.0\" encoding=\"windows-1252\"?><d>\x80</d>", "not UTF-8"},
    RefusedCase{"CutCharacter", "<d>\xe2\x82", "not UTF-8 at byte 3"},
    RefusedCase{"Overlong", "<d>\xc0\xaf", "not UTF-8"},
    RefusedCase{"Surrogate", "<d>\xed\xa0\x80", "not UTF-8"},
    RefusedCase{"BeyondTheLast", "<d>\xf4\x90\x80\x80", "not UTF-8"},
    RefusedCase{"HalfAPair", "\xff\xfe\x3d\xd8<\0"s, "not the UTF-16"},
    RefusedCase{"SecondHalfFirst", "\xff\xfe\xa1\xdc"s, "not the UTF-16"},
    RefusedCase{"OddLength", "\xff\xfe<\0d"s, "not the UTF-16"},
    RefusedCase{"NoCharacter", "\xff\xfe\0\0\0\0\x11\0"s, "not the UTF-32"}),
    [](const auto& row) { return row.param.name; });
// clang-format on

/// What a reader of the tree sees, in one line.
std::string readingOf(const std::string& bytes) {
    pugi::xml_document document;
    document.load_buffer(bytes.data(), bytes.size());
    std::ostringstream text;
    document.save(text, "", pugi::format_raw | pugi::format_no_declaration, pugi::encoding_utf8);
    return text.str();
}

TEST(Manifest, MeansTheSameInsideACommand) {
    for (
        const std::string& bytes :
        {"<d><proxy a='x \"y\"' b=\"&lt;&#10;\">li<!-- no -->ght &amp; \r\n<![CDATA[<b>&amp;]]></proxy></d>"s,
         "<?xml version='1.0' encoding='latin1'?>\r<d>\xfc  <p> </p> ]]&gt; <?p i?></d>"s,
         "\n <!DOCTYPE d []><d>&unknown; \x01</d>"s}) {
        pugi::xml_document command;
        command.append_child("new_driver_xml").text().set(toUtf8Manifest(bytes).value().c_str());
        std::ostringstream sent;
        command.save(sent, "", pugi::format_raw, pugi::encoding_utf8);
        pugi::xml_document received;
        ASSERT_TRUE(received.load_string(sent.str().c_str()));
        EXPECT_EQ(readingOf(received.document_element().text().get()), readingOf(bytes));
    }
}

}  // namespace
}  // namespace overseer::ctl
