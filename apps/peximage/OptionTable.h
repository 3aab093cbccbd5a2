#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

/// What the definitions say of one option, or of one word that a command takes.
struct OptionRow {
    std::string longName, shortName; // without dashes; both empty for a word
    std::string form;                // "N", "auto|full|half"; empty for a flag
    std::string help;
    bool isRequired = false;

    /// Where the form lists words to choose from, these.
    std::vector<std::string> values() const;
    bool takesFile() const;
    /// "-o,--output OUT"
    std::string usage() const;
};

/// The options of a command, of its groups and of its actions ("cache NAME list"), each once.
std::vector<OptionRow> optionsOf(const CLI::App& command);
/// The words that stand behind a command.
std::vector<OptionRow> wordsOf(const CLI::App& command);
/// Its actions.
std::vector<const CLI::App*> actionsOf(const CLI::App& command);
/// "shrink [OPTIONS] INPUT…"
std::string usageOf(const CLI::App& command);
