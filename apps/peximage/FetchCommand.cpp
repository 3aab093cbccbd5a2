#include "Commands.h"
#include "Photo.h"
#include "Saving.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/varda/PexResourceDownloader.h"

#include <future>

namespace {

struct Request {
    Settings settings;
    WritingOptions writing;
    bool refresh = false;
};

struct Fetched {
    pex::Data bytes;
    Failure problem;
};

/// Through the download cache, which knows an address by all of it.
Fetched fetch(pex::PexResourceDownloader& downloader, const pex::URL& url) {
    // Shared, since the other thread is still at it when the result is there.
    const auto arrived = std::make_shared<std::promise<Fetched>>();
    downloader.asyncDownload({.url = url, .completion = [arrived](const pex::Data& bytes) {
                                  arrived->set_value({bytes, libraryFailure("cannot be fetched")});
                              }});
    return arrived->get_future().get();
}

bool changesAnything(const WritingOptions& options) {
    return options.quality || options.dpi || options.maxBytes || options.metadata != MetadataChoice::keep ||
           options.jpeg != pex::JpegOptions{};
}

/// The server's own bytes, unless another format or anything else is asked for.
Outcome save(const Input& input, const pex::Data& bytes, const Destination& destination,
             const WritingOptions& options) {
    forgetReason();
    const auto source = pex::CGImageSource::make(bytes);
    if (!source) return libraryFailure("not an image");
    if (source->properties().format == destination.format && !changesAnything(options))
        return saveBytes(input, bytes, uprightSize(source->properties()), destination, options);
    const auto image = pex::PexImage::make(bytes, {});
    if (!image) return libraryFailure("not an image");
    return saveImage(input, image, destination, options, originOf(*source, options));
}

std::vector<pex::URL> parsed(const std::vector<std::string>& words) {
    std::vector<pex::URL> urls;
    for (const std::string& input : words) {
        const auto url = pex::URL::parse(input);
        if (!url) throw UsageError{"'" + input + "' is no address; write https://…"};
        urls.push_back(*url);
    }
    return urls;
}

/// With what the results would be called in a folder.
std::vector<Input> inputsOf(const std::vector<pex::URL>& urls, const std::vector<std::string>& words) {
    std::vector<Input> inputs;
    for (std::size_t i = 0; i < urls.size(); ++i) {
        const std::string name = urls[i].lastPathComponent();
        inputs.push_back({words[i], {}, name.empty() || name == "/" ? "image" : name});
    }
    return inputs;
}

int run(Request& request) {
    Settings& settings = request.settings;
    const std::vector<pex::URL> urls = parsed(settings.arguments);
    settings.inputs = inputsOf(urls, settings.arguments);
    settings.intoFolder = urls.size() > 1;
    const auto downloader = pex::PexResourceDownloader::make();
    return runWriting(settings, request.writing, [&](const Input& input, const Destination& destination) {
        const pex::URL& url = urls[static_cast<std::size_t>(&input - settings.inputs.data())];
        if (request.refresh) downloader->forget(url);
        const Fetched fetched = fetch(*downloader, url);
        if (fetched.bytes.empty()) return Outcome(fetched.problem);
        Outcome outcome = save(input, fetched.bytes, destination, request.writing);
        if (std::holds_alternative<Failure>(outcome)) downloader->forget(url);
        return outcome;
    });
}

} // namespace

void addFetch(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("fetch", "Fetches images, through a cache on disk");
    const auto request = std::make_shared<Request>();
    command->add_option("input", request->settings.arguments, "Addresses: http, https or file")
        ->required()
        ->type_name("URL…");
    addReportOptions(*command, request->settings);
    addWorkOptions(*command, request->settings);
    addWritingOptions(*command, request->writing, QualityOption::yes);
    addMetadataOptions(*command, request->writing);
    command->add_flag("--refresh", request->refresh, "Ask the servers, whatever the cache holds");
    command->footer("Example: peximage fetch https://example.org/cover.jpg -o cover.jpg");
    command->callback([request, &status] { status = run(*request); });
}
