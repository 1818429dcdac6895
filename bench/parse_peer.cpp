// What pugixml alone needs to parse a file, in milliseconds of processor time. Once, as a host does
// that gives its memory back between runs: a second parse would find the pages in place.
// usage: parse_peer FILE
#include <sys/resource.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <pugixml.hpp>
#include <string>

namespace {

double processorMilliseconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto milliseconds = [](const timeval& time) {
        return 1e3 * static_cast<double>(time.tv_sec) + 1e-3 * static_cast<double>(time.tv_usec);
    };
    return milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
}

}  // namespace

int main(int count, char** values) {
    if (count != 2) {
        std::fputs("usage: parse_peer FILE\n", stderr);
        return 64;
    }
    std::ifstream file(values[1], std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const double begin = processorMilliseconds();
    auto document = std::make_unique<pugi::xml_document>();
    if (!document->load_buffer(text.data(), text.size())) {
        std::fprintf(stderr, "%s: not XML\n", values[1]);
        return 1;
    }
    document.reset();
    std::printf("%.1f\n", processorMilliseconds() - begin);
    return 0;
}
