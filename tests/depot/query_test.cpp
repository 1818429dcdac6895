#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "depot/query_evaluator.h"
#include "depot/query_parser.h"
#include "depot/query_text.h"
#include "depot_test_kit.h"

namespace depot {
namespace {

using testing::document;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::snapshotOf;
using Names = std::vector<std::string>;

Document unforced(const std::string& filename) {
    Document made = document(filename, 7);
    made.name = "Lamp";
    made.autoUpdate = false;
    return made;
}

const Snapshot& catalogue() {
    static const Snapshot snapshot = snapshotOf({
        document("!bang.nvz"),
        document("12345.nvz"),
        document("AND"),
        document("a!b.nvz"),
        document("a\"b.nvz"),
        document("a%20b.nvz"),
        document("a&b.nvz"),
        document("a'b.nvz"),
        document("a+b.nvz"),
        document("a,b.nvz"),
        document("a.nvz"),
        document("a<b>.nvz"),
        document("b c.nvi"),
        document("dir\\a.nvz"),
        document("driver (2).nvz"),
        document("driver[1].nvz"),
        document("mouse-driver_1.2.3.nvz"),
        unforced("off.nvi"),
        document("star*.nvz"),
        document("x~1{2}:3?.nvz"),
        document("\u00A0.nvz"),
        document("größe.nvz"),
        document("照明.nvz"),
        document("😀.nvz"),
    });
    return snapshot;
}

/// The names that `text` finds, or the error in braces.
Names find(const std::string& text) {
    const auto query = parseQuery(text);
    if (!query) return {"{" + query.error().message + "}"};
    Names names;
    const DocumentSet set = evaluate(*query, catalogue());
    for (std::size_t at = 0; at < set.size(); ++at) {
        if (set[at]) names.push_back(catalogue().document(at).filename);
    }
    return names;
}

TEST(QueryTest, ListsOfNamesFindExactlyTheNamedFiles) {
    const std::vector<std::pair<std::string, Names>> table{
        {R"(filename:(IN "a.nvz","b c.nvi") AND autoUpdate:"true")", {"a.nvz", "b c.nvi"}},
        {R"(filename:(IN "off.nvi","a.nvz") AND autoUpdate:"true")", {"a.nvz"}},
        {R"(filename:("a.nvz" "b c.nvi"))", {"a.nvz", "b c.nvi"}},
        {R"(filename:("a.nvz" OR "b c.nvi"))", {"a.nvz", "b c.nvi"}},
        {R"(filename:(IN "a.nvz", "b c.nvi"))", {"a.nvz", "b c.nvi"}},
        {R"(filename:(IN ) AND autoUpdate:"true")", {}},
        {R"(filename:(IN "") AND autoUpdate:"true")", {}},
        {R"(filename:(IN "A.NVZ"))", {}},
        // names in quotes that would mean something without them
        {R"(filename:(IN "driver (2).nvz"))", {"driver (2).nvz"}},
        {R"(filename:(IN "AND","driver[1].nvz"))", {"AND", "driver[1].nvz"}},
        {R"(filename:"x~1{2}:3?.nvz")", {"x~1{2}:3?.nvz"}},
        {R"(filename:"!bang.nvz")", {"!bang.nvz"}},
        {R"(filename:"star*.nvz")", {"star*.nvz"}},
        {"filename:(IN \"\u00A0.nvz\",\"größe.nvz\",\"照明.nvz\",\"😀.nvz\")",
         {"\u00A0.nvz", "größe.nvz", "照明.nvz", "😀.nvz"}},
        // escapes
        {R"(filename:(IN "a\"b.nvz"))", {"a\"b.nvz"}},
        {R"(filename:(IN "dir\\a.nvz"))", {"dir\\a.nvz"}},
        {R"(filename:(IN "dir\a.nvz"))", {}},
        {R"(filename:"\u0061.nvz")", {"a.nvz"}},
        {R"(filename:"\uD83D\uDE00.nvz")", {"😀.nvz"}},
        {R"(filename:(IN "a"b"c.nvz"))", {}},
    };
    for (const auto& [query, names] : table) EXPECT_EQ(find(query), names) << query;
}

TEST(QueryTest, NamesWithoutQuotesAreFoundOrSilentlyMissed) {
    const std::vector<std::pair<std::string, Names>> table{
        {"mouse-driver_1.2.3.nvz", {"mouse-driver_1.2.3.nvz"}},
        {"12345.nvz", {"12345.nvz"}},
        {"a!b.nvz", {"a!b.nvz"}},
        {"a,b.nvz", {"a,b.nvz"}},
        {"a&b.nvz", {"a&b.nvz"}},
        {"a+b.nvz", {"a+b.nvz"}},
        {"a'b.nvz", {"a'b.nvz"}},
        {"a%20b.nvz", {"a%20b.nvz"}},
        {"a<b>.nvz", {"a<b>.nvz"}},
        {"größe.nvz", {"größe.nvz"}},
        {"b c.nvi", {}},
        {"driver (2).nvz", {}},
        {"-a.nvz", {}},
        {"PROGRA~1.nvz", {}},
        {"rock AND roll.nvz", {}},
        {R"(a\"b.nvz)", {"a\"b.nvz"}},
    };
    for (const auto& [name, names] : table)
        EXPECT_EQ(find("filename:(IN " + name + ") AND autoUpdate:\"true\""), names) << name;
}

