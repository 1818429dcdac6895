#include "depot/select_handler.h"

#include <gmock/gmock.h>

#include <regex>
#include <string>

#include "depot_test_kit.h"

namespace depot {
namespace {

using testing::document;
using ::testing::HasSubstr;
using ::testing::Not;
using testing::snapshotOf;
using ::testing::StartsWith;

const std::string kAgentQuery =
    "q=*:*&fq=filename:(IN+\"a%20%26%20b.nvz\",\"none.nvi\",\"c%2Bd.nvi\")+AND+autoUpdate:\"true\""
    "&fl=filename,version,name,model,manufacturer,md5sum&wt=xml&indent=true&rows=100000";

Snapshot twoDocuments() {
    Document first = document("a & b.nvz", 7);
    first.name = "Lamp <\"1\">";
    first.model = "";
    first.minimumAutoUpdateVersion = 3;
    first.minimumOSVersion = "4.10";
    Document second = document("c+d.nvi", 12);
    second.manufacturer = "\u00C9toile\x01";
    second.agent = true;
    second.forceAutoUpdate = true;
    return snapshotOf({first, second});
}

/// The answer's body with the time taken, which varies, as 0.
std::string body(std::string_view query, Core core = Core::kDrivers) {
    return std::regex_replace(answerSelect(twoDocuments(), core, query).body,
                              std::regex("QTime\">[0-9]+<"), "QTime\">0<");
}

int status(std::string_view query) {
    return answerSelect(twoDocuments(), Core::kDrivers, query).status;
}

TEST(SelectHandlerTest, AnswersTheAgentsQueryByteForByte) {
    EXPECT_EQ(body(kAgentQuery),
              R"(<?xml version="1.0" encoding="UTF-8"?>
<response>

<lst name="responseHeader">
  <int name="status">0</int>
  <int name="QTime">0</int>
</lst>
<result name="response" numFound="2" start="0" numFoundExact="true">
  <doc>
    <str name="filename">a &amp; b.nvz</str>
    <int name="version">7</int>
    <str name="name">Lamp &lt;"1"&gt;</str>
    <str name="model"/>
    <str name="md5sum">00000000000000000000000000000007</str>
    <int name="minimumAutoUpdateVersion">3</int>
    <str name="minimumOSVersion">4.10</str></doc>
  <doc>
    <str name="filename">c+d.nvi</str>
    <int name="version">12</int>
    <str name="manufacturer">)"
              "\u00C9toile#1;"
              R"(</str>
    <str name="md5sum">00000000000000000000000000000012</str></doc>
</result>
</response>
)");
}

TEST(SelectHandlerTest, WritesEmptyAndUnindentedAnswersAndErrorsByteForByte) {
    EXPECT_EQ(body("q=filename:none"),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<response>\n\n"
              "<lst name=\"responseHeader\">\n  <int name=\"status\">0</int>\n"
              "  <int name=\"QTime\">0</int>\n</lst>\n"
              "<result name=\"response\" numFound=\"0\" start=\"0\" numFoundExact=\"true\">\n"
              "</result>\n</response>\n");
    EXPECT_EQ(body("q=*:*&indent=off&fl=version", Core::kAgents),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<response>\n"
              "<lst name=\"responseHeader\"><int name=\"status\">0</int><int name=\"QTime\">0</int>"
              "</lst><result name=\"response\" numFound=\"1\" start=\"0\" numFoundExact=\"true\">"
              "<doc><int name=\"version\">12</int></doc></result>\n</response>\n");
    EXPECT_EQ(body("q=nosuch:x"),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<response>\n\n"
              "<lst name=\"responseHeader\">\n  <int name=\"status\">400</int>\n"
              "  <int name=\"QTime\">0</int>\n</lst>\n<lst name=\"error\">\n"
              "  <lst name=\"metadata\">\n"
              "    <str name=\"error-class\">org.apache.solr.common.SolrException</str>\n"
              "    <str name=\"root-error-class\">org.apache.solr.common.SolrException</str>\n"
              "  </lst>\n  <str name=\"msg\">undefined field nosuch</str>\n"
              "  <int name=\"code\">400</int>\n</lst>\n</response>\n");
}

TEST(SelectHandlerTest, ParametersAnswerAsSolrDoes) {
    const std::vector<std::pair<std::string, std::string>> table{
        {"", "numFound=\"0\""},
        {"fq=filename:*", "numFound=\"0\""},
        {"q=", "numFound=\"0\""},
        {"q=*:*&fq=", "numFound=\"2\""},
        {"q=*:*&q=filename:x", "numFound=\"2\""},
        {"q=*:*&fq=version:7&fq=version:12", "numFound=\"0\""},
        {"q=*:*&rows=2147483647", "numFound=\"2\""},
        {"q=*:*&start=1&fl=filename", "numFound=\"2\" start=\"1\""},
        {"q=*:*&rows=", "For input string: \"\""},
        {"q=*:*&rows=x", "For input string: \"x\""},
        {"q=*:*&rows=99999999999", "For input string: \"99999999999\""},
        {"q=*:*&rows=-1", "'rows' parameter cannot be negative"},
        {"q=*:*&start=-1", "'start' parameter cannot be negative"},
        {"q=*:*&wt=json", "only wt=xml is"},
        {"q=%2A%3A%2A", "numFound=\"2\""},
        {"q=filename:%22a+%26+b.nvz%22", "numFound=\"1\""},
        {"q=filename:%22c+d.nvi%22", "numFound=\"0\""},
        {"q=filename:%22c%252Bd.nvi%22", "numFound=\"0\""},
    };
    for (const auto& [query, expected] : table)
        EXPECT_THAT(body(query), HasSubstr(expected)) << query;
    EXPECT_THAT(body("q=*:*&rows=0"), Not(HasSubstr("<doc>")));
    EXPECT_THAT(body("q=*:*&start=1&fl=filename"), Not(HasSubstr("a &amp; b")));
    EXPECT_THAT(body("q=*:*&fl=filename&fl=force*+nosuch"), HasSubstr("forceAutoUpdate\">true"));
    EXPECT_THAT(body("q=*:*&fl=filename"), HasSubstr("minimumOSVersion\">4.10"));
}

TEST(SelectHandlerTest, AUrlThatCannotBeDecodedIsRefusedAsHtml) {
    for (const char* query : {"q=%", "q=%4", "q=%zz", "q=a b", "q=\t", "q=%DC",
                              "q=gr\xC3\xB6\xC3\x9F", "q=%ED%A0%80", "q=%C0%AF", "%DC=x"}) {
        const Answer answer = answerSelect(twoDocuments(), Core::kDrivers, query);
        EXPECT_EQ(answer.status, 400) << query;
        EXPECT_THAT(answer.contentType, StartsWith("text/html")) << query;
    }
    EXPECT_EQ(status("q=filename:()"), 400);
    EXPECT_EQ(status("q=filename:%5B%7D<>~&fq=x"), 400);
}

}  // namespace
}  // namespace depot
