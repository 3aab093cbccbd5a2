#include "Inputs.h"

#include "Files.h"
#include "Text.h"
#include "peximage/platform/codecs/ImageFormat.h"
#include "peximage/platform/codecs/ImageLimits.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <glob.h>
#include <iostream>
#include <sys/mman.h>
#include <system_error>

namespace fs = std::filesystem;

namespace {

/// Copies standard input into the file; what keeps it from that, or nothing.
std::string copyStandardInput(std::FILE* file) {
    const std::size_t most = pex::ImageLimits::current().maxSourceBytes;
    std::array<char, 1 << 16> piece;
    std::size_t total = 0;
    while (const std::size_t got = std::fread(piece.data(), 1, piece.size(), stdin)) {
        total += got;
        if (total > most)
            return "larger than the limit of " + grouped(static_cast<long long>(most)) + " bytes";
        if (std::fwrite(piece.data(), 1, got, file) != got) return std::generic_category().message(errno);
    }
    if (std::ferror(stdin) || std::fflush(file) != 0) return std::generic_category().message(errno);
    return {};
}

/// Standard input as a file in memory, which can be opened again and again.
Input standardInput() {
    static const Input only = [] {
        const int file = ::memfd_create("standard input", MFD_CLOEXEC);
        std::FILE* const stream = ::fdopen(file, "wb"); // open as long as the program runs
        Input input{"-", "/proc/self/fd/" + std::to_string(file), "stdin"};
        input.problem = stream == nullptr ? "cannot be kept in memory" : copyStandardInput(stream);
        return input;
    }();
    return only;
}

bool isHidden(const fs::path& path) { return path.filename().string().starts_with('.'); }

/// Told by its name: a folder holds many other things.
bool isPicture(const fs::directory_entry& entry) {
    std::error_code ignored;
    const std::string extension = entry.path().extension().string();
    return extension.size() > 1 && pex::imageFormatForExtension(extension.substr(1)) &&
           !isHidden(entry.path()) && entry.is_regular_file(ignored);
}

struct Found {
    std::vector<fs::path> files;
    /// Why a folder could not be searched, or not to its end.
    std::vector<std::pair<fs::path, std::error_code>> failures;

    void add(const fs::path& folder, std::error_code error) {
        if (error) failures.emplace_back(folder, error);
    }
};

Found picturesIn(const fs::path& folder) {
    Found found;
    std::error_code error;
    for (fs::directory_iterator at(folder, error); at != fs::directory_iterator(); at.increment(error)) {
        if (isPicture(*at)) found.files.push_back(at->path());
    }
    found.add(folder, error);
    return found;
}

/// Whether the folder can be searched; told where it cannot.
bool opens(const fs::path& folder, Found& found) {
    std::error_code error;
    const fs::directory_iterator tried(folder, error);
    found.add(folder, error);
    return !error;
}

Found picturesBelow(const fs::path& folder, const fs::path& leftOut) {
    Found found;
    if (!opens(folder, found)) return found;
    std::error_code error;
    fs::recursive_directory_iterator at(folder, error);
    for (; at != fs::recursive_directory_iterator(); at.increment(error)) {
        std::error_code ignored;
        const bool isFolder = at->is_directory(ignored);
        if (isFolder && (isHidden(*at) || fs::equivalent(*at, leftOut, ignored) ||
                         (!at->is_symlink(ignored) && !opens(*at, found))))
            at.disable_recursion_pending();
        else if (isPicture(*at))
            found.files.push_back(at->path());
    }
    found.add(folder, error);
    return found;
}

/// The folder's own name, also of "." and of names that end in a slash.
fs::path ownName(const fs::path& folder) {
    std::error_code ignored;
    const fs::path whole = fs::canonical(folder, ignored);
    return whole.filename();
}

class Expansion {
  public:
    Expansion(Settings& settings, fs::path leftOut) : settings_(settings), leftOut_(std::move(leftOut)) {}

    void add(const std::string& word) {
        std::error_code ignored;
        const fs::file_status status = fs::status(word, ignored);
        if (word == "-" || fs::exists(status)) return addExisting(word, fs::is_directory(status));
        if (word.find_first_of("*?[") == std::string::npos || !addMatches(word))
            settings_.inputs.push_back(inputNamed(word));
    }

  private:
    void addExisting(const std::string& word, bool isFolder) {
        if (isFolder) return addFolder(word);
        settings_.inputs.push_back(inputNamed(word));
    }

