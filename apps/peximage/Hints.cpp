#include "Hints.h"

#include <algorithm>
#include <numeric>

namespace {

/// How many letters have to be changed, added or taken away; two that changed places count as one.
std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::vector<std::size_t>> rows(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    std::iota(rows[0].begin(), rows[0].end(), 0);
    for (std::size_t i = 1; i <= a.size(); ++i) {
        rows[i][0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t changed = rows[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            rows[i][j] = std::min({rows[i - 1][j] + 1, rows[i][j - 1] + 1, changed});
            const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
            if (swapped) rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
        }
    }
    return rows[a.size()][b.size()];
}

void addOptionNames(const CLI::App& command, std::vector<std::string>& names) {
    for (const CLI::Option* option : command.get_options()) {
        for (const std::string& name : option->get_lnames())
            names.push_back("--" + name);
    }
    for (const CLI::App* group : command.get_subcommands([](const CLI::App*) { return true; })) {
        if (group->get_name().empty()) addOptionNames(*group, names);
    }
}

} // namespace

std::string didYouMean(std::string_view word, const std::vector<std::string>& candidates) {
    constexpr std::size_t longest = 40;
    const std::string* nearest = nullptr;
    std::size_t least = std::min<std::size_t>(word.size() / 3 + 1, 3);
    for (const std::string& candidate : candidates) {
        if (word.size() > longest) break;
        const std::size_t changes = distance(word, candidate);
        if (changes > least || (nearest && changes == least)) continue;
        nearest = &candidate;
        least = changes;
    }
    return nearest ? "; did you mean " + *nearest + "?" : std::string();
}

std::string unknownOption(const CLI::App& command) {
    for (const std::string& word : command.remaining()) {
        if (word.size() < 2 || word[0] != '-') continue;
        std::vector<std::string> names;
        addOptionNames(command, names);
        return "there is no option " + word + didYouMean(word.substr(0, word.find('=')), names);
    }
    return {};
}
