#include "Manual.h"

#include "Completions.h"
#include "OptionTable.h"
#include "peximage/platform/foundation/Version.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>

namespace fs = std::filesystem;

namespace {

/// Text in the pages' language: backslashes and dashes as themselves, no control line by accident.
std::string plain(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else
            out += c;
    }
    return out.starts_with('.') || out.starts_with('\'') ? "\\&" + out : out;
}

std::string heading(const std::string& name) {
    std::string upper = name;
    std::ranges::transform(upper, upper.begin(), [](unsigned char c) { return std::toupper(c); });
    return ".TH " + upper + " 1 \"\" \"peximage " PEX_VERSION_STRING "\" \"User Commands\"\n";
}

std::string described(const OptionRow& row) {
    return ".TP\n.B " + plain(row.usage()) + "\n" + plain(row.help) + (row.isRequired ? " (required)" : "") +
           "\n";
}

/// The footer's lines; those that begin with the word Example as such.
std::string examples(const CLI::App& command) {
    constexpr std::string_view start = "Example: ";
    std::string page, text = command.get_footer();
    const std::size_t at = text.find(start);
    if (at == std::string::npos) return {};
    if (at > 0) page += ".PP\n" + plain(text.substr(0, at - 1)) + "\n";
    return page + ".SH EXAMPLES\n.nf\n" + plain(text.substr(at + start.size())) + "\n.fi\n";
}

constexpr const char* statuses =
    ".SH EXIT STATUS\n"
    "0 when all was done, 1 when something failed (a line each on standard error), 2 "
    "for wrong usage, 128 + n after signal n.\n";

std::string pageOf(const CLI::App& command) {
    const std::string name = "peximage-" + command.get_name();
    std::string page = heading(name) + ".SH NAME\n" + plain(name) + " \\- " +
                       plain(command.get_description()) + "\n.SH SYNOPSIS\n.B peximage " +
                       plain(usageOf(command)) + "\n.SH OPTIONS\n";
    for (const OptionRow& row : wordsOf(command))
        page += described(row);
    for (const OptionRow& row : optionsOf(command))
        page += described(row);
    for (const CLI::App* action : actionsOf(command))
        page += ".TP\n.B " + plain(usageOf(*action)) + "\n" + plain(action->get_description()) + "\n";
    return page + examples(command) + statuses + ".SH SEE ALSO\n.BR peximage (1)\n";
}

std::string mainPage(const CLI::App& program) {
    std::string page = heading("peximage") + ".SH NAME\npeximage \\- " + plain(program.get_description()) +
                       "\n.SH SYNOPSIS\n.B peximage\nCOMMAND [OPTIONS] INPUT\n.SH COMMANDS\n";
    for (const CLI::App* command : actionsOf(program))
        page += ".TP\n.BR peximage\\-" + plain(command->get_name()) + " (1)\n" +
                plain(command->get_description()) + "\n";
    return page + ".SH ENVIRONMENT\n.TP\n.B PEXIMAGE_THREADS\nThe most threads that work on one picture.\n" +
           statuses;
}

/// The README's rows.
std::string table(const CLI::App& program) {
    std::string text = "| command | does |\n|---|---|\n";
    for (const CLI::App* command : actionsOf(program)) {
        std::string usage = usageOf(*command);
        usage.replace(usage.find(" [OPTIONS]"), std::string(" [OPTIONS]").size(), "");
        for (std::size_t at = 0; (at = usage.find('|', at)) != std::string::npos; at += 2)
            usage.insert(at, "\\");
        text += "| `" + usage + "` | " + command->get_description() + " |\n";
    }
    return text;
}

bool write(const fs::path& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    if (!file) std::cerr << "peximage: cannot write " << path.string() << '\n';
    return static_cast<bool>(file);
}

} // namespace

int writeManual(const CLI::App& program, const std::string& folder) {
    const fs::path to = folder;
    std::error_code ignored;
    fs::create_directories(to / "man1", ignored);
    bool all = write(to / "man1" / "peximage.1", mainPage(program)) &&
               write(to / "peximage.bash", bashCompletion(program)) &&
               write(to / "_peximage", zshCompletion(program)) &&
               write(to / "peximage.fish", fishCompletion(program)) &&
               write(to / "commands.md", table(program));
    for (const CLI::App* command : actionsOf(program))
        all = all && write(to / "man1" / ("peximage-" + command->get_name() + ".1"), pageOf(*command));
    return all ? 0 : 1;
}
