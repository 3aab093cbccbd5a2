#include "Commands.h"
#include "Printable.h"
#include "Saving.h"
#include "Text.h"

#include <filesystem>
#include <set>

namespace fs = std::filesystem;

namespace {

struct Request {
    Settings settings;
    WritingOptions writing;
    pex::ImageFormat format = pex::ImageFormat::png;
    std::optional<pex::CGSize> tile;
    std::optional<int> rows, columns, tileWidth, tileHeight, maxWidth, maxHeight;
    int border = 0;
};

pex::PexImage::Tiles tilesOf(const pex::PexImage& image, const Request& request) {
    if (request.tile) return image.split({.to = *request.tile, .tileBorder = request.border});
    // The library's rows divide the width; here they are what the word says.
    if (request.rows || request.columns)
        return image.split({.rows = request.columns, .columns = request.rows});
    if (request.tileWidth || request.tileHeight)
        return image.split(
            {.toWidth = request.tileWidth, .height = request.tileHeight, .tileBorder = request.border});
    return image.boundedSplit(
        {.toWidth = request.maxWidth, .maxWidth = true, .height = request.maxHeight, .maxHeight = true});
}

/// One tile written; what it lacks of the outcome of a whole command is its name.
std::optional<Failure> writeTile(const std::shared_ptr<pex::PexImage>& tile, const fs::path& path,
                                 const Request& request, const Origin& origin, nlohmann::ordered_json& row) {
    const Outcome outcome =
        saveImage(inputNamed(path.string()), tile, {path, request.format}, request.writing, origin);
    if (const auto* failure = std::get_if<Failure>(&outcome)) return *failure;
    row.push_back({{"file", path.string()},
                   {"width", std::llround(tile->size.width)},
                   {"height", std::llround(tile->size.height)}});
    return std::nullopt;
}

Outcome split(const Input& input, const Request& request) {
    const auto opened = openImage(input);
    if (const auto* failure = std::get_if<Failure>(&opened)) return *failure;
    const auto tiles = tilesOf(*std::get<std::shared_ptr<pex::PexImage>>(opened), request);
    if (tiles.empty()) return Failure{"cannot be cut into such tiles"};
    const fs::path folder = request.writing.output / input.place.parent_path();
    const Origin origin = originOf(input, request.writing);
    Result result{{}, nlohmann::ordered_json::array()};
    const std::string ending = request.writing.format.value_or("png");
    result.notes = fitted(origin, request.format, request.writing).notes;
    std::size_t count = 0;
    for (std::size_t r = 0; r < tiles.size(); ++r) {
        auto row = nlohmann::ordered_json::array();
        for (std::size_t c = 0; c < tiles[r].size(); ++c, ++count) {
            const std::string name =
                input.place.stem().string() + "-r" + std::to_string(r) + "-c" + std::to_string(c) + '.';
            const fs::path path = folder / (name + ending);
            if (isLeftOut(input, path, request.writing)) continue;
            if (auto failure = writeTile(tiles[r][c], path, request, origin, row)) return *failure;
        }
        result.json.push_back(std::move(row));
    }
    const char* rows = tiles.size() == 1 ? " row, " : " rows, ";
    result.line = printable(input.shownName() + " → " + folder.string()) + "  " +
                  std::to_string(tiles.size()) + rows + grouped(static_cast<long long>(count)) + " tiles";
    if (request.writing.dryRun) result.line += "  would be written";
    return result;
}

void addCount(CLI::App& group, const std::string& name, std::optional<int>& target, const std::string& help) {
    addPixels(group, name, target, help);
}

/// Which of the four ways is asked for: one, and no option of another.
void checkOneWay(const Request& request) {
    const int ways = int(request.tile.has_value()) + int(request.rows || request.columns) +
                     int(request.tileWidth || request.tileHeight) +
                     int(request.maxWidth || request.maxHeight);
    if (ways != 1)
        throw UsageError{"give --tile, or --rows and --columns, or --tile-width and --tile-height, or "
                         "--max-width and --max-height"};
    if (request.border && !request.tile && !request.tileWidth && !request.tileHeight)
        throw UsageError{"--border goes with tiles of a given size"};
}

/// Tiles are named after their picture.
void checkNames(const std::vector<Input>& inputs) {
    std::set<fs::path> names;
    for (const Input& input : inputs) {
        const fs::path name = input.place.parent_path() / input.place.stem();
        if (!names.insert(name).second)
            throw UsageError{"tiles of two inputs would both be named " + name.string()};
    }
}

} // namespace

void addSplit(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("split", "Cuts images into tiles");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
    addPageOption(*command, request->settings);
    addWritingOptions(*command, request->writing, QualityOption::yes);
    addMetadataOptions(*command, request->writing);
    addParsed(*command, "--tile", "WxH", "Tiles of this size", "a size; write 256x256", parsePixelSize,
              request->tile);
    addCount(*command, "--rows", request->rows, "So many rows");
    addCount(*command, "--columns", request->columns, "So many columns");
    addCount(*command, "--tile-width", request->tileWidth, "Tiles of this width");
    addCount(*command, "--tile-height", request->tileHeight, "Tiles of this height");
    addCount(*command, "--max-width", request->maxWidth, "Tiles of equal width, at most this");
    addCount(*command, "--max-height", request->maxHeight, "Tiles of equal height, at most this");
    command->add_option("--border", request->border, "Tiles overlap their neighbours by twice this")
        ->check(wholeBetween(0, anyWhole))
        ->type_name("N");
    command->footer("Example: peximage split map.png -o tiles --tile 256x256");
    command->callback([request, &status] {
        checkOneWay(*request);
        if (request->writing.format) request->format = writableFormat(*request->writing.format, "--format");
        expandInputs(request->settings, request->writing.output);
        checkNames(request->settings.inputs);
        status = runBatch(request->settings,
                          [&](std::size_t i) { return split(request->settings.inputs[i], *request); });
    });
}
