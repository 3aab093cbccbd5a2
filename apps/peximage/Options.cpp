#include "Options.h"

#include "Text.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/foundation/Threads.h"

#include <charconv>
#include <map>
#include <sstream>

namespace {

/// The number that the whole text is.
template <class T>
std::optional<T> wholeText(const std::string& text) {
    T number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isNumber = error == std::errc() && end == text.data() + text.size();
    return isNumber ? std::optional(number) : std::nullopt;
}

long long byteSize(const std::string& text) {
    if (const auto size = parseByteSize(text)) return *size;
    throw CLI::ValidationError("'" + text + "' is no size; write 300000, 300K, 300KB, 300KiB or 1.5MB");
}

/// In force from then on, for the whole program.
template <class T>
void setLimit(T pex::ImageLimits::*limit, T value) {
    pex::ImageLimits limits = pex::ImageLimits::current();
    limits.*limit = value;
    pex::ImageLimits::setCurrent(limits);
}

void addLimits(CLI::App& command) {
    constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
    const auto setPixels = [](std::int64_t pixels) {
        setLimit(&pex::ImageLimits::maxPixels, pixels);
        setLimit(&pex::ImageLimits::maxPixelsPerByte, most); // so many are wanted, however empty
    };
    command
        .add_option_function<std::int64_t>("--limit-pixels", setPixels,
                                           "The most pixels that an image may have (default: 268435456)")
        ->check(wholeBetween(1, most))
        ->type_name("N");
    const auto bytes = [](const std::string& text) {
        setLimit(&pex::ImageLimits::maxSourceBytes, static_cast<std::size_t>(byteSize(text)));
    };
    command
        .add_option_function<std::string>("--limit-bytes", bytes, "The largest file to read (default: 2GiB)")
        ->type_name("SIZE");
    const auto memory = [](const std::string& text) {
        setLimit(&pex::ImageLimits::maxPixelMemory, static_cast<std::size_t>(byteSize(text)));
    };
    command
        .add_option_function<std::string>("--limit-memory", memory,
                                          "The most that all pixels take (default: half of the machine's)")
        ->type_name("SIZE");
    const auto seconds = [](double most) {
        setLimit(&pex::ImageLimits::maxDecodingSeconds, most);
        setLimit(&pex::ImageLimits::maxDrawingSeconds, most);
    };
    command
        .add_option_function<double>("--limit-seconds", seconds,
                                     "The longest that decoding a picture or a page takes (default: 60)")
        ->check(numberBetween(0, std::numeric_limits<double>::max()))
        ->type_name("S");
}

void addJpegOptions(CLI::App& command, pex::JpegOptions& options) {
    static const std::map<std::string, pex::Chroma> chromas{
        {"auto", pex::Chroma::automatic}, {"full", pex::Chroma::full}, {"half", pex::Chroma::half}};
    static const std::map<std::string, pex::Effort> efforts{
        {"fast", pex::Effort::fast}, {"normal", pex::Effort::normal}, {"best", pex::Effort::best}};
    const auto addWord = [&](const std::string& name, auto& target, const auto& words,
                             const std::string& form, const std::string& help) {
        const auto read = [&target, &words](const std::string& word) { target = words.at(word); };
        std::vector<std::string> known;
        for (const auto& [word, value] : words)
            known.push_back(word);
        command.add_option_function<std::string>(name, read, help)
            ->check(CLI::IsMember(known))
            ->type_name(form);
    };
    addWord("--effort", options.effort, efforts, "fast|normal|best",
            "Time spent on making a JPEG smaller (default normal)");
    addWord("--chroma", options.chroma, chromas, "auto|full|half",
            "Resolution of colour in a JPEG (default auto: what the picture needs)");
    command.add_flag("--progressive", options.progressive,
                     "A JPEG that shows early and gets finer; a little smaller");
}

} // namespace

void addReportOptions(CLI::App& command, Settings& settings) {
    const auto json = command.add_flag("--json", settings.json, "Print one JSON list instead of lines");
    command.add_flag("-q,--quiet", settings.quiet, "Print nothing but errors")->excludes(json);
    command.add_flag("-v,--verbose", settings.verbose, "Print what the library does, on standard error");
    addLimits(command);
}

void addWorkOptions(CLI::App& command, Settings& settings) {
    constexpr int most = 1024;
    command.add_option("-j,--jobs", settings.jobs, "Work on so many inputs at once (default: one a core)")
        ->check(wholeBetween(1, most))
        ->type_name("N");
    command
        .add_option_function<int>("--threads", pex::setThreadCount,
                                  "Use so many threads for one input (default: one a core)")
        ->check(wholeBetween(1, most))
        ->type_name("N");
}

void addPageOption(CLI::App& command, Settings& settings) {
    const auto read = [&settings](const std::string& text) {
        settings.allPages = text == "all";
        settings.page = settings.allPages ? std::nullopt : wholeText<int>(text);
        if (!settings.allPages && settings.page.value_or(0) < 1)
            throw CLI::ValidationError("'" + text + "' is no page; write 1, 2, … or all");
    };
    command
        .add_option_function<std::string>("--page", read,
                                          "Of TIFF, GIF, WebP, HEIF and PDF: which page or frame (default 1)")
        ->type_name("N|all");
}

