#include "depot/solr_xml_writer.h"

namespace depot {
namespace {

constexpr std::size_t kBytesPerDocument = 512;

std::string decimal(long long value) {
    return std::to_string(value);
}

}  // namespace

void SolrXmlWriter::begin() {
    out_.clear();
    level_ = 0;
    out_ += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<response>\n";
}

std::string SolrXmlWriter::end() {
    out_ += "\n</response>\n";
    return std::move(out_);
}

void SolrXmlWriter::lineBreak() {
    if (!indent_) return;
    out_ += '\n';
    out_.append(2 * level_, ' ');
}

void SolrXmlWriter::open(std::string_view tag, std::string_view name) {
    lineBreak();
    out_ += '<';
    out_ += tag;
    if (!name.empty()) {
        out_ += " name=\"";
        out_ += name;
        out_ += '"';
    }
    out_ += '>';
    ++level_;
}

void SolrXmlWriter::close(std::string_view tag) {
    --level_;
    lineBreak();
    out_ += "</";
    out_ += tag;
    out_ += '>';
}

void SolrXmlWriter::escaped(std::string_view value) {
    for (const char character : value) {
        switch (character) {
            case '&':
                out_ += "&amp;";
                break;
            case '<':
                out_ += "&lt;";
                break;
            case '>':
                out_ += "&gt;";
                break;
            case '\t':
            case '\n':
            case '\r':
                out_ += character;
                break;
            default:
                // XML has no way to hold these; Solr writes their number.
                if (static_cast<unsigned char>(character) < 0x20)
                    out_ += '#' + decimal(character) + ';';
                else
                    out_ += character;
        }
    }
}

void SolrXmlWriter::primitive(std::string_view tag, std::string_view name, std::string_view value) {
    lineBreak();
    out_ += '<';
    out_ += tag;
    out_ += " name=\"";
    out_ += name;
    if (value.empty()) {
        out_ += "\"/>";
        return;
    }
    out_ += "\">";
    escaped(value);
    out_ += "</";
    out_ += tag;
    out_ += '>';
}

void SolrXmlWriter::text(std::string_view name, std::string_view value) {
    primitive("str", name, value);
}

void SolrXmlWriter::integer(std::string_view name, long long value) {
    primitive("int", name, decimal(value));
}

void SolrXmlWriter::boolean(std::string_view name, bool value) {
    primitive("bool", name, value ? "true" : "false");
}

void SolrXmlWriter::header(int status, long queryMilliseconds) {
    open("lst", "responseHeader");
    integer("status", status);
    integer("QTime", queryMilliseconds);
    close("lst");
}

void SolrXmlWriter::document(const Document& document, const std::vector<Field>& fields) {
    open("doc", {});
    for (const Field field : fields) {
        const std::string_view name = kFields[static_cast<std::size_t>(field)].name;
        const FieldValue value = fieldValue(document, field);
        if (const auto* words = std::get_if<std::string_view>(&value))
            text(name, *words);
        else if (const auto* number = std::get_if<int>(&value))
            integer(name, *number);
        else if (const auto* flag = std::get_if<bool>(&value))
            boolean(name, *flag);
    }
    --level_;
    out_ += "</doc>";
}

std::string SolrXmlWriter::answer(const Snapshot& snapshot, const Selection& selection,
                                  const std::vector<Field>& fields, long queryMilliseconds) {
    begin();
    out_.reserve(kBytesPerDocument * (selection.positions.size() + 1));
    header(0, queryMilliseconds);
    lineBreak();
    out_ +=
        "<result name=\"response\" numFound=\"" + decimal(static_cast<long long>(selection.found));
    out_ += "\" start=\"" + decimal(static_cast<long long>(selection.start));
    out_ += "\" numFoundExact=\"true\">";
    ++level_;
    for (const std::size_t position : selection.positions)
        document(snapshot.document(position), fields);
    close("result");
    return end();
}

std::string SolrXmlWriter::error(const QueryError& error, int status, long queryMilliseconds) {
    begin();
    header(status, queryMilliseconds);
    open("lst", "error");
    open("lst", "metadata");
    text("error-class", "org.apache.solr.common.SolrException");
    text("root-error-class", error.rootErrorClass);
    close("lst");
    text("msg", error.message);
    integer("code", status);
    close("lst");
    return end();
}

}  // namespace depot