    void addFolder(const fs::path& folder) {
        settings_.intoFolder = true;
        Found found = settings_.recursive ? picturesBelow(folder, leftOut_) : picturesIn(folder);
        std::ranges::sort(found.files);
        const bool several = settings_.arguments.size() > 1 || !settings_.filesFrom.empty();
        const fs::path above = settings_.recursive && several ? ownName(folder) : fs::path();
        for (const fs::path& file : found.files) {
            const fs::path below = settings_.recursive ? file.lexically_relative(folder) : file.filename();
            settings_.inputs.push_back({file.string(), file.string(), above / below});
        }
        if (found.files.empty() && found.failures.empty()) addFailed(folder).problem = "no pictures in it";
        for (const auto& [failed, error] : found.failures) {
            pex::giveReadingReason(error.value());
            Input& input = addFailed(failed);
            input.problem = pex::lastReason().message;
            input.problemCode = pex::lastReason().code;
        }
    }

    Input& addFailed(const fs::path& folder) {
        settings_.inputs.push_back({folder.string(), folder.string(), ownName(folder)});
        return settings_.inputs.back();
    }

    /// False where there are none.
    bool addMatches(const std::string& pattern) {
        glob_t matches{};
        const bool any = ::glob(pattern.c_str(), 0, nullptr, &matches) == 0;
        for (std::size_t i = 0; any && i < matches.gl_pathc; ++i) {
            std::error_code ignored;
            addExisting(matches.gl_pathv[i], fs::is_directory(matches.gl_pathv[i], ignored));
        }
        ::globfree(&matches);
        settings_.intoFolder |= any;
        return any;
    }

    Settings& settings_;
    fs::path leftOut_;
};

std::vector<std::string> namesFrom(std::istream& list, char end) {
    std::vector<std::string> names;
    for (std::string name; std::getline(list, name, end);) {
        if (end == '\n' && name.ends_with('\r')) name.pop_back();
        if (!name.empty()) names.push_back(name);
    }
    return names;
}

std::vector<std::string> listedNames(const Settings& settings) {
    const char end = settings.endedByNul ? '\0' : '\n';
    if (settings.filesFrom.empty()) return {};
    if (settings.filesFrom == "-") return namesFrom(std::cin, end);
    std::ifstream list(settings.filesFrom, std::ios::binary);
    if (!list) throw UsageError{settings.filesFrom + ": " + std::generic_category().message(errno)};
    return namesFrom(list, end);
}

/// "-q 85" is how other programs ask for a quality.
void checkQuiet(const Settings& settings) {
    for (const std::string& word : settings.arguments) {
        std::error_code ignored;
        const bool isNumber = word.find_first_not_of("0123456789.") == std::string::npos;
        if (settings.quiet && isNumber && !fs::exists(word, ignored))
            throw UsageError{"there is no file " + word + ", and -q is --quiet; write --quality 0.85"};
    }
}

/// Every page as an input of its own: "scan-2.tif" is the place of the second.
void addPages(const Input& input, std::vector<Input>& pages) {
    const auto source = input.problem.empty() ? openSource(input) : std::nullopt;
    const int count = source ? source->properties().pages : 1, most = pex::ImageLimits::current().maxPages;
    pages.push_back(input);
    if (count > most) pages.back().problem = "has more than " + grouped(most) + " pages";
    if (count < 2 || count > most) return;
    pages.pop_back();
    for (int page = 0; page < count; ++page) {
        Input one = input;
        one.page = page;
        one.place.replace_filename(input.place.stem().string() + '-' + std::to_string(page + 1) +
                                   input.place.extension().string());
        pages.push_back(std::move(one));
    }
}

void choosePages(Settings& settings) {
    for (Input& input : settings.inputs) {
        if (settings.page) input.page = *settings.page - 1;
    }
    if (!settings.allPages) return;
    settings.intoFolder = true;
    std::vector<Input> pages;
    for (const Input& input : settings.inputs)
        addPages(input, pages);
    settings.inputs = std::move(pages);
}

} // namespace

Input inputNamed(const std::string& word) {
    if (word == "-") return standardInput();
    return {word, word, fs::path(word).filename()};
}

void expandInputs(Settings& settings, const fs::path& leftOut) {
    if (settings.arguments.empty() && settings.filesFrom.empty())
        throw UsageError{"name the files to work on"};
    checkQuiet(settings);
    const std::vector<std::string> listed = listedNames(settings);
    settings.intoFolder |= !settings.filesFrom.empty() || settings.arguments.size() > 1;
    Expansion expansion(settings, leftOut);
    for (const std::string& word : settings.arguments)
        expansion.add(word);
    for (const std::string& word : listed)
        expansion.add(word);
    choosePages(settings);
}

Input takeLast(Settings& settings, const std::string& otherwise) {
    const std::size_t least = settings.filesFrom.empty() ? 2 : 1;
    if (settings.arguments.size() < least) throw UsageError{otherwise};
    const std::string last = settings.arguments.back();
    settings.arguments.pop_back();
    return inputNamed(last);
}
