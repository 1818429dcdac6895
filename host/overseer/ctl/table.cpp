#include "ctl/table.h"

#include <fmt/format.h>
#include <algorithm>
#include <clocale>
#include <cstdint>
#include <cwchar>
#include <ostream>

namespace overseer::ctl {
namespace {

/// The locale whose character table says how wide a character is, in force for one call.
class Unicode {
  public:
    Unicode() : before_(uselocale(instance())) {}
    ~Unicode() { uselocale(before_); }
    Unicode(const Unicode&) = delete;
    Unicode& operator=(const Unicode&) = delete;

  private:
    static locale_t instance() {
        static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        return locale;
    }
    locale_t before_;
};

std::string_view escapeOf(Colour colour) {
    switch (colour) {
        case Colour::kNone:
            return "";
        case Colour::kGreen:
            return "\x1b[32m";
        case Colour::kYellow:
            return "\x1b[33m";
        case Colour::kRed:
            return "\x1b[31m";
    }
    return "";
}

/// The first character of a text that is not empty.
struct Character {
    std::size_t length = 1;  ///< in bytes; 1 for a byte that belongs to none
    wchar_t code = 0;        ///< 0 for such a byte
};

Character firstOf(std::string_view text) {
    Character first;
    std::mbstate_t state{};
    const std::size_t length = std::mbrtowc(  // NOLINT(concurrency-mt-unsafe)
        &first.code, text.data(), text.size(), &state);
    if (length == 0 || length > text.size()) return {};
    first.length = length;
    return first;
}

/// Whether a character would do something to the terminal or to the order of the text around it.
bool steers(wchar_t code) {
    return code < 0x20 || (code >= 0x7f && code < 0xa0) || (code >= 0x2028 && code <= 0x202e) ||
           (code >= 0x2066 && code <= 0x2069);
}

}  // namespace

std::size_t displayWidth(std::string_view text) {
    const Unicode unicode;
    std::size_t width = 0;
    while (!text.empty()) {
        const Character first = firstOf(text);
        width += first.code == 0 ? 1 : static_cast<std::size_t>(std::max(wcwidth(first.code), 0));
        text.remove_prefix(first.length);
    }
    return width;
}

std::string printable(std::string_view text) {
    const Unicode unicode;
    std::string clean;
    while (!text.empty()) {
        const Character first = firstOf(text);
        if (first.code == 0) {
            clean += fmt::format("\\x{:02x}", static_cast<unsigned char>(text.front()));
        } else if (steers(first.code)) {
            clean += fmt::format("\\x{:02x}", static_cast<std::uint32_t>(first.code));
        } else {
            clean += text.substr(0, first.length);
        }
        text.remove_prefix(first.length);
    }
    return clean;
}

Table::Table(std::vector<Column> columns) : columns_(std::move(columns)) {
    for (const Column& column : columns_) {
        widths_.push_back(displayWidth(column.heading));
    }
}

void Table::add(std::vector<Cell> cells) {
    cells.resize(columns_.size());
    for (std::size_t at = 0; at < cells.size(); ++at) {
        cells[at].text = printable(cells[at].text);
        widths_[at] = std::max(widths_[at], displayWidth(cells[at].text));
    }
    rows_.push_back(std::move(cells));
}

void Table::print(std::ostream& out, bool coloured) const {
    std::vector<Cell> headings;
    for (const Column& column : columns_) {
        headings.push_back({column.heading, Colour::kNone});
    }
    out << line(headings, false);
    for (const std::vector<Cell>& row : rows_) {
        out << line(row, coloured);
    }
}

std::string Table::line(const std::vector<Cell>& cells, bool coloured) const {
    std::string text;
    std::string gap;  // held back, so that no line ends in blanks
    for (std::size_t at = 0; at < cells.size(); ++at) {
        const std::string padding(widths_[at] - displayWidth(cells[at].text), ' ');
        const bool colour = coloured && cells[at].colour != Colour::kNone;
        gap += columns_[at].right ? padding : "";
        if (!cells[at].text.empty()) {
            text += gap;
            text += colour ? escapeOf(cells[at].colour) : "";
            text += cells[at].text;
            text += colour ? "\x1b[0m" : "";
            gap.clear();
        }
        gap += (columns_[at].right ? "" : padding) + "  ";
    }
    return text + "\n";
}

}  // namespace overseer::ctl
