// The depot's answers next to a real Solr's, for everything that controllers send and for what a
// person at a terminal may try. Run by script/test-solr, which names the Solr in CATALOGUE_SOLR.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "depot/publish/http_client.h"
#include "depot/publish/name_check.h"
#include "depot/publish/solr_site.h"
#include "depot/select_handler.h"

namespace depot {
namespace {

constexpr std::chrono::seconds kTimeLimit{20};

Document document(const std::string& filename, int version) {
    Document made;
    made.filename = filename;
    made.version = version;
    made.md5sum = std::string(31, '0') + std::to_string(version % 10);
    return made;
}

/// Names with everything in them that a query language may trip over, and one of each field.
std::vector<Document> documents() {
    std::vector<Document> made;
    int version = 0;
    for (const char* name : {"!bang.nvz",
                             "12345.nvz",
                             "a!b.nvz",
                             "a\"b.nvz",
                             "a%20b.nvz",
                             "a&b.nvz",
                             "a'b.nvz",
                             "a+b.nvz",
                             "a,b.nvz",
                             "a.nvz",
                             "a<b>.nvz",
                             "a:b.nvz",
                             "b c.nvi",
                             "-dash.nvz",
                             "dir\\a.nvz",
                             "driver (2).nvz",
                             "driver[1].nvz",
                             "mouse-driver_1.2.3.nvz",
                             "rock AND roll.nvz",
                             "star*.nvz",
                             "x~1{2}^3?.nvz",
                             "100%.nvz",
                             "{x}.nvz",

                             "größe.nvz",
                             "照明.nvz",
                             "😀.nvz",
                             "\u00A0.nvz"})
        made.push_back(document(name, ++version));
    for (int number = 0; number < 300; ++number)
        made.push_back(document("bulk" + std::to_string(1000 + number) + ".nvi", 5));
    Document full = document("full.nvz", 2147483647);
    full.name = "Lamp <\"1\"> & 'co'";
    full.model = "";
    full.manufacturer = "\u00C9toile 照明";
    full.minimumAutoUpdateVersion = 0;
    full.minimumOSVersion = "4.10";
    full.agent = true;
    made.push_back(full);
    Document forced = document("forced.nvz", 3);
    forced.autoUpdate = false;
    forced.forceAutoUpdate = true;
    forced.agent = true;
    made.push_back(forced);
    Document withdrawn = document("withdrawn.nvz", 4);
    withdrawn.autoUpdate = false;
    made.push_back(withdrawn);
    std::sort(made.begin(), made.end(), [](const Document& left, const Document& right) {
        return left.filename < right.filename;
    });
    return made;
}

std::string threeHundredNames() {
    std::string names;
    for (int number = 0; number < 300; ++number)
        names += (number == 0 ? "\"bulk" : ",\"bulk") + std::to_string(1000 + number) + ".nvi\"";
    return names;
}

/// What a client can tell of an answer, one thing a line, without the time that it took and the
/// order in which documents and fields come.
std::string shapeOf(long status, const std::string& type, const std::string& body) {
    std::string shape = std::to_string(status) + " " + type.substr(0, type.find(';')) + "\n";
    pugi::xml_document answer;
    if (type.find("xml") == std::string::npos || !answer.load_string(body.c_str())) return shape;
    std::vector<std::string> lines;
    for (const pugi::xml_node& part : answer.document_element().children()) {
        const std::string name = part.attribute("name").value();
        for (const pugi::xml_node& each : part.children()) {
            std::string line = name + " " + each.name() + " " + each.attribute("name").value();
            std::vector<std::string> fields;
            for (const pugi::xml_node& field : each.children()) {
                if (field.type() != pugi::node_element) continue;
                const std::string value = field.child_value();
                fields.push_back(std::string(field.name()) + " " + field.attribute("name").value() +
                                 "=" + value);
            }
            std::sort(fields.begin(), fields.end());
            for (const std::string& field : fields) line += "\n    " + field;
            const bool number = std::string(each.attribute("name").value()) != "QTime" &&
                                std::string(each.name()) == "int";
            if (number) line += std::string(" ") + each.child_value();
            lines.push_back(line);
        }
        if (name == "response")
            lines.push_back(std::string("found ") + part.attribute("numFound").value() + " from " +
                            part.attribute("start").value());
    }
    std::sort(lines.begin(), lines.end());
    for (const std::string& line : lines) shape += line + "\n";
    return shape;
}

class ComparisonTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        const char* const url = std::getenv("CATALOGUE_SOLR");
        if (url == nullptr) return;
        client_ = std::make_unique<SolrClient>(url, "");
        http_ = std::make_unique<HttpClient>();
        auto site = SolrSite::open(*client_, "catalogue");
        ASSERT_TRUE(site) << site.error().message;
        site_ = std::move(*site);
        for (const Core core : {Core::kDrivers, Core::kAgents}) {
            const auto wanted = depot::documentsOf(core, documents());
            ASSERT_TRUE(site_->create(collectionOf(core)));
            ASSERT_TRUE(site_->load(collectionOf(core), wanted,
                                    [](auto, auto) -> Result<void> { return {}; }));
        }
        std::vector<Snapshot::Entry> entries;
        for (const Document& each : documents())
            entries.push_back(std::make_shared<CatalogueEntry>(CatalogueEntry{each, {}}));
        snapshot_ = std::make_unique<Snapshot>(std::move(entries));
    }
    static void TearDownTestSuite() {
        for (const Core core : {Core::kDrivers, Core::kAgents}) {
            if (site_) {
                EXPECT_TRUE(site_->drop(collectionOf(core)));
            }
        }
        site_.reset();
        client_.reset();
        http_.reset();
    }
    void SetUp() override {
        if (!site_) GTEST_SKIP() << "CATALOGUE_SOLR names no Solr";
    }

