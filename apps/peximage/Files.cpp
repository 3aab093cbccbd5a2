#include "Files.h"

#include "Incomplete.h"
#include "Text.h"
#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/foundation/Reason.h"

#include <set>
#include <system_error>

namespace fs = std::filesystem;

namespace {

pex::ImageFormat formatNamed(const std::string& extension, const std::string& where) {
    const auto format = pex::imageFormatForExtension(extension);
    if (format && pex::CGImageDestination::writes(*format)) return *format;
    const std::string what = format ? std::string(pex::displayName(*format)) + " cannot be written"
                                    : "unknown format '" + extension + "'";
    throw UsageError{where + ": " + what + "; formats are " + writableExtensions()};
}

/// As the input's extension says; one that says nothing is told from its bytes. PNG for a format that is only
/// read.
pex::ImageFormat formatOfInput(const fs::path& input) {
    const std::string extension = input.extension().string();
    std::optional<pex::ImageFormat> format;
    if (extension.size() > 1) format = pex::imageFormatForExtension(extension.substr(1));
    if (!format) format = pex::CGImageSource::formatOf(pex::URL::fromPath(input.string()));
    if (!format) return pex::ImageFormat::jpeg;
    return pex::CGImageDestination::writes(*format) ? *format : pex::ImageFormat::png;
}

fs::path nameInFolder(const fs::path& input, pex::ImageFormat format) {
    const std::string extension = input.extension().string();
    const bool keeps = extension.size() > 1 && pex::imageFormatForExtension(extension.substr(1)) == format;
    if (keeps) return input.filename();
    for (const auto& names : pex::imageFormats) {
        if (names.format == format) return input.stem().string() + '.' + std::string(names.extensions[0]);
    }
    return input.filename();
}

bool isFolder(const std::string& output) {
    std::error_code ignored;
    return output.ends_with('/') || fs::is_directory(output, ignored);
}

pex::ImageFormat formatOfOutput(const std::string& output, const std::optional<std::string>& format) {
    const std::string extension = fs::path(output).extension().string();
    if (extension.size() <= 1 && format) return formatNamed(*format, "--format");
    if (extension.size() <= 1)
        throw UsageError{output +
                         " has no extension that tells a format; give it one, or --format, or write " +
                         output + "/ for a folder"};
    const pex::ImageFormat byName = formatNamed(extension.substr(1), output);
    if (format && formatNamed(*format, "--format") != byName)
        throw UsageError{"--format " + *format + " does not go with the output " + output};
    return byName;
}

} // namespace

std::vector<Destination> planDestinations(const std::vector<std::string>& inputs, const std::string& output,
                                          const std::optional<std::string>& format) {
    if (inputs.size() == 1 && !isFolder(output) && !isFolder(inputs[0]))
        return {{output, formatOfOutput(output, format)}};
    std::vector<Destination> destinations;
    std::set<fs::path> taken;
    for (const fs::path input : inputs) {
        const pex::ImageFormat target = format ? formatNamed(*format, "--format") : formatOfInput(input);
        Destination destination{output / nameInFolder(input, target), target};
        if (!taken.insert(destination.path).second)
            throw UsageError{"two inputs would both be written to " + destination.path.string()};
        destinations.push_back(std::move(destination));
    }
    return destinations;
}

Failure libraryFailure(const std::string& otherwise) {
    const pex::Reason& reason = pex::lastReason();
    if (reason.code == pex::ReasonCode::overLimit)
        return {reason.message + "; --limit-pixels and --limit-bytes set the limits"};
    return {reason ? reason.message : otherwise};
}

void forgetReason() { pex::giveReason(pex::ReasonCode::none, {}); }

std::variant<std::shared_ptr<pex::PexImage>, Failure> openImage(const std::string& path) {
    forgetReason();
    if (auto image = pex::PexImage::make({.fastUrl = pex::URL::fromPath(path)})) {
        incomplete::addOpened(path, image);
        return image;
    }
    return libraryFailure("not an image");
}

std::optional<Failure> writeFile(const fs::path& path, const pex::Data& bytes) {
    if (bytes.write(pex::URL::fromPath(path.string()), pex::Data::Writing::atomically)) return std::nullopt;
    return Failure{"cannot write " + path.string() + ": " + pex::lastReason().message};
}
