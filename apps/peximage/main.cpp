#include "Commands.h"
#include "Hints.h"
#include "Interrupt.h"
#include "Manual.h"
#include "Printable.h"
#include "Settings.h"
#include "Text.h"
#include "peximage/peximage.h"

#include <algorithm>
#include <csignal>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int wrongUsage = 2;

int explain(const CLI::App& program, const std::string& message) {
    std::string command;
    for (const CLI::App* asked : program.get_subcommands())
        command += ' ' + asked->get_name();
    std::cerr << "peximage: " << printableLines(message) << "\nTry 'peximage" << command << " --help'.\n";
    return wrongUsage;
}

struct Command {
    std::string_view name;
    void (*add)(CLI::App& program, int& status);
};

/// In the order in which --help lists them.
constexpr Command commands[] = {
    {"info", addInfo},           {"shrink", addShrink},     {"convert", addConvert},
    {"resize", addResize},       {"composer", addComposer}, {"crop", addCrop},
    {"rotate", addRotate},       {"split", addSplit},       {"join", addJoin},
    {"watermark", addWatermark}, {"canvas", addCanvas},     {"key", addKey},
    {"mask", addMask},           {"colors", addColors},     {"filter", addFilter},
    {"exif", addExif},           {"cache", addCache},       {"pdf", addPdf},
    {"fetch", addFetch},         {"view", addView},
};

/// Setting up all commands takes longer than the rest of the start: the one that is named first is enough,
/// where one is.
void addCommands(CLI::App& program, std::string_view firstWord, int& status) {
    const auto named = std::ranges::find(commands, firstWord, &Command::name);
    if (named != std::end(commands)) return named->add(program, status);
    for (const Command& command : commands)
        command.add(program, status);
}

/// A first word that is no option has to be a command.
void checkCommand(std::string_view firstWord) {
    if (firstWord.empty() || firstWord.starts_with('-')) return;
    std::vector<std::string> names;
    for (const Command& command : commands)
        names.emplace_back(command.name);
    if (std::ranges::find(names, firstWord) == names.end())
        throw UsageError{"there is no command " + std::string(firstWord) + didYouMean(firstWord, names)};
}

/// What the parser complains of, unless a misspelt option explains it.
std::string messageOf(const CLI::ParseError& error, const CLI::App& program) {
    const auto asked = program.get_subcommands();
    const std::string unknown = unknownOption(asked.empty() ? program : *asked[0]);
    return unknown.empty() ? error.what() : unknown;
}

int run(CLI::App& program, int argc, char** argv) {
    int status = 0;
    const std::string_view firstWord = argc > 1 ? argv[1] : "";
    if (firstWord != "--version") addCommands(program, firstWord, status);
    if (firstWord == "--write-manual" && argc == 3) return writeManual(program, argv[2]); // while building
    try {
        checkCommand(firstWord);
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return program.exit(error); // --help, --version
        return explain(program, messageOf(error, program));
    } catch (const UsageError& error) {
        return explain(program, error.message);
    }
    return status;
}

} // namespace

int main(int argc, char** argv) {
    // A file that may grow no more, or a reader that is gone, is a write that fails, not the end of the
    // program with temporary files lying about.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    watchInterrupts();
    CLI::App program("Fits, converts and measures images.", "peximage");
    program.set_version_flag("--version", "peximage " PEX_VERSION_STRING "\n" + knownFormats());
    program.require_subcommand(1);
    program.footer("'peximage COMMAND --help' tells more about a command.");
    return run(program, argc, argv);
}