    static std::string collectionOf(Core core) { return coreName(core) + "_compared"; }

    static std::string solrShape(Core core, const std::string& query) {
        const auto answer =
            http_->get(client_->base() + "/" + collectionOf(core) + "/select?" + query, kTimeLimit);
        if (!answer) return answer.error().message;
        std::string shape = shapeOf(answer->status, answer->contentType, answer->body);
        // Only a cluster says so, and nobody reads it.
        const std::string connected = "responseHeader bool zkConnected\n";
        const std::size_t at = shape.find(connected);
        return at == std::string::npos ? shape : shape.erase(at, connected.size());
    }
    static std::string depotShape(Core core, const std::string& query) {
        const Answer answer = answerSelect(*snapshot_, core, query);
        return shapeOf(answer.status, answer.contentType, answer.body);
    }

    static std::unique_ptr<SolrClient> client_;
    static std::unique_ptr<HttpClient> http_;
    static std::unique_ptr<SolrSite> site_;
    static std::unique_ptr<Snapshot> snapshot_;
};

std::unique_ptr<SolrClient> ComparisonTest::client_;
std::unique_ptr<HttpClient> ComparisonTest::http_;
std::unique_ptr<SolrSite> ComparisonTest::site_;
std::unique_ptr<Snapshot> ComparisonTest::snapshot_;

/// A list of names as it goes into a query, and what it finds in "drivers"; -1 where it is refused.
struct NameRow {
    std::string names;
    int found;
};

TEST_F(ComparisonTest, ListsOfNamesFindTheSame) {
    const std::vector<NameRow> rows{
        {R"("a.nvz")", 1},
        {R"("a.nvz","b%20c.nvi")", 2},
        {R"("none.nvz")", 0},
        {"", 0},
        {R"("")", 0},
        {R"("","a.nvz")", 1},
        {R"("b+c.nvi")", 1},
        {R"("a%2Bb.nvz")", 1},
        {R"("a%2Cb.nvz")", 1},
        {R"("a%26b.nvz")", 1},
        {R"("a%2520b.nvz")", 1},
        {R"("100%25.nvz")", 1},
        {R"("100%2525.nvz")", 0},
        {R"("gr%C3%B6%C3%9Fe.nvz","%E7%85%A7%E6%98%8E.nvz","%F0%9F%98%80.nvz","%C2%A0.nvz")", 4},
        {R"("driver%5B1%5D.nvz","driver%20%282%29.nvz","%7Bx%7D.nvz")", 3},
        {R"("driver[1].nvz","{x}.nvz","x~1{2}^3?.nvz","star*.nvz")", 4},
        {R"("-dash.nvz","!bang.nvz","rock%20AND%20roll.nvz","a:b.nvz")", 4},
        {R"("a%27b.nvz","a<b>.nvz","12345.nvz")", 3},
        {R"("a%5C%22b.nvz")", 1},
        {R"("a%22b.nvz")", -1},
        {R"("a%22b%22c.nvz")", 0},
        {R"("dir%5C%5Ca.nvz")", 1},
        {R"("dir%5Ca.nvz")", 0},
        {R"("a%5C")", -1},
        {R"("C:%5Cusers")", -1},
        {R"("A.NVZ")", 0},
        {threeHundredNames(), 300},
        {"mouse-driver_1.2.3.nvz", 1},
        {"12345.nvz", 1},
        {"a!b.nvz", 1},
        {"a,b.nvz", 1},
        {"a%2Bb.nvz", 1},
        {"100%25.nvz", 1},
        {"%E7%85%A7%E6%98%8E.nvz", 1},
        {"b+c.nvi", 0},
        {"driver+(2).nvz", 0},
        {"-dash.nvz", -2},
        {"a:b.nvz", -1},
        {"driver[1].nvz", -1},
        {"{x}.nvz", -1},
        {"star*.nvz", 1},
        {"bulk10*", 100},
        {"bulk100?.nvi", 10},
    };
    for (const NameRow& row : rows) {
        for (const bool forced : {false, true}) {
            SCOPED_TRACE((forced ? "forced: " : "") + row.names.substr(0, 200));
            const std::string query = controllerQuery(row.names, forced);
            const std::string shape = solrShape(Core::kDrivers, query);
            EXPECT_EQ(depotShape(Core::kDrivers, query), shape);
            if (row.found >= 0 && !forced) {
                EXPECT_THAT(shape,
                            ::testing::HasSubstr("found " + std::to_string(row.found) + " from 0"));
            }
            if (row.found == -1) {
                EXPECT_THAT(shape, ::testing::StartsWith("400"));
            }
        }
    }
}

