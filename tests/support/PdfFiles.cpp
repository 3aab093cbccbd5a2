#include "tests/support/PdfFiles.h"

#include <cstdio>

namespace {

/// The owner's entry for an empty password, and what follows from it, by the algorithms of ISO
/// 32000-1, 7.6.3.
const std::string owner = "2055c756c72e1ad702608e8196acad447ad32d17cff583235f6dd15fed7dab67";

std::string encryption(const std::string& user) {
    return "/ID [<00000000000000000000000000000000> <00000000000000000000000000000000>] "
           "/Encrypt << /Filter /Standard /V 1 /R 2 /P -4 /O <" +
           owner + "> /U <" + user + "> >>";
}

} // namespace

const std::string pdfPasswordUnknown = encryption(std::string(64, '5'));
const std::string pdfPasswordEmpty =
    encryption("b52db6cbc9fa9661e8edd0dbcd2af26acd5fab84f28cee99883b186b67a60b7b");

std::string pdfFile(const std::vector<PdfPage>& pages, const std::string& trailer) {
    std::vector<std::string> objects{"<< /Type /Catalog /Pages 2 0 R >>", ""};
    std::string kids;
    for (const PdfPage& page : pages) {
        const std::string content = std::to_string(objects.size() + 1);
        objects.push_back("<< /Length " + std::to_string(page.content.size()) + ' ' + page.contentEntries +
                          " >>\nstream\n" + page.content + "\nendstream");
        kids += std::to_string(objects.size() + 1) + " 0 R ";
        objects.push_back("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 " + std::to_string(page.width) + ' ' +
                          std::to_string(page.height) + "] /Contents " + content + " 0 R " + page.entries +
                          " >>");
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
           " /Root 1 0 R " + trailer + " >>\nstartxref\n" + start + "\n%%EOF\n";
}
