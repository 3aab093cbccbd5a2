#pragma once

#include <string>
#include <vector>

/// A page of a PDF document: its size in points, and what is drawn, in the format's own operators.
struct PdfPage {
    double width = 100, height = 100;
    std::string content;
    /// More entries of the page's dictionary and of its content's, whose object has the number 3 + twice the
    /// page's index.
    std::string entries = "", contentEntries = "";
};

/// A whole document, cross-reference table and all. `trailer` is put among what the trailer says.
std::string pdfFile(const std::vector<PdfPage>& pages, const std::string& trailer = "");

/// For the trailer: encrypted by the standard's first method (40 bits), with a user's password that nobody
/// knows, or with an empty one, which lets everybody read.
extern const std::string pdfPasswordUnknown, pdfPasswordEmpty;
