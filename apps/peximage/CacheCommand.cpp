#include "Batch.h"
#include "Commands.h"
#include "Printable.h"
#include "Saving.h"
#include "Text.h"
#include "peximage/cache/PexImageStoredCache.h"

namespace {

using Cache = pex::PexImageStoredCache;

struct Request {
    Settings settings;
    WritingOptions writing;
    std::string cache, id, image;
    std::string mode = "png";
    int days = 30;
};

/// Nothing is too old for any action but `clean`.
constexpr std::int64_t forever = 365'000;

std::shared_ptr<Cache> open(const Request& request, std::int64_t days) {
    return Cache::make({.name = request.cache,
                        .removeItemsAfterDays = days,
                        .mode = request.mode == "png" ? Cache::Mode::png : Cache::Mode::heif});
}

Outcome list(const Request& request) {
    const std::vector<std::string> all = open(request, forever)->identifiers();
    Result result{request.cache + ": " + grouped(static_cast<long long>(all.size())) +
                      (all.size() == 1 ? " image" : " images"),
                  {{"cache", request.cache}, {"identifiers", all}}};
    for (const std::string& id : all)
        result.line += "\n  " + printable(id);
    return result;
}

Outcome get(const Request& request) {
    const auto image = open(request, forever)->retrieveImage(request.id);
    if (!image) return Failure{"no image " + request.id};
    Settings one;
    one.inputs = {inputNamed(request.id)};
    const auto destination = planDestinations(one, request.writing.output, std::nullopt)[0];
    return saveImage(one.inputs[0], image, destination, request.writing);
}

Outcome put(const Request& request) {
    const auto opened = openImage(inputNamed(request.image));
    if (const auto* failure = std::get_if<Failure>(&opened))
        return Failure{request.image + ": " + failure->message, failure->code};
    const auto cache = open(request, forever);
    if (!cache->storeNow(std::get<std::shared_ptr<pex::PexImage>>(opened), request.id))
        return Failure{"cannot store " + request.id};
    const auto url = cache->imageUrl(request.id);
    return Result{printable(request.image + " → " + url->path()),
                  {{"file", request.image}, {"output", url->path()}}};
}

Outcome clean(const Request& request) {
    const auto cache = open(request, request.days);
    cache->removeOldItemsNow();
    const auto left = static_cast<long long>(cache->identifiers().size());
    return Result{request.cache + ": " + grouped(left) + (left == 1 ? " image" : " images") + " left",
                  {{"cache", request.cache}, {"left", left}}};
}

using Action = Outcome (*)(const Request& request);

CLI::App* addAction(CLI::App& command, const std::shared_ptr<Request>& request, int& status,
                    const std::string& name, const std::string& help, Action action) {
    CLI::App* added = command.add_subcommand(name, help);
    addReportOptions(*added, request->settings);
    added->callback([request, action, &status] {
        request->settings.inputs = {inputNamed(request->cache)};
        status = runBatch(request->settings, [&](std::size_t) { return action(*request); });
    });
    return added;
}

} // namespace

void addCache(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("cache", "Looks into a cache of images on disk");
    const auto request = std::make_shared<Request>();
    command->add_option("cache", request->cache, "Its folder inside the user's caches folder")
        ->required()
        ->type_name("NAME");
    command->add_option("--mode", request->mode, "What it stores: png (default), or heif, which is JPEG")
        ->check(CLI::IsMember({"png", "heif"}))
        ->type_name("png|heif");
    command->require_subcommand(1);
    command->footer("Example: peximage cache Thumbnails put cover cover.jpg");

    const auto add = [&](const char* name, const char* help, Action action) {
        return addAction(*command, request, status, name, help, action);
    };
    const auto addId = [&](CLI::App* action) {
        action->add_option("id", request->id, "The image's identifier")->required()->type_name("ID");
    };
    add("list", "Names what is stored", list);
    CLI::App* getting = add("get", "Writes a stored image to a file", get);
    addId(getting);
    getting->add_option("-o,--output", request->writing.output, "The file")->required()->type_name("OUT");
    CLI::App* putting = add("put", "Stores an image", put);
    addId(putting);
    putting->add_option("file", request->image, "The image")->required()->type_name("FILE");
    add("clean", "Deletes what is old", clean)
        ->add_option("--days", request->days, "Older than so many days (default: 30)")
        ->check(wholeBetween(0, anyWhole))
        ->type_name("N");
}
