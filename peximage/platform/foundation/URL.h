#pragma once

#include "peximage/platform/Export.h"

#include <optional>
#include <string>
#include <string_view>

namespace pex {

/// An address: of a local file ("file:" scheme) or of something on a network. A plain value; nothing is
/// looked up when one is made.
class PEX_EXPORT URL {
  public:
    /// The file address of a path, made absolute against the current folder; the path's bytes are kept as
    /// they are (they need not be valid UTF-8).
    static URL fromPath(std::string_view path);
    /// An address from its text, such as "https://host/a.jpg" or "file:///a%20b.jpg". Absent when the text
    /// has no scheme.
    static std::optional<URL> parse(std::string_view text);

    /// True for the address of a local file.
    bool isFileURL() const { return scheme_ == "file"; }
    /// Lower-case scheme: "file", "https" …
    const std::string& scheme() const { return scheme_; }
    /// "example.org" of "https://me@example.org:8080/a"; empty where there is none.
    std::string host() const;
    /// The path, percent escapes resolved; for a file address what the file functions take.
    const std::string& path() const { return path_; }
    /// The whole address as text, with percent escapes: what `parse` reads back.
    const std::string& absoluteString() const { return text_; }

    /// The last part of the path: "a.jpg" of "/b/a.jpg"; empty for the root.
    std::string lastPathComponent() const;
    /// What follows the last dot of the last component, without the dot; empty when there is none.
    std::string pathExtension() const;
    /// The same address without its last component (its folder).
    URL deletingLastPathComponent() const;
    /// The same address without the extension of its last component.
    URL deletingPathExtension() const;
    /// The address of something inside this folder; `component` may have several parts.
    URL appendingPathComponent(std::string_view component) const;

    friend bool operator==(const URL& a, const URL& b) { return a.text_ == b.text_; }

  private:
    URL() = default;
    URL withPath(std::string path) const;

    std::string scheme_;
    std::string authority_;
    std::string path_;
    std::string suffix_; // query and fragment, as given
    std::string text_;
};

} // namespace pex
