#include "tests/support/PdfFiles.h"

#include <cstdio>

std::string pdfFile(const std::vector<PdfPage>& pages) {
    std::vector<std::string> objects{"<< /Type /Catalog /Pages 2 0 R >>", ""};
    std::string kids;
    for (const PdfPage& page : pages) {
        const std::string content = std::to_string(objects.size() + 1);
        objects.push_back("<< /Length " + std::to_string(page.content.size()) + " >>\nstream\n" +
                          page.content + "\nendstream");
        kids += std::to_string(objects.size() + 1) + " 0 R ";
        objects.push_back("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 " + std::to_string(page.width) + ' ' +
                          std::to_string(page.height) + "] /Contents " + content + " 0 R >>");
    }
    objects[1] = "<< /Type /Pages /Count " + std::to_string(pages.size()) + " /Kids [" + kids + "] >>";

    std::string file = "%PDF-1.4\n", table;
    for (std::size_t i = 0; i < objects.size(); ++i) {
        char entry[32];
        std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", file.size());
        table += entry;
        file += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    const std::string count = std::to_string(objects.size() + 1), start = std::to_string(file.size());
    return file + "xref\n0 " + count + "\n0000000000 65535 f \n" + table + "trailer\n<< /Size " + count +
           " /Root 1 0 R >>\nstartxref\n" + start + "\n%%EOF\n";
}
