#include "control/flat_object.h"

#include <nlohmann/json.hpp>

namespace overseer::control {
namespace {

/// Takes the parser's events one by one; answering false stops it there.
class FlatReader : public nlohmann::json_sax<nlohmann::json> {
  public:
    std::map<std::string, std::string> members;
    std::string problem;

    bool null() override { return refuse("null is no value for \"" + name_ + "\""); }
    bool boolean(bool value) override { return take(value ? "true" : "false"); }
    bool number_integer(number_integer_t value) override { return take(std::to_string(value)); }
    bool number_unsigned(number_unsigned_t value) override { return take(std::to_string(value)); }
    bool number_float(number_float_t, const string_t& text) override { return take(text); }
    bool string(string_t& value) override { return take(std::move(value)); }
    bool binary(binary_t&) override { return refuse("binary values are not understood"); }
    bool start_object(std::size_t) override {
        if (inside_) {
            return refuse("\"" + name_ + "\" is an object, where a text is expected");
        }
        inside_ = true;
        return true;
    }
    bool key(string_t& name) override {
        name_ = std::move(name);
        return members.count(name_) == 0 || refuse("\"" + name_ + "\" is given twice");
    }
    bool end_object() override { return true; }
    bool start_array(std::size_t) override { return refuse("lists are not understood"); }
    bool end_array() override { return true; }
    bool parse_error(std::size_t position, const std::string&,
                     const nlohmann::json::exception&) override {
        return refuse("not JSON, or not UTF-8, at byte " + std::to_string(position));
    }

  private:
    bool take(std::string value) {
        if (!inside_) {
            return refuse("the body must be an object");
        }
        members[name_] = std::move(value);
        return true;
    }
    bool refuse(std::string reason) {
        if (problem.empty()) {
            problem = std::move(reason);
        }
        return false;
    }

    bool inside_ = false;
    std::string name_;
};

}  // namespace

Result<std::map<std::string, std::string>> readFlatObject(const std::string& body) {
    FlatReader reader;
    if (!body.empty() && !nlohmann::json::sax_parse(body, &reader)) {
        return failure("the body cannot be read: {}", reader.problem);
    }
    return std::move(reader.members);
}

}  // namespace overseer::control
