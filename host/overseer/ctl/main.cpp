#include <curl/curl.h>
#include <unistd.h>
#include <cstdlib>
#include <iostream>

#include "ctl/command_line.h"

int main(int count, char** values) {
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
