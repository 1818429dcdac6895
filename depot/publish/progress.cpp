#include "depot/publish/progress.h"

#include <unistd.h>

#include <iostream>

namespace depot {

Progress::Progress() : terminal_(::isatty(STDERR_FILENO) == 1) {}

void Progress::show(const std::string& text) {
    if (!terminal_) return;
    std::cerr << "\r\x1b[K" << text << std::flush;
    shown_ = true;
}

void Progress::clear() {
    if (shown_) std::cerr << "\r\x1b[K" << std::flush;
    shown_ = false;
}

}  // namespace depot
