#include "Files.h"

#include "Incomplete.h"
#include "Text.h"
#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/codecs/CGImageSource.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <system_error>
#include <unistd.h>

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

} // namespace

std::vector<Destination> planDestinations(const std::vector<std::string>& inputs, const std::string& output,
                                          const std::optional<std::string>& format) {
    if (inputs.size() == 1 && !isFolder(output)) {
        const std::string extension = fs::path(output).extension().string();
        const pex::ImageFormat byName =
            formatNamed(extension.empty() ? extension : extension.substr(1), output);
        if (format && formatNamed(*format, "--format") != byName)
            throw UsageError{"--format " + *format + " does not go with the output " + output};
        return {{output, byName}};
    }
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

std::variant<std::shared_ptr<pex::PexImage>, Failure> openImage(const std::string& path) {
    if (auto image = pex::PexImage::make({.fastUrl = pex::URL::fromPath(path)})) {
        incomplete::addOpened(path, image);
        return image;
    }
    return whyNoImage(path);
}

PendingFile::PendingFile(const fs::path& destination) : destination_(destination) {
    static std::atomic<unsigned> counter{0};
    std::error_code ignored;
    if (fs::is_symlink(destination_, ignored)) { // the file it names is replaced, not the link
        const fs::path target = fs::weakly_canonical(destination_, ignored);
        if (!target.empty()) destination_ = target;
    }
    const std::string name =
        ".peximage-" + std::to_string(::getpid()) + '-' + std::to_string(counter++) + ".part";
    temporary_ = destination_.parent_path() / name;
}

PendingFile::~PendingFile() {
    std::error_code ignored;
    if (!temporary_.empty()) fs::remove(temporary_, ignored);
}

std::optional<Failure> PendingFile::commit() {
    std::error_code error, ignored;
    const fs::file_status existing = fs::status(destination_, ignored);
    if (fs::exists(existing) && !fs::is_regular_file(existing))
        return Failure{"cannot write " + destination_.string() + ": it is no regular file"};
    if (fs::exists(existing)) fs::permissions(temporary_, existing.permissions(), ignored);
    fs::rename(temporary_, destination_, error);
    if (error) return Failure{"cannot write " + destination_.string() + ": " + error.message()};
    temporary_.clear();
    return std::nullopt;
}

Failure PendingFile::whyNotWritten() const {
    const std::string what = "cannot write " + destination_.string();
    const int descriptor = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (descriptor < 0) return {what + ": " + std::strerror(errno)};
    const std::vector<char> probe(1 << 16);
    const bool wrote = ::write(descriptor, probe.data(), probe.size()) == static_cast<ssize_t>(probe.size());
    const int reason = errno;
    ::close(descriptor);
    return wrote ? Failure{what} : Failure{what + ": " + std::strerror(reason)};
}
