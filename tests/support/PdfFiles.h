#pragma once

#include <string>
#include <vector>

/// A page of a PDF document: its size in points, and what is drawn, in the format's own operators.
struct PdfPage {
    double width = 100, height = 100;
    std::string content;
};

/// A whole document, cross-reference table and all.
std::string pdfFile(const std::vector<PdfPage>& pages);
