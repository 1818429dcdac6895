#include "command_line.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAreArray;

struct Accepted {
    const char* line;
    std::vector<std::string> words;
    const char* outputFile = "";
    bool errorsToOutput = false;
};

TEST(CommandLine, takesApartWhatItsCallersWrite) {
    const Accepted table[] = {
        {R"(unzip "/d/a b.nvz" -d "/d/a b")", {"unzip", "/d/a b.nvz", "-d", "/d/a b"}},
        {R"(unzip "/d/x.nvz" -d "/d/x.1f" >> "/d/x.1f/unzip.out" 2>&1)",
         {"unzip", "/d/x.nvz", "-d", "/d/x.1f"},
         "/d/x.1f/unzip.out",
         true},
        {R"(p "$(touch x) `y` $HOME '*' \")", {"p", R"($(touch x) `y` $HOME '*' \)"}},
        {"p \"\" \"a\nb\"", {"p", "", "a\nb"}},
        {"  p\t--size=3,4%  a\"b c\"d ", {"p", "--size=3,4%", "ab cd"}},
        {R"("-p"="x y")", {"-p=x y"}},
        {"p >>f", {"p"}, "f"},
        {">> f p 2>&1 a", {"p", "a"}, "f", true},
        {"p 2>&1 >> f", {"p"}, "f", false},
        {"p 2>&1", {"p"}},
    };
    for (const Accepted& row : table) {
        SCOPED_TRACE(row.line);
        std::string problem;
        const auto command = nv::parseCommandLine(row.line, problem);
        ASSERT_TRUE(command) << problem;
        EXPECT_THAT(command->words, ElementsAreArray(row.words));
        EXPECT_EQ(command->outputFile, row.outputFile);
        EXPECT_EQ(command->errorsToOutput, row.errorsToOutput);
    }
}

TEST(CommandLine, refusesWhatWouldMeanMoreToAShell) {
    const char* const table[] = {
        "",      "  ",     "\"\" a", "p; q",    "p & q",     "p | q",       "p && q",
        "p > f", "p < f",  "p 2> f", "p >>",    "p >> \"\"", "p >> f >> g", "p $HOME",
        "p `q`", "p $(q)", "p 'a'",  "p a\\ b", "p *",       "p ?",         "p [a]",
        "p ~",   "p #c",   "p !1",   "p {a,b}", "p a\nq",    "p a\x01",     "A=b p",
        "p \"a", "p a\"b", "p a>>f", "p 2>&1x", "p 2>&2",    ">> f",        "2>&1",
    };
    for (const char* line : table) {
        std::string problem;
        EXPECT_FALSE(nv::parseCommandLine(line, problem)) << line;
        EXPECT_FALSE(problem.empty()) << line;
    }
}

}  // namespace