TEST_F(ComparisonTest, CoresFlagsFieldsAndRowsAreTheSame) {
    const std::string agentFields = "&fl=filename,version,name,model,manufacturer,md5sum";
    const std::string some =
        "q=*:*&fq=filename:(IN+\"full.nvz\",\"forced.nvz\",\"withdrawn.nvz\","
        "\"a.nvz\")";
    const std::vector<std::string> queries{
        controllerQuery(R"("full.nvz","forced.nvz","withdrawn.nvz")", false),
        controllerQuery(R"("full.nvz","forced.nvz","withdrawn.nvz")", true),
        some + agentFields + "&wt=xml&indent=true&rows=100000",
        some + "&wt=xml",
        some + "&fl=*Version&wt=xml",
        some + "&fl=filename&fl=md5sum,nothing&wt=xml",
        some + "&fl=filename+version&wt=xml",
        some + "&indent=off&wt=xml",
        some + "&rows=0&wt=xml",
        some + "&rows=2147483647&wt=xml",
        some + "&rows=x&wt=xml",
        some + "&rows=&wt=xml",
        some + "&rows=-1&wt=xml",
        some + "&start=-1&wt=xml",
        some + "&start=9&wt=xml",
        some + "+AND+autoUpdate:\"True\"&wt=xml",
        some + "+AND+autoUpdate:1&wt=xml",
        some + "+AND+autoUpdate:no&wt=xml",
        some + "+AND+version:4&wt=xml",
        some + "+AND+version:x&wt=xml",
        some + "+AND+nothing:x&wt=xml",
        some + "&fq=version:3&wt=xml",
        some + "&fq=&wt=xml",
        some + "+AND+minimumOSVersion:*&wt=xml",
        some + "+AND+NOT+forceAutoUpdate:true&wt=xml",
        some + "+-filename:a.nvz&wt=xml",
        some + "+%26%26+%2Bversion:3&wt=xml",
        "q=filename:full.nvz&wt=xml",
        "q=full.nvz&wt=xml",
        "q=-filename:bulk*&rows=1000&wt=xml",
        "q=filename:()&wt=xml",
        "q=&wt=xml",
        "wt=xml",
        "q=*&rows=0&wt=xml",
        "q=*:*&q=filename:a.nvz&rows=0&wt=xml",
        "q=name:Lamp&wt=xml",
        "q=model:\"\"&wt=xml",
        "q=(((filename:a.nvz)))&wt=xml",
        "q=filename:a.nvz)&wt=xml",
        "q=filename:\"a.nvz&wt=xml",
        "q=AND&wt=xml",
        "q=filename:a.nvz^2&wt=xml",
        "q=%ZZ&wt=xml",
        "q=%DC&wt=xml",
        "Q=*:*&wt=xml",
    };
    for (const Core core : {Core::kDrivers, Core::kAgents}) {
        for (const std::string& query : queries) {
            SCOPED_TRACE(coreName(core) + " " + query);
            EXPECT_EQ(depotShape(core, query), solrShape(core, query));
        }
    }
}

TEST_F(ComparisonTest, WhatTheDepotCannotDoItRefusesInSolrsWay) {
    // docs/catalogue.md lists these.
    for (const std::string query : {"q=version:[3+TO+5]&wt=xml", "q=filename:/a.*/&wt=xml",
                                    "q={!term+f=filename}a.nvz&wt=xml", "q=*:*&wt=json",
                                    "q=/*+comment+*/filename:a.nvz&wt=xml"}) {
        SCOPED_TRACE(query);
        const Answer answer = answerSelect(*snapshot_, Core::kDrivers, query);
        EXPECT_THAT(shapeOf(answer.status, answer.contentType, answer.body),
                    ::testing::StartsWith("400 application/xml\nerror int code 400\n"));
        EXPECT_THAT(solrShape(Core::kDrivers, query), ::testing::StartsWith("200"));
    }
}

}  // namespace
}  // namespace depot
