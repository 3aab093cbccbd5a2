#pragma once

#include <string>

namespace pex {

/// Why a document could not be read.
struct DocumentError {
    /// Where: the keys from the document's root on, such as "layerList[2].transform.scale.x"; empty when the
    /// whole text is meant.
    std::string path;
    /// What is wrong there: "expected a number", or for a text that is no document at all the line and
    /// column where it breaks off.
    std::string problem;

    /// Both in one line: "layerList[2].transform.scale.x: expected a number".
    std::string message() const { return path.empty() ? problem : path + ": " + problem; }
};

} // namespace pex
