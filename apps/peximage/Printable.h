#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <string_view>

/// A text that comes from elsewhere (a file's name, what is in it) without power over a terminal: control
/// characters and bytes that are no UTF-8 stand as "\\x1b".
std::string printable(std::string_view text);
/// The same where line ends are meant.
std::string printableLines(std::string_view text);
/// The same of a JSON text, which still means the same.
std::string printableJson(std::string_view text);
/// The value as such a text over several lines. Bytes that are no UTF-8 become U+FFFD.
std::string jsonText(const nlohmann::ordered_json& value);
/// An object whose "file" is no UTF-8 gets the name's bytes, too: "fileBytes", in base64.
nlohmann::ordered_json withFileBytes(nlohmann::ordered_json object);
