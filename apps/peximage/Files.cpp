#include "Files.h"

#include "Incomplete.h"
#include "Text.h"
#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/raster/Turning.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <map>
#include <system_error>

namespace fs = std::filesystem;

namespace {

/// As the input's extension says; one that says nothing is told from its bytes, and what is no picture fails
/// as that later.
pex::ImageFormat formatOfInput(const Input& input) {
    const std::string extension = input.place.extension().string();
    std::optional<pex::ImageFormat> format;
    if (extension.size() > 1) format = pex::imageFormatForExtension(extension.substr(1));
    if (!format) format = pex::CGImageSource::formatOf(pex::URL::fromPath(input.path));
    return format.value_or(pex::ImageFormat::jpeg);
}

fs::path placeFor(const fs::path& place, pex::ImageFormat format) {
    const std::string extension = place.extension().string();
    const bool keeps = extension.size() > 1 && pex::imageFormatForExtension(extension.substr(1)) == format;
    const auto names = std::ranges::find(pex::imageFormats, format, &pex::ImageFormatNames::format);
    if (keeps || names == pex::imageFormats.end()) return place;
    return place.parent_path() / (place.stem().string() + '.' + std::string(names->extensions[0]));
}

bool isFolder(const std::string& output) {
    std::error_code ignored;
    return output.ends_with('/') || fs::is_directory(output, ignored);
}

pex::ImageFormat formatOfOutput(const std::string& output, const std::optional<std::string>& format) {
    const std::string extension = fs::path(output).extension().string();
    if (extension.size() <= 1 && format) return writableFormat(*format, "--format");
    if (extension.size() <= 1)
        throw UsageError{output +
                         " has no extension that tells a format; give it one, or --format, or write " +
                         output + "/ for a folder"};
    const pex::ImageFormat byName = writableFormat(extension.substr(1), output);
    if (format && writableFormat(*format, "--format") != byName)
        throw UsageError{"--format " + *format + " does not go with the output " + output};
    return byName;
}

std::vector<Destination> standardOutput(const Settings& settings, const std::optional<std::string>& format) {
    if (!format) throw UsageError{"-o - writes to standard output and needs --format"};
    if (settings.intoFolder || settings.json)
        throw UsageError{settings.json ? "--json does not go with -o -, which prints the picture"
                                       : "-o - takes one input"};
    return {{"-", writableFormat(*format, "--format")}};
}

/// Two inputs never have the same result.
void keepApart(std::map<fs::path, std::string>& taken, const fs::path& result, const Input& input) {
    const auto [other, isNew] = taken.emplace(result, input.shownName());
    if (isNew) return;
    if (other->second == input.shownName()) throw UsageError{input.shownName() + " is named twice"};
    throw UsageError{other->second + " and " + input.shownName() + " would both be written to " +
                     result.string() + "; -r keeps the files of different folders apart"};
}

std::vector<Destination> inFolder(Settings& settings, const fs::path& folder,
                                  const std::optional<std::string>& format) {
    std::vector<Destination> destinations;
    std::map<fs::path, std::string> taken;
    for (Input& input : settings.inputs) {
        const pex::ImageFormat target = format ? writableFormat(*format, "--format") : formatOfInput(input);
        if (input.problem.empty() && !pex::CGImageDestination::writes(target))
            input.problem = std::string(pex::displayName(target)) +
                            " cannot be written; choose another format with --format";
        Destination destination{folder / placeFor(input.place, target), target};
        if (input.problem.empty()) keepApart(taken, destination.path, input);
        destinations.push_back(std::move(destination));
    }
    return destinations;
}

} // namespace

pex::ImageFormat writableFormat(const std::string& extension, const std::string& where) {
    const auto format = pex::imageFormatForExtension(extension);
    if (format && pex::CGImageDestination::writes(*format)) return *format;
    const std::string what = format ? std::string(pex::displayName(*format)) + " cannot be written"
                                    : "unknown format '" + extension + "'";
    throw UsageError{where + ": " + what + "; formats are " + writableExtensions(", ")};
}

std::vector<Destination> planDestinations(Settings& settings, const std::string& output,
                                          const std::optional<std::string>& format) {
    if (output == "-") return standardOutput(settings, format);
    if (!settings.intoFolder && !isFolder(output)) return {{output, formatOfOutput(output, format)}};
    return inFolder(settings, output, format);
}

Failure libraryFailure(const std::string& otherwise) {
    const pex::Reason& reason = pex::lastReason();
    if (reason.code == pex::ReasonCode::overLimit)
        return {reason.message + "; --limit-pixels and --limit-bytes set the limits", reason.code};
    return {reason ? reason.message : otherwise, reason.code};
}

void forgetReason() { pex::giveReason(pex::ReasonCode::none, {}); }

std::optional<pex::CGImageSource> openSource(const Input& input) {
    return pex::CGImageSource::make(pex::URL::fromPath(input.path), input.page.value_or(0));
}

namespace {

std::shared_ptr<pex::PexImage> imageOf(const Input& input) {
    if (input.page.value_or(0) == 0) return pex::PexImage::make({.fastUrl = pex::URL::fromPath(input.path)});
    const auto source = openSource(input);
    const auto stored = source ? source->createImage() : std::nullopt;
    const auto upright = stored ? pex::turnedImage(*stored, source->properties().orientation) : std::nullopt;
    return upright ? pex::PexImage::make(*upright) : nullptr;
}

} // namespace

std::variant<std::shared_ptr<pex::PexImage>, Failure> openImage(const Input& input) {
    forgetReason();
    if (auto image = imageOf(input)) {
        incomplete::addOpened(input, image);
        return image;
    }
    return libraryFailure("not an image");
}

std::optional<Failure> writeFile(const fs::path& path, const pex::Data& bytes) {
    if (path == "-") {
        const bool written = std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size();
        if (written && std::fflush(stdout) == 0) return std::nullopt;
        pex::giveWritingReason(errno);
    } else if (bytes.write(pex::URL::fromPath(path.string()), pex::Data::Writing::atomically)) {
        return std::nullopt;
    }
    const std::string where = path == "-" ? "to standard output" : path.string();
    return Failure{"cannot write " + where + ": " + pex::lastReason().message, pex::lastReason().code};
}
