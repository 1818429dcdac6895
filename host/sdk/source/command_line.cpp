// The grammar of nv::system: the little of a shell's that its callers use.

#include "command_line.h"

#include <cstring>

namespace nv {
namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

bool isControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

bool meansSomethingToAShell(char c) {
    return std::strchr("|&;<>()$`\\'*?[]#~!{}^", c) != nullptr;
}

/// Reads one line from left to right; the first problem ends it.
class Reader {
  public:
    explicit Reader(const std::string& line) : line_(line) {}

    bool read(CommandLine& command) {
        while (skipBlanks()) {
            const bool understood = starts(">>")   ? readOutput(command)
                                    : startsJoin() ? readJoin(command)
                                                   : readArgument(command);
            if (!understood) return false;
        }
        if (command.words.empty() || command.words.front().empty()) return fail("no program");
        return true;
    }

    const std::string& problem() const { return problem_; }

  private:
    bool fail(const std::string& why) {
        problem_ = why;
        return false;
    }

    bool skipBlanks() {
        while (at_ < line_.size() && isBlank(line_[at_])) ++at_;
        return at_ < line_.size();
    }

    bool starts(const char* text) const { return line_.compare(at_, std::strlen(text), text) == 0; }

    bool startsJoin() const {
        return starts("2>&1") && (at_ + 4 == line_.size() || isBlank(line_[at_ + 4]));
    }

    bool readOutput(CommandLine& command) {
        at_ += 2;
        if (!command.outputFile.empty()) return fail("output is redirected twice");
        if (!skipBlanks()) return fail("no file after >>");
        if (!readWord(command.outputFile)) return false;
        return !command.outputFile.empty() || fail("no file after >>");
    }

    bool readJoin(CommandLine& command) {
        at_ += 4;
        // Before `>> FILE` it means the output as it was, which is where errors go anyway.
        command.errorsToOutput = !command.outputFile.empty();
        return true;
    }

    bool readArgument(CommandLine& command) {
        std::string word;
        const bool bare = line_[at_] != '"';
        if (!readWord(word)) return false;
        if (bare && command.words.empty() && word.find('=') != std::string::npos) {
            return fail("a variable assignment in front of the program");
        }
        command.words.push_back(std::move(word));
        return true;
    }

    bool readWord(std::string& word) {
        for (; at_ < line_.size() && !isBlank(line_[at_]); ++at_) {
            const char c = line_[at_];
            if (c == '"') {
                const std::size_t end = line_.find('"', at_ + 1);
                if (end == std::string::npos) return fail("a double quote without its second");
                word.append(line_, at_ + 1, end - at_ - 1);
                at_ = end;
            } else if (isControl(c)) {
                return fail("a control character outside double quotes");
            } else if (meansSomethingToAShell(c)) {
                return fail(std::string("the shell character ") + c + " outside double quotes");
            } else {
                word += c;
            }
        }
        return true;
    }

    const std::string& line_;
    std::size_t at_ = 0;
    std::string problem_;
};

}  // namespace

std::optional<CommandLine> parseCommandLine(const std::string& line, std::string& problem) {
    CommandLine command;
    Reader reader(line);
    if (reader.read(command)) return command;
    problem = reader.problem();
    return std::nullopt;
}

}  // namespace nv
