#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <future>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "ctl/command_line.h"

namespace overseer::ctl {

/// What a whole run of `overseerctl` came to.
struct Ran {
    int code;
    std::string out;
    std::string err;
};

/// Runs it against the host of that root. @param interactive  `typed` comes from a terminal
inline Ran runOn(const std::string& root, std::vector<std::string> arguments,
                 const std::string& typed = "", bool interactive = false) {
    std::istringstream in(typed);
    std::ostringstream out;
    std::ostringstream err;
    Console console{in, out, err, interactive, interactive, false};
    const Interruption interruption;
    arguments.insert(arguments.begin(), {"--root", root});
    const int code = run(arguments, console, interruption);
    return {code, out.str(), err.str()};
}

/// An output that another thread can wait for.
class AwaitedOutput : public std::streambuf {
  public:
    void await(const std::string& text) {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(
            changed_.wait_for(lock, std::chrono::seconds(10),
                              [this, &text] { return text_.find(text) != std::string::npos; }))
            << "waits for \"" << text << "\" in: " << text_;
    }
    std::string text() {
        const std::lock_guard lock(mutex_);
        return text_;
    }

  protected:
    int overflow(int character) override {
        const char byte = static_cast<char>(character);
        xsputn(&byte, 1);
        return character;
    }
    std::streamsize xsputn(const char* bytes, std::streamsize size) override {
        const std::lock_guard lock(mutex_);
        text_.append(bytes, static_cast<std::size_t>(size));
        changed_.notify_all();
        return size;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string text_;
};

/// `overseerctl` in a thread of its own, as long as it likes.
class Background {
  public:
    Background(const std::string& root, std::vector<std::string> arguments, bool terminal) {
        arguments.insert(arguments.begin(), {"--root", root});
        code_ = std::async(std::launch::async, [this, arguments, terminal] {
            std::istringstream in;
            std::ostream outStream(&out);
            std::ostream errStream(&err);
            Console console{in, outStream, errStream, terminal, false, false};
            return run(arguments, console, interruption);
        });
    }
    ~Background() { interruption.request(); }
    int end() { return code_.get(); }

    AwaitedOutput out;
    AwaitedOutput err;
    Interruption interruption;

  private:
    std::future<int> code_;
};

}  // namespace overseer::ctl