void addCommonOptions(CLI::App& command, Settings& settings) {
    command.add_option("input", settings.arguments, "Files, folders, patterns, or - for standard input")
        ->type_name("INPUT…");
    command.add_flag("-r,--recursive", settings.recursive,
                     "Folders with all below them; results keep their places there");
    const auto list =
        command.add_option("--files-from", settings.filesFrom, "More inputs: a file of names, one a line")
            ->type_name("FILE");
    command.add_flag("-0,--null", settings.endedByNul, "Names in that file end with NUL")->needs(list);
    addReportOptions(command, settings);
    addWorkOptions(command, settings);
}

std::function<std::string(const std::string&)> numberBetween(double least, double most) {
    return [=](const std::string& text) {
        const std::optional<double> number = wholeText<double>(text);
        if (number && *number >= least && *number <= most) return std::string();
        std::ostringstream range;
        range << "'" << text << "' is not between " << least << " and " << most;
        return range.str();
    };
}

std::function<std::string(const std::string&)> wholeBetween(std::int64_t least, std::int64_t most) {
    return [=](const std::string& text) {
        const auto number = wholeText<std::int64_t>(text);
        if (number && *number >= least && *number <= most) return std::string();
        const std::string range = most >= anyWhole
                                      ? " from " + std::to_string(least) + " on"
                                      : " between " + std::to_string(least) + " and " + std::to_string(most);
        return "'" + text + "' is no whole number" + range;
    };
}

std::string checkQuality(const std::string& text) {
    const std::string wrong = numberBetween(0, 1)(text);
    const std::optional<int> percent = wrong.empty() ? std::nullopt : wholeText<int>(text);
    if (!percent || *percent < 2 || *percent > 100) return wrong;
    std::ostringstream hint;
    hint << wrong << "; write " << *percent / 100.;
    return hint.str();
}

CLI::Option* addPixels(CLI::App& command, const std::string& name, std::optional<int>& target,
                       const std::string& help) {
    return addParsed(command, name, "N", help, "a number of pixels; write 2000", parsePixels, target);
}

CLI::Option* addByteSize(CLI::App& command, const std::string& name, std::optional<long long>& target,
                         const std::string& help) {
    const auto parse = [&target](const std::string& text) { target = byteSize(text); };
    return command.add_option_function<std::string>(name, parse, help)->type_name("SIZE");
}

void addRunOptions(CLI::App& command, WritingOptions& options) {
    command.add_flag("--dry-run", options.dryRun, "Say what would be written, and write nothing");
    command.add_flag("--skip-existing", options.skipExisting,
                     "Leave out what is there and not older than its input");
}

void addWritingOptions(CLI::App& command, WritingOptions& options, QualityOption quality) {
    constexpr int maxDpi = 65535; // what a JPEG can hold
    command
        .add_option("-o,--output", options.output,
                    "Result; with several inputs a folder; - for standard output")
        ->required()
        ->type_name("OUT");
    command.add_option("--format", options.format, "Format of results whose names tell none")
        ->type_name(writableExtensions("|"));
    addRunOptions(command, options);
    command.add_option("--dpi", options.dpi, "Resolution to write into the result")
        ->check(wholeBetween(1, maxDpi))
        ->type_name("N");
    command.add_flag("--force", options.force, "Replace even an input of which something is missing");
    const auto bytes = addByteSize(command, "--max-bytes", options.maxBytes,
                                   "The most that a JPEG, HEIF, AVIF or WebP may take: 300KB, 1.5MB");
    command
        .add_option("--min-quality", options.minQuality,
                    "Within --max-bytes: rather make the picture smaller than go below (default 0.3)")
        ->check(checkQuality)
        ->needs(bytes)
        ->type_name("Q");
    addJpegOptions(command, options.jpeg);
    if (quality == QualityOption::no) return;
    command
        .add_option("--quality", options.quality,
                    "Quality of a JPEG, HEIF, AVIF or WebP, 0 to 1 (default 0.9)")
        ->check(checkQuality)
        ->excludes(bytes)
        ->type_name("Q");
}

void addMetadataOptions(CLI::App& command, WritingOptions& options) {
    const std::map<std::string, MetadataChoice> choices{{"keep", MetadataChoice::keep},
                                                        {"no-location", MetadataChoice::noLocation},
                                                        {"none", MetadataChoice::none}};
    command
        .add_option_function<std::string>(
            "--metadata",
            [&options, choices](const std::string& name) { options.metadata = choices.at(name); },
            "EXIF, XMP and IPTC of the photo: all (keep, the default), without the place, or none")
        ->check(CLI::IsMember(choices))
        ->type_name("keep|no-location|none");
    command.add_flag("--keep-time", options.keepTime, "Give the result the photo's time of change");
}
