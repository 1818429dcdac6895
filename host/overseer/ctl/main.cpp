#include <curl/curl.h>
#include <fcntl.h>
#include <unistd.h>
#include <cstdlib>
#include <iostream>

#include "ctl/command_line.h"

namespace {

/// Takes the place of a standard stream that the caller closed: the program's first socket would
/// get its number, and what is printed would go there. Using it fails as if it were closed.
void keepStandardStreams() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) == -1) {
            open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

}  // namespace

int main(int count, char** values) {
    keepStandardStreams();
    curl_global_init(CURL_GLOBAL_DEFAULT);
    const bool terminal = isatty(STDOUT_FILENO) != 0;
    const char* noColour = std::getenv("NO_COLOR");  // NOLINT(concurrency-mt-unsafe)
    const bool colourWanted = noColour == nullptr || *noColour == '\0';
    overseer::ctl::Console console{std::cin,
                                   std::cout,
                                   std::cerr,
                                   terminal,
                                   terminal && isatty(STDIN_FILENO) != 0,
                                   terminal && colourWanted};
    const overseer::ctl::Interruption interruption;
    const int code = overseer::ctl::run({values + 1, values + count}, console, interruption);
    curl_global_cleanup();
    return code;
}
