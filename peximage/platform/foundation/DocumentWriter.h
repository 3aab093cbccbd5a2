#pragma once

#include "peximage/platform/Export.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace pex {

/// Writes a JSON text value by value, without spaces. The caller pairs begin and end, and names every member
/// of an object with `key` before its value.
class PEX_EXPORT DocumentWriter {
  public:
    /// Begins or ends an object.
    /// @{
    void beginObject();
    void endObject() { text_ += '}'; }
    /// @}
    /// Begins or ends a list.
    /// @{
    void beginList();
    void endList() { text_ += ']'; }
    /// @}
    /// Names the member that follows.
    void key(std::string_view name);

    /// Writes true or false.
    void boolean(bool value);
    /// Writes a whole number.
    void integer(std::int64_t value);
    /// The shortest form that reads back as the same number. What JSON has no form for is written as
    /// {"nonFinite":"nan"}, "inf" or "-inf", so that one odd number does not make the document unreadable.
    void number(double value);
    /// Bytes that are not UTF-8 become U+FFFD.
    void text(std::string_view value);

    /// Hands over what was written.
    std::string take() { return std::move(text_); }

  private:
    void separate();

    std::string text_;
};

} // namespace pex
