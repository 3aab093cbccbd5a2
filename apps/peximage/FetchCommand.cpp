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
    return options.quality || options.dpi || options.maxBytes || options.metadata != MetadataChoice::keep;
}

/// The server's own bytes, unless another format or anything else is asked for.
Outcome save(const std::string& input, const pex::Data& bytes, const Destination& destination,
             const WritingOptions& options) {
    forgetReason();
    const auto source = pex::CGImageSource::make(bytes);
    if (!source) return libraryFailure("not an image");
    if (source->properties().format == destination.format && !changesAnything(options))
        return saveBytes(input, bytes, uprightSize(source->properties()), destination.path);
    const auto image = pex::PexImage::make(bytes, {});
    if (!image) return libraryFailure("not an image");
    return saveImage(input, image, destination, options, originOf(*source, options));
}

std::vector<pex::URL> parsed(const std::vector<std::string>& inputs) {
    std::vector<pex::URL> urls;
    for (const std::string& input : inputs) {
        const auto url = pex::URL::parse(input);
        if (!url) throw UsageError{"'" + input + "' is no address; write https://…"};
        urls.push_back(*url);
    }
    return urls;
}

/// What the results would be called in a folder.
std::vector<std::string> fileNames(const std::vector<pex::URL>& urls) {
    std::vector<std::string> names;
    for (const pex::URL& url : urls) {
        const std::string name = url.lastPathComponent();
        names.push_back(name.empty() || name == "/" ? "image" : name);
    }
    return names;
}

int run(const Request& request) {
    const std::vector<pex::URL> urls = parsed(request.settings.inputs);
    Settings named = request.settings;
    named.inputs = fileNames(urls);
    const std::vector<Destination> destinations = planResults(named, request.writing);
    const auto downloader = pex::PexResourceDownloader::make();
    return runBatch(request.settings, [&](std::size_t i) -> Outcome {
        if (request.refresh) downloader->forget(urls[i]);
        const Fetched fetched = fetch(*downloader, urls[i]);
        if (fetched.bytes.empty()) return fetched.problem;
        Outcome outcome = save(request.settings.inputs[i], fetched.bytes, destinations[i], request.writing);
        if (std::holds_alternative<Failure>(outcome)) downloader->forget(urls[i]);
        return outcome;
    });
}

} // namespace

void addFetch(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("fetch", "Fetches images, through a cache on disk");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
    command->get_option("input")->description("Addresses: http, https or file")->type_name("URL…");
    addWritingOptions(*command, request->writing, QualityOption::yes);
    addMetadataOptions(*command, request->writing);
    command->add_flag("--refresh", request->refresh, "Ask the servers, whatever the cache holds");
    command->footer("Example: peximage fetch https://example.org/cover.jpg -o cover.jpg");
    command->callback([request, &status] { status = run(*request); });
}