TEST(QueryTest, WhatTheLanguageDoesNotAllowIsRefusedWithItsReason) {
    const std::vector<std::pair<std::string, std::string>> table{
        {"filename:()", "Encountered \" \")\" \") \"\" at line 1, column 10."},
        {"filename:() AND autoUpdate:\"true\"", "Cannot parse 'filename:() AND"},
        {R"(filename:(IN "a"b.nvz"))", "Lexical error"},
        {R"(filename:"a\")", "Lexical error"},
        {R"(filename:"C:\users")", "Non-hex character in Unicode escape sequence: s"},
        {R"(filename:"\u12")", "Truncated unicode escape sequence."},
        {"filename:a\\", "Lexical error"},
        {"filename:b c.nvi", "no field name specified in query and no default"},
        {"filename:(IN a:b.nvz)", "undefined field a"},
        {"nosuch:\"x\"", "undefined field nosuch"},
        {"*:x", "undefined field *"},
        {"filename:(IN driver[1].nvz)", "not supported"},
        {"filename:(IN {x}.nvz)", "not supported"},
        {"filename:(IN ]x)", "Lexical error"},
        {"filename:/a.*/", "not supported"},
        {"{!func}x", "not supported"},
        {"version:abc", "Invalid Number: abc"},
        {"version:99999999999", "Invalid Number: 99999999999"},
        {"version:1*", "not supported"},
        {"filename:(a", "Encountered \"<EOF>\" at line 1, column 11."},
        {"filename:a)", "Encountered \" \")\" \") \"\" at line 1, column 10."},
        {"filename:a AND", "<EOF>"},
        {"AND filename:a", "<AND>"},
        {"filename:", "<EOF>"},
        {" ", "<EOF>"},
        {"filename:a^", "Lexical error"},
        {std::string(4000, '('), "more than 100 parentheses"},
        {"*", "no field name specified"},
    };
    for (const auto& [query, reason] : table)
        EXPECT_THAT(find(query), ElementsAre(HasSubstr(reason))) << query;
}

TEST(QueryTest, OperatorsBindToTheClausesBesideThem) {
    const auto total = catalogue().size();
    EXPECT_EQ(find("*:*").size(), total);
    EXPECT_EQ(find("*:* AND filename:*").size(), total);
    EXPECT_EQ(find("-filename:a.nvz").size(), total - 1);
    EXPECT_EQ(find("NOT filename:a.nvz").size(), total - 1);
    EXPECT_THAT(find("*:* AND (-filename:a.nvz)"), IsEmpty());
    EXPECT_EQ(find("*:* -filename:a.nvz").size(), total - 1);
    EXPECT_THAT(find("+name:Lamp filename:a.nvz"), ElementsAre("off.nvi"));
    EXPECT_THAT(find("filename:a.nvz OR filename:off.nvi && version:7"), ElementsAre("off.nvi"));
    EXPECT_THAT(find("filename:a.nvz || filename:off.nvi^2.5"), ElementsAre("a.nvz", "off.nvi"));
    EXPECT_THAT(find("autoUpdate:false"), ElementsAre("off.nvi"));
    EXPECT_THAT(find("autoUpdate:T AND version:7"), IsEmpty());
    EXPECT_THAT(find("name:*"), ElementsAre("off.nvi"));
    EXPECT_THAT(find("filename:- filename:a.nvz"), ElementsAre("a.nvz"));
    EXPECT_THAT(find("filename:(- a.nvz)"), ElementsAre("a.nvz"));
}

TEST(QueryTest, PatternsMatchWholeValues) {
    EXPECT_THAT(find("filename:mouse*"), ElementsAre("mouse-driver_1.2.3.nvz"));
    EXPECT_THAT(find("filename:??.nvz"), ElementsAre("照明.nvz"));
    EXPECT_THAT(find("filename:star\\*.nv?"), ElementsAre("star*.nvz"));
    EXPECT_FALSE(matchesPattern("a*b", "acbc"));
    EXPECT_TRUE(matchesPattern("*a*b", "xaxbab"));
    EXPECT_FALSE(matchesPattern("", "a"));
    EXPECT_TRUE(matchesPattern("**", ""));
    // what makes matchers that go back step by step take for ever
    EXPECT_FALSE(matchesPattern("*a*a*a*a*a*a*a*a*b", std::string(2000, 'a')));
}

}  // namespace
}  // namespace depot
