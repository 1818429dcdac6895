#include "ctl/table.h"

#include <fmt/format.h>
#include <algorithm>
#include <clocale>
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

}  // namespace

std::size_t displayWidth(std::string_view text) {
    const Unicode unicode;
    std::size_t width = 0;
    std::mbstate_t state{};
    while (!text.empty()) {
        wchar_t character = 0;
        const std::size_t length = std::mbrtowc(  // NOLINT(concurrency-mt-unsafe)
            &character, text.data(), text.size(), &state);
        if (length == 0 || length > text.size()) {
            state = {};
            text.remove_prefix(1);
            ++width;
            continue;
        }
        width += static_cast<std::size_t>(std::max(wcwidth(character), 0));
        text.remove_prefix(length);
    }
    return width;
}

std::string printable(std::string_view text) {
    std::string clean;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const auto byte = static_cast<unsigned char>(text[at]);
        const auto next = at + 1 < text.size() ? static_cast<unsigned char>(text[at + 1]) : 0u;
        if (byte < 0x20 || byte == 0x7f) {
            clean += fmt::format("\\x{:02x}", byte);
        } else if (byte == 0xc2 && next >= 0x80 && next < 0xa0) {
            clean += fmt::format("\\x{:02x}", next);
            ++at;
        } else {
            clean.push_back(text[at]);
        }
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
