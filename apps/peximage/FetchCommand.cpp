#include "Commands.h"
#include "Saving.h"

#include <future>

namespace {

struct Request {
    Settings settings;
    WritingOptions writing;
};

struct Fetched {
    std::shared_ptr<pex::PexImage> image;
    std::string problem;
};

Fetched fetch(const pex::URL& url) {
    // Shared, since the other thread is still at it when the result is there.
    const auto arrived = std::make_shared<std::promise<Fetched>>();
    std::string problem;
    pex::PexImage::getCachedImage({.url = url,
                                   .callback =
                                       [arrived, &problem](std::shared_ptr<pex::PexImage> image) {
                                           arrived->set_value({std::move(image), problem});
                                       },
                                   .failed = [&](const std::string& why) { problem = why; }});
    return arrived->get_future().get();
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
    return runBatch(request.settings, [&](std::size_t i) -> Outcome {
        const Fetched fetched = fetch(urls[i]);
        if (!fetched.image) return Failure{fetched.problem};
        return saveImage(request.settings.inputs[i], fetched.image, destinations[i], request.writing);
    });
}

} // namespace

void addFetch(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("fetch", "Fetches images, through a cache on disk");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
    command->get_option("input")->description("Addresses: http, https or file")->type_name("URL…");
    addWritingOptions(*command, request->writing, QualityOption::yes);
    command->footer("Example: peximage fetch https://example.org/cover.jpg -o cover.jpg");
    command->callback([request, &status] { status = run(*request); });
}
