#include "response_recorder.h"

#include <strings.h>

#include <cctype>
#include <utility>

namespace nv::net {

namespace {

// libcurl bounds a single line only; a server may send as many as it likes.
constexpr std::size_t kMaximumHeaderBytes = 256u << 10;

int statusOf(std::string_view line) {
    const std::size_t blank = line.find(' ');
    int status = 0;
    for (std::size_t i = blank; i != std::string_view::npos && ++i < line.size();) {
        if (std::isdigit(static_cast<unsigned char>(line[i])) == 0 || status > 99) break;
        status = status * 10 + (line[i] - '0');
    }
    return status;
}

bool isLocation(const std::string& line) {
    return ::strncasecmp(line.c_str(), "location:", 9) == 0;
}

}  // namespace

void ResponseRecorder::headerLine(std::string_view line) {
    if (final_) return;
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
    if (!inHeaders_) {
        if (line.substr(0, 5) != "HTTP/") return;
        status_ = statusOf(line);
        inHeaders_ = true;
        headerBytes_ = 0;
        lines_.clear();
    } else if (line.empty()) {
        headersComplete();
    } else if ((headerBytes_ += line.size()) <= kMaximumHeaderBytes) {
        lines_.emplace_back(line);
    }
}

bool ResponseRecorder::leadsElsewhere() const {
    if (status_ < 200) return true;
    if (!followsRedirects_ || status_ < 300 || status_ >= 400) return false;
    for (const std::string& line : lines_) {
        if (isLocation(line)) return true;
    }
    return false;
}

void ResponseRecorder::headersComplete() {
    inHeaders_ = false;
    if (leadsElsewhere()) return;
    final_ = true;
    events_.push_back({TransferEvent::Kind::kStarted, status_, {}});
    for (std::string& line : std::exchange(lines_, {})) {
        events_.push_back({TransferEvent::Kind::kHeader, status_, std::move(line)});
    }
}

void ResponseRecorder::body(const char* data, std::size_t size) {
    if (!final_) return;
    if (!events_.empty() && events_.back().kind == TransferEvent::Kind::kData) {
        events_.back().text.append(data, size);
    } else {
        events_.push_back({TransferEvent::Kind::kData, status_, std::string(data, size)});
    }
}

void ResponseRecorder::completed() {
    events_.push_back({TransferEvent::Kind::kCompleted, status_, {}});
}

TransferEvent ResponseRecorder::takeEvent() {
    TransferEvent event = std::move(events_.front());
    events_.pop_front();
    return event;
}

}  // namespace nv::net
