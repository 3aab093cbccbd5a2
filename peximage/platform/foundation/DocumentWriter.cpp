#include "peximage/platform/foundation/DocumentWriter.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace pex {
namespace {

bool isPlain(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return c >= 0x20 && c < 0x7f && c != '"' && c != '\\'; });
}

} // namespace

void DocumentWriter::separate() {
    // Only a value or key that follows a value takes a comma; no value ends in one of these.
    const char last = text_.empty() ? '[' : text_.back();
    if (last != '{' && last != '[' && last != ':') text_ += ',';
}

void DocumentWriter::beginObject() {
    separate();
    text_ += '{';
}

void DocumentWriter::beginList() {
    separate();
    text_ += '[';
}

void DocumentWriter::key(std::string_view name) {
    text(name);
    text_ += ':';
}

void DocumentWriter::boolean(bool value) {
    separate();
    text_ += value ? "true" : "false";
}

void DocumentWriter::integer(std::int64_t value) {
    char digits[24];
    separate();
    text_.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

void DocumentWriter::number(double value) {
    if (!std::isfinite(value)) {
        beginObject();
        key("nonFinite");
        text(std::isnan(value) ? "nan" : value < 0 ? "-inf" : "inf");
        return endObject();
    }
    char digits[32];
    separate();
    text_.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
    if (value == 0 && std::signbit(value)) text_ += ".0"; // "-0" alone is read as a whole number
}

void DocumentWriter::text(std::string_view value) {
    separate();
    if (isPlain(value)) {
        text_ += '"';
        text_ += value;
        text_ += '"';
    } else {
        text_ += nlohmann::json(value).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }
}

} // namespace pex
