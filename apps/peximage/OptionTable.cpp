#include "OptionTable.h"

#include <algorithm>
#include <sstream>

namespace {

OptionRow rowOf(const CLI::Option& option) {
    OptionRow row;
    if (!option.get_lnames().empty()) row.longName = option.get_lnames()[0];
    if (!option.get_snames().empty()) row.shortName = option.get_snames()[0];
    if (option.get_expected_max() > 0) row.form = option.get_type_name();
    row.form.erase(std::min(row.form.find(":{"), row.form.size())); // what a check has added
    row.help = option.get_description();
    row.isRequired = option.get_required();
    return row;
}

std::vector<const CLI::App*> partsOf(const CLI::App& command, bool named) {
    return command.get_subcommands([=](const CLI::App* part) { return part->get_name().empty() != named; });
}

void addOptions(const CLI::App& command, std::vector<OptionRow>& rows) {
    for (const CLI::Option* option : command.get_options()) {
        OptionRow row = rowOf(*option);
        const bool isKnown =
            std::ranges::any_of(rows, [&](const OptionRow& known) { return known.longName == row.longName; });
        if (!option->get_positional() && !isKnown) rows.push_back(std::move(row));
    }
    for (const bool named : {false, true}) {
        for (const CLI::App* part : partsOf(command, named))
            addOptions(*part, rows);
    }
}

} // namespace

std::vector<std::string> OptionRow::values() const {
    std::vector<std::string> words;
    std::istringstream parts(form);
    for (std::string word; std::getline(parts, word, '|');) {
        const bool isPlaceholder = std::ranges::none_of(
            word, [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); });
        if (isPlaceholder) return {};
        words.push_back(word);
    }
    return words.size() > 1 ? words : std::vector<std::string>();
}

bool OptionRow::takesFile() const {
    return form.starts_with("FILE") || form.starts_with("OUT") || form.starts_with("FOLDER") ||
           form.starts_with("INPUT") || form.starts_with("DOC");
}

std::string OptionRow::usage() const {
    std::string names = shortName.empty() ? "" : "-" + shortName;
    if (!longName.empty()) names += (names.empty() ? "--" : ",--") + longName;
    return names + (form.empty() || names.empty() ? form : " " + form);
}

std::vector<OptionRow> optionsOf(const CLI::App& command) {
    std::vector<OptionRow> rows;
    addOptions(command, rows);
    return rows;
}

std::vector<OptionRow> wordsOf(const CLI::App& command) {
    std::vector<OptionRow> rows;
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_positional()) rows.push_back(rowOf(*option));
    }
    return rows;
}

std::vector<const CLI::App*> actionsOf(const CLI::App& command) { return partsOf(command, true); }

std::string usageOf(const CLI::App& command) {
    std::string usage = command.get_name() + " [OPTIONS]";
    for (const OptionRow& word : wordsOf(command))
        usage += ' ' + word.form;
    std::string actions;
    for (const CLI::App* action : actionsOf(command))
        actions += (actions.empty() ? " " : "|") + action->get_name();
    return usage + actions;
}
