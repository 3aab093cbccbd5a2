#include "Batch.h"
#include "Commands.h"
#include "Files.h"
#include "Inputs.h"
#include "Options.h"
#include "Printable.h"
#include "peximage/composer/PexComposer.h"
#include "peximage/platform/foundation/Data.h"

#include <memory>
#include <utility>

namespace {

using pex::PexComposer;

struct ComposerOptions : Settings {
    std::string document;
    std::string output;
    std::optional<std::size_t> number;
    PexComposer::SearchAndReplace texts;
};

struct Document {
    PexComposer composer;
    std::string text; // of it alone
};

using Read = std::variant<Document, Failure>;

std::string counted(std::size_t number, const std::string& what) {
    return std::to_string(number) + ' ' + what + (number == 1 ? "" : "s");
}

Read decoded(std::string text) {
    pex::DocumentError error;
    if (auto composer = pex::decode<PexComposer>(text, &error))
        return Document{*std::move(composer), std::move(text)};
    return Failure{error.message()};
}

/// A document of the manager holds a list of composers; anything else is one composer.
Read readComposer(const ComposerOptions& options) {
    const auto bytes = pex::Data::contentsOf(pex::URL::fromPath(options.document));
    if (!bytes) return libraryFailure("cannot be read");
    const auto tree = nlohmann::ordered_json::parse(bytes->text(), nullptr, false);
    const bool isList = tree.is_object() && tree.contains("composerList") && tree["composerList"].is_array();
    if (!isList) return decoded(std::string(bytes->text()));
    const auto& list = tree["composerList"];
    const std::size_t chosen = options.number.value_or(list.size() == 1 ? 1 : 0);
    if (chosen >= 1 && chosen <= list.size()) return decoded(list[chosen - 1].dump());
    return Failure{"holds a manager's list of " + counted(list.size(), "composer") +
                   "; --composer N takes the one of that number, from 1"};
}

Result listGuides(const PexComposer& composer) {
    Result result{.line = {}, .json = nlohmann::ordered_json::array()};
    for (const auto& guide : composer.guideList({0.0, 0.05})) {
        const std::string orientation(rawValue(guide.orientation));
        const nlohmann::ordered_json location = guide.location;
        result.json.push_back(
            {{"orientation", orientation}, {"location", location}, {"intrinsic", guide.intrinsic}});
        result.line += (result.line.empty() ? "" : "\n") + orientation + "  " + location.dump() +
                       (guide.intrinsic ? "  intrinsic" : "");
    }
    return result;
}

Result describe(const std::string& file, const PexComposer& composer) {
    const std::size_t layers = composer.layerList.size(), guides = composer.guideList_.size();
    return {.line =
                printable(file) + "  reads  " + counted(layers, "layer") + "  " + counted(guides, "guide"),
            .json = {{"file", file}, {"layers", layers}, {"guides", guides}}};
}

/// Puts the new texts into the document; how many layers changed. All else stays as it is, also what a
/// composer does not know.
std::size_t putTexts(const PexComposer& derived, const PexComposer& composer, nlohmann::ordered_json& json) {
    std::size_t changed = 0;
    for (std::size_t i = 0; i < derived.layerList.size(); ++i) {
        const std::string& text = derived.layerList[i].text.text;
        if (text == composer.layerList[i].text.text) continue;
        json["layerList"][i]["text"]["text"] = text;
        ++changed;
    }
    return changed;
}

/// Without an output the new document itself is the result.
Outcome replaceTexts(const ComposerOptions& options, const Document& document) {
    auto json = nlohmann::ordered_json::parse(document.text);
    const PexComposer derived = document.composer.composer(options.texts);
    const std::size_t changed = putTexts(derived, document.composer, json);
    const std::string text = json.dump();
    if (options.output.empty()) return Result{.line = printableJson(text), .json = std::move(json)};

    if (auto failure = writeFile(options.output, pex::Data(text + '\n'))) return *failure;
    return Result{.line = printable(options.document + " → " + options.output) + "  " +
                          counted(changed, "layer") + " changed",
                  .json = {{"file", options.document}, {"output", options.output}, {"changed", changed}}};
}

using Action = Outcome (*)(const ComposerOptions&, const Document&);

int runAction(ComposerOptions& options, Action action) {
    options.inputs = {inputNamed(options.document)};
    return runBatch(options, [&](std::size_t) -> Outcome {
        const Read read = readComposer(options);
        if (const auto* failure = std::get_if<Failure>(&read)) return *failure;
        return action(options, std::get<Document>(read));
    });
}

CLI::App* addAction(CLI::App& command, const std::shared_ptr<ComposerOptions>& options, int& status,
                    const std::string& name, const std::string& help, Action action) {
    CLI::App* const added = command.add_subcommand(name, help);
    addReportOptions(*added, *options);
    added->callback([options, action, &status] { status = runAction(*options, action); });
    return added;
}

} // namespace

void addComposer(CLI::App& program, int& status) {
    CLI::App* const command = program.add_subcommand("composer", "Works on the document of a composer");
    const auto options = std::make_shared<ComposerOptions>();
    command->add_option("document", options->document, "A composer as JSON")
        ->required()
        ->type_name("DOC.json");
    command->add_option("--composer", options->number, "Of a manager's list of composers this one, from 1")
        ->type_name("N");
    command->require_subcommand(1);
    command->footer("Example: peximage composer page.json replace Draft Final -o final.json");

    const auto add = [&](const char* name, const char* help, Action action) {
        return addAction(*command, options, status, name, help, action);
    };
    add("guides", "Lists the guides that layers snap to",
        [](const ComposerOptions&, const Document& d) -> Outcome { return listGuides(d.composer); });
    add("check", "Tells whether the document reads, and if not, where and why",
        [](const ComposerOptions& o, const Document& d) -> Outcome {
            return describe(o.document, d.composer);
        });
    CLI::App* const replace =
        add("replace", "Replaces a text in every layer, whatever its case", replaceTexts);
    replace->add_option("search", options->texts.search, "The text to find")->required()->type_name("SEARCH");
    replace->add_option("replacement", options->texts.replace, "The text to put there")
        ->required()
        ->type_name("REPLACEMENT");
    replace
        ->add_option("-o,--output", options->output, "Where the new document goes (default: standard output)")
        ->type_name("OUT");
}
