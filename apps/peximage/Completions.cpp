#include "Completions.h"

#include "OptionTable.h"

#include <string_view>

namespace {

std::string joined(const std::vector<std::string>& words, std::string_view separator) {
    std::string text;
    for (const std::string& word : words)
        text.append(text.empty() ? "" : separator).append(word);
    return text;
}

std::vector<std::string> commandNames(const CLI::App& program) {
    std::vector<std::string> names;
    for (const CLI::App* command : actionsOf(program))
        names.push_back(command->get_name());
    return names;
}

/// "--output" and "-o".
std::vector<std::string> spellings(const OptionRow& row) {
    std::vector<std::string> all;
    if (!row.longName.empty()) all.push_back("--" + row.longName);
    if (!row.shortName.empty()) all.push_back("-" + row.shortName);
    return all;
}

/// The text within single quotes of a shell.
std::string quoted(std::string text) {
    for (std::size_t at = 0; (at = text.find('\'', at)) != std::string::npos; at += 4)
        text.replace(at, 1, "'\\''");
    return '\'' + text + '\'';
}

/// The same for bash, with escapes.
std::string bashLines(const std::vector<std::string>& words) { return "$'" + joined(words, "\\n") + "'"; }

/// What completes the values of a command's options.
std::string bashValues(const CLI::App& command) {
    std::string cases;
    for (const OptionRow& row : optionsOf(command)) {
        if (row.form.empty()) continue;
        const std::string pattern = "        " + joined(spellings(row), "|") + ") ";
        if (!row.values().empty())
            cases += pattern + "words=" + bashLines(row.values()) + " ;;\n";
        else
            cases +=
                pattern + (row.takesFile() ? "return ;;\n" : "COMPREPLY=(); compopt +o default; return ;;\n");
    }
    return cases;
}

} // namespace

std::string bashCompletion(const CLI::App& program) {
    std::string script =
        "# Completion of peximage for bash; made of the program's own definitions.\n"
        "_peximage() {\n"
        "    local current=\"${COMP_WORDS[COMP_CWORD]}\" before=\"${COMP_WORDS[COMP_CWORD - 1]}\"\n"
        "    local command=\"${COMP_WORDS[1]}\" words='' options='' IFS=$'\\n'\n"
        "    COMPREPLY=()\n"
        "    if ((COMP_CWORD == 1)); then\n"
        "        words=" +
        bashLines(commandNames(program)) +
        "\n        [[ $current == -* ]] && words=$'--help\\n--version'\n"
        "    else\n    case \"$command\" in\n";
    for (const CLI::App* command : actionsOf(program)) {
        std::vector<std::string> options;
        for (const OptionRow& row : optionsOf(*command)) {
            for (const std::string& spelling : spellings(row))
                options.push_back(spelling);
        }
        script += "    " + command->get_name() + ")\n        options=" + bashLines(options) +
                  "\n        case \"$before\" in\n" + bashValues(*command) +
                  "        *) words=" + bashLines(commandNames(*command)) +
                  "\n            [[ $current == -* ]] && words=$options" + " ;;\n        esac ;;\n";
    }
    return script + "    esac\n    fi\n"
                    "    COMPREPLY=($(compgen -W \"$words\" -- \"$current\"))\n"
                    "    COMPREPLY=(\"${COMPREPLY[@]// /\\\\ }\")\n"
                    "}\n"
                    "complete -o default -F _peximage peximage\n";
}

namespace {

/// An option as _arguments wants it: '(-o --output)'{-o,--output}'[help]:form:_files'.
std::string zshOption(const OptionRow& row) {
    std::string help, what;
    for (const char c : row.help)
        help += c == '[' || c == ']' || c == ':' ? std::string("\\") + c : std::string(1, c);
    if (!row.form.empty()) what = ":value:";
    if (!row.values().empty()) {
        std::vector<std::string> words = row.values();
        for (std::string& word : words) {
            for (std::size_t at = 0; (at = word.find(' ', at)) != std::string::npos; at += 2)
                word.insert(at, "\\");
        }
        what += "(" + joined(words, " ") + ")";
    } else if (row.takesFile()) {
        what += "_files";
    }
    std::string lines;
    for (const std::string& spelling : spellings(row))
        lines += " \\\n            " + quoted(spelling + "[" + help + "]" + what);
    return lines;
}

std::string zshAction(const CLI::App& command) {
    const auto names = commandNames(command);
    return names.empty() ? "_files" : "(" + joined(names, " ") + ")";
}

} // namespace

std::string zshCompletion(const CLI::App& program) {
    std::string script = "#compdef peximage\n"
                         "# Completion of peximage for zsh; made of the program's own definitions.\n"
                         "_peximage() {\n    local -a commands=(";
    for (const CLI::App* command : actionsOf(program))
        script += "\n        " + quoted(command->get_name() + ":" + command->get_description());
    script += ")\n    if ((CURRENT == 2)); then\n        _describe command commands\n        return\n    fi\n"
              "    local command=$words[2]\n    shift words\n    ((CURRENT--))\n    case $command in\n";
    for (const CLI::App* command : actionsOf(program)) {
        script += "    " + command->get_name() + ")\n        _arguments";
        for (const OptionRow& row : optionsOf(*command))
            script += zshOption(row);
        script += " \\\n            '*:input:" + zshAction(*command) + "' ;;\n";
    }
    return script + "    esac\n}\n_peximage \"$@\"\n";
}

std::string fishCompletion(const CLI::App& program) {
    std::string script = "# Completion of peximage for fish; made of the program's own definitions.\n";
    for (const CLI::App* command : actionsOf(program)) {
        const std::string& name = command->get_name();
        script += "complete -c peximage -n __fish_use_subcommand -f -a " + name + " -d " +
                  quoted(command->get_description()) + "\n";
        const std::string seen = "complete -c peximage -n '__fish_seen_subcommand_from " + name + "'";
        if (!actionsOf(*command).empty())
            script += seen + " -a " + quoted(joined(commandNames(*command), " ")) + "\n";
        for (const OptionRow& row : optionsOf(*command)) {
            script += seen + (row.longName.empty() ? "" : " -l " + row.longName) +
                      (row.shortName.empty() ? "" : " -s " + row.shortName) + " -d " + quoted(row.help);
            if (!row.form.empty()) script += row.takesFile() ? " -r" : " -x";
            std::vector<std::string> words = row.values();
            for (std::string& word : words)
                word = word.find(' ') == std::string::npos ? word : '"' + word + '"';
            script += words.empty() ? "\n" : " -a " + quoted(joined(words, " ")) + "\n";
        }
    }
    return script;
}
