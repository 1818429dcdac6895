// nv::system: a command line run to its end, with its output kept and its failure logged.

#include <nv/system.h>

#include <nvhost/environment.h>
#include <nvhost/regular_file.h>

#include <fcntl.h>
#include <log4cplus/loggingmacros.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cstdio>
#include <string>

#include "child_process.h"
#include "command_line.h"

namespace nv {
namespace {

using hosting::Descriptor;
using hosting::lastError;

constexpr int kNotStarted = 127;
constexpr std::size_t kTail = 2048;
constexpr int kTailLines = 5;
constexpr off_t kLargestLog = 4 << 20;

/// A file that a child's output is appended to.
class OutputFile {
  public:
    explicit OutputFile(const std::string& path)
        : file_(::open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, 0644)),
          start_(size()) {}

    bool isOpen() const { return file_.isOpen(); }
    int number() const { return file_.get(); }

    /// The last lines that were written since it was opened, in one line.
    std::string tail() const {
        const off_t end = size();
        const off_t from = std::max(start_, end - static_cast<off_t>(kTail));
        if (end <= from) return {};
        std::string text(static_cast<std::size_t>(end - from), '\0');
        const ssize_t count = ::pread(file_.get(), text.data(), text.size(), from);
        text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return lastLines(text);
    }

  private:
    off_t size() const {
        struct stat status {};
        return ::fstat(file_.get(), &status) == 0 ? status.st_size : 0;
    }

    static std::string lastLines(std::string text) {
        while (!text.empty() && text.back() == '\n') text.pop_back();
        std::size_t from = text.size();
        for (int line = 0; line < kTailLines && from != std::string::npos && from > 0; ++line) {
            from = text.rfind('\n', from - 1);
        }
        if (from != std::string::npos && from < text.size()) text.erase(0, from + 1);
        for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 3) {
            text.replace(at, 1, " | ");
        }
        return text;
    }

    Descriptor file_;
    off_t start_;
};

int refuse(const std::string& line, const std::string& why) {
    LOG4CPLUS_ERROR(log4cplus::Logger::getRoot(),
                    "system: not run: " << why << ", in the command line: " << line);
    return kNotStarted;
}

void reportFailure(const std::string& line, const ChildEnd& end, const OutputFile& output,
                   const OutputFile& errors) {
    std::string how = end.timedOut
                          ? "was ended after its time limit of " +
                                std::to_string(hosting::environment().commandTimeLimit.count()) +
                                " s, status "
                          : "ended with status ";
    how += std::to_string(end.status);
    std::string tail = output.tail();
    if (errors.number() != output.number() && !errors.tail().empty()) tail = errors.tail();
    LOG4CPLUS_WARN(log4cplus::Logger::getRoot(),
                   "system: a command " << how << ": " << line
                                        << (tail.empty() ? "" : "; its last output: ") << tail);
}

/// Where output goes that is not redirected. A log that has grown large becomes `….1` first, in
/// the place of the one before it.
std::string logPath() {
    std::string path = hosting::environment().commandLog.string();
    if (path.empty()) return "/dev/null";
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
        status.st_size > kLargestLog) {
        ::rename(path.c_str(), (path + ".1").c_str());
    }
    return path;
}

int run(const std::string& line, const CommandLine& command) {
    const OutputFile log(logPath());
    if (!log.isOpen()) return refuse(line, logPath() + ": " + lastError().message());
    const OutputFile redirected(command.outputFile.empty() ? "/dev/null" : command.outputFile);
    if (!redirected.isOpen())
        return refuse(line, command.outputFile + ": " + lastError().message());
    const OutputFile& output = command.outputFile.empty() ? log : redirected;
    const OutputFile& errors = command.errorsToOutput ? output : log;

    const KeptExitStatus kept;
    std::string problem;
    const pid_t child = startChild(command.words, output.number(), errors.number(), problem);
    if (child < 0) return refuse(line, problem);
    const ChildEnd end = waitForChild(child, hosting::environment().commandTimeLimit);
    if (end.status != 0) reportFailure(line, end, output, errors);
    return end.status;
}

}  // namespace

int system(const char* command) {
    const std::string line = command;
    std::string problem;
    const auto parsed = parseCommandLine(line, problem);
    return parsed ? run(line, *parsed) : refuse(line, problem);
}

}  // namespace nv
