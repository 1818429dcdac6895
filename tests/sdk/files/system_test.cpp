#include <nv/system.h>
#include <nvhost/children.h>
#include <nvhost/environment.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>
#include <sys/stat.h>
#include <unistd.h>
#include <csignal>
#include <future>
#include <thread>

#include "temporary_folder.h"

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

class LogKeeper : public log4cplus::Appender {
  public:
    ~LogKeeper() override { destructorImpl(); }
    void close() override { closed = true; }
    std::string text;

  protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        text += event.getMessage() + '\n';
    }
};

/// Runs real children in a folder of their own, with what is logged about them kept.
class System : public testing::Test {
  protected:
    System() : environment_(makeEnvironment()) { log4cplus::Logger::getRoot().addAppender(log_); }
    ~System() override { log4cplus::Logger::getRoot().removeAppender(log_); }

    /// Writes a script and returns the quoted path to it, to put in a command line.
    std::string script(const std::string& text) {
        const auto file = folder_.write("script.sh", "#!/bin/sh\n" + text + '\n');
        ::chmod(file.c_str(), 0755);
        return '"' + file.string() + '"';
    }
    std::string path(const std::string& name) const { return (folder_ / name).string(); }
    std::string commandLog() const { return contentOf(folder_ / "commands.log"); }
    const std::string& logged() { return static_cast<LogKeeper&>(*log_).text; }

    TemporaryFolder folder_;

  private:
    nv::hosting::Environment makeEnvironment() {
        nv::hosting::Environment environment;
        environment.commandLog = folder_ / "commands.log";
        environment.temporaryFolder = folder_ / "tmp";
        environment.commandTimeLimit = std::chrono::seconds(1);
        return environment;
    }

    nv::hosting::EnvironmentScope environment_;
    log4cplus::SharedAppenderPtr log_{new LogKeeper};
};

TEST_F(System, sendsOutputToTheCommandLogUnlessRedirected) {
    const std::string program = script("echo out $1; echo err $1 >&2");
    EXPECT_EQ(nv::system((program + " first").c_str()), 0);
    EXPECT_EQ(commandLog(), "out first\nerr first\n");
    EXPECT_EQ(nv::system((program + " 2nd >> \"" + path("o") + '"').c_str()), 0);
    EXPECT_EQ(nv::system((program + " 3rd >> \"" + path("o") + "\" 2>&1").c_str()), 0);
    EXPECT_EQ(contentOf(path("o")), "out 2nd\nout 3rd\nerr 3rd\n");
    EXPECT_EQ(commandLog(), "out first\nerr first\nerr 2nd\n");
    EXPECT_EQ(logged(), "");
}

TEST_F(System, answersAndLogsHowACommandFailed) {
    EXPECT_EQ(nv::system(script("seq 1 9; exit 3").c_str()), 3);
    EXPECT_THAT(logged(), HasSubstr("status 3"));
    EXPECT_THAT(logged(), HasSubstr("last output: 5 | 6 | 7 | 8 | 9\n"));
    EXPECT_EQ(nv::system(script("kill -TERM $$").c_str()), 128 + SIGTERM);
    EXPECT_EQ(nv::system("no-such-program-here a"), 127);
    EXPECT_THAT(logged(), HasSubstr("no-such-program-here a"));
    EXPECT_EQ(nv::system(("echo a >> \"" + path("absent/o") + '"').c_str()), 127);
    EXPECT_EQ(nv::system(("touch \"" + path("made") + "\"; true").c_str()), 127);
    EXPECT_THAT(logged(), HasSubstr("the shell character ;"));
    EXPECT_FALSE(boost::filesystem::exists(path("made")));
}

TEST_F(System, givesAChildNothingOfTheHostsButWhatItNeeds) {
    // A descriptor that would be inherited, an ignored and a blocked signal.
    const int open = ::open("/", O_RDONLY);
    const auto before = std::signal(SIGPIPE, SIG_IGN);
    sigset_t blocked;
    sigset_t previous;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &previous);
    ::setenv("UNZIP", "-x", 1);

    EXPECT_EQ(
        nv::system(script("env | sort; ls /proc/$$/fd; wc -c; ps -o pid=,sid= -p $$ |"
                          " awk '{print $1 == $2}'; exec grep -E 'Sig(Blk|Ign)' /proc/self/status")
                       .c_str()),
        0);
    ::unsetenv("UNZIP");
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    std::signal(SIGPIPE, before);
    ::close(open);

    const std::string seen = commandLog();
    EXPECT_THAT(seen, HasSubstr("LC_ALL=C.UTF-8\n"));
    EXPECT_THAT(seen, HasSubstr("\nTMPDIR=" + path("tmp") + '\n'));
    EXPECT_THAT(seen, Not(HasSubstr("UNZIP")));
    EXPECT_THAT(seen, Not(HasSubstr("HOME")));
    EXPECT_THAT(seen, HasSubstr("SigBlk:\t0000000000000000"));
    // Signals 32 and 33 belong to the C library, which leaves them alone.
    EXPECT_THAT(seen, ContainsRegex("SigIgn:\t[0-9a-f]{8}[08]0000000"));
    EXPECT_THAT(seen, HasSubstr("\n0\n1\n10\n2\n0\n1\n")) << "descriptors, input size, session";
}

TEST_F(System, endsTheWholeGroupAfterTheTimeLimit) {
    const std::string fifo = path("alive");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const int reader = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    const auto start = std::chrono::steady_clock::now();
    // The grandchild holds the pipe open for as long as it lives.
    EXPECT_EQ(nv::system(script("echo begun; sleep 60 > \"" + fifo + "\" & wait").c_str()),
              128 + SIGKILL);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_THAT(logged(), HasSubstr("time limit of 1 s"));
    EXPECT_THAT(logged(), HasSubstr("last output: begun"));

    const int flags = ::fcntl(reader, F_GETFL);
    ::fcntl(reader, F_SETFL, flags & ~O_NONBLOCK);
    char byte = 0;
    EXPECT_EQ(::read(reader, &byte, 1), 0) << "ends only once no writer is left";
    ::close(reader);
}

TEST_F(System, endsARunningChildAndRefusesLaterOnesWhenTheHostStops) {
    const std::string fifo = path("begun");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const std::string line = script("echo > \"" + fifo + "\"; exec sleep 60");
    nv::hosting::Environment patient = nv::hosting::environment();
    patient.commandTimeLimit = std::chrono::seconds(60);
    const nv::hosting::EnvironmentScope scope(patient);

    // In a process of its own: there is no way back.
    const auto stopped = [&] {
        auto status = std::async(std::launch::async, [&line] { return nv::system(line.c_str()); });
        EXPECT_EQ(contentOf(fifo), "\n");  // blocks until the child has begun
        nv::hosting::stopChildren();
        EXPECT_EQ(status.get(), 128 + SIGKILL);
        EXPECT_TRUE(nv::hosting::childrenStopped());
        EXPECT_EQ(nv::system("true"), 127);
        ::_exit(HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(stopped(), testing::ExitedWithCode(0), "");
}

TEST_F(System, learnsTheStatusWhateverTheHostDoesAboutItsChildren) {
    const auto before = std::signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(nv::system(script("exit 7").c_str()), 7);
    EXPECT_EQ(std::signal(SIGCHLD, before), SIG_IGN) << "the host's own choice is put back";
}

}  // namespace
