#include "peximage/cache/PexCLIImageResizer.h"

#include "peximage/platform/foundation/Bundle.h"
#include "peximage/platform/varda/FileUtilities.h"
#include "peximage/platform/varda/Shell.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

namespace pex {
namespace {

std::optional<URL> program() {
    const std::optional<URL> bundle = Bundle::main();
    if (!bundle) return std::nullopt;
    const URL tool = bundle->appendingPathComponent("Contents/Frameworks/PexImage.framework")
                         .appendingPathComponent("Versions/A/Resources/CLIImageResizer");
    return fu_fileExists(tool) ? std::optional(tool) : std::nullopt;
}

/// Whether a text ends with "DONE" in upper or lower case, not counting line breaks at its end.
bool saysDone(std::string_view output) {
    while (output.ends_with('\n') || output.ends_with('\r'))
        output.remove_suffix(1);
    constexpr std::string_view done = "done";
    return output.size() >= done.size() &&
           std::equal(done.begin(), done.end(), output.end() - done.size(),
                      [](char lower, char c) { return lower == (c >= 'A' && c <= 'Z' ? c + 32 : c); });
}

} // namespace

bool PexCLIImageResizer::resize(const URL& source, const To& destination) {
    const std::optional<URL> tool = program();
    if (!tool) return false;
    const std::optional<std::string> output =
        shell2({tool->path(), {source.path(), destination.to.path(), std::to_string(destination.maxSize)}});
    fu_deleteFile(destination.to);
    return output && saysDone(*output);
}

} // namespace pex
