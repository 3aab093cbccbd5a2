#include "Commands.h"
#include "Interrupt.h"
#include "Options.h"
#include "Settings.h"
#include "peximage/platform/foundation/Bundle.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <unistd.h>
#include <vector>

namespace {

struct Request {
    std::vector<std::string> items;
    std::optional<double> radius, border;
    std::optional<std::string> borderColor;
    bool verbose = false;
};

/// The viewer is a program of its own beside this one, so that no other command loads a desktop toolkit.
std::string viewer() {
    const std::optional<pex::URL> folder = pex::Bundle::main();
    return folder ? folder->appendingPathComponent("peximage-view").path() : std::string();
}

std::vector<std::string> arguments(const Request& request) {
    std::vector<std::string> list{"peximage-view"};
    const auto add = [&](const char* name, const auto& value) {
        if (!value) return;
        if constexpr (std::is_same_v<std::decay_t<decltype(*value)>, double>)
            list.push_back(name + std::to_string(*value));
        else
            list.push_back(name + *value);
    };
    add("--radius=", request.radius);
    add("--border=", request.border);
    add("--border-color=", request.borderColor);
    if (request.verbose) list.emplace_back("--verbose");
    list.emplace_back("--");
    list.insert(list.end(), request.items.begin(), request.items.end());
    return list;
}

/// Becomes the viewer; returns only when that fails.
int run(const Request& request) {
    const std::string program = viewer();
    if (::access(program.c_str(), F_OK) != 0) {
        std::cerr << "peximage: built without the viewer\n";
        return 1;
    }
    std::vector<std::string> list = arguments(request);
    std::vector<char*> pointers;
    pointers.reserve(list.size() + 1);
    for (std::string& argument : list)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    unwatchInterrupts();
    ::execv(program.c_str(), pointers.data());
    std::cerr << "peximage: cannot start " << program << ": " << std::strerror(errno) << '\n';
    return 1;
}

} // namespace

void addView(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("view", "Shows images in a window");
    const auto request = std::make_shared<Request>();
    command->add_option("item", request->items, "Files and addresses")->required()->type_name("FILE|URL…");
    command->add_option("--radius", request->radius, "Round corners of so many points")
        ->check(numberBetween(0, 10'000))
        ->type_name("N");
    command->add_option("--border", request->border, "A border of so many points")
        ->check(numberBetween(0, 10'000))
        ->type_name("N");
    command->add_option("--border-color", request->borderColor, "The border's colour (default: grey)")
        ->type_name("RRGGBB");
    command->add_flag("-v,--verbose", request->verbose, "Tell on standard error how long things take");
    command->footer("Arrow keys go from one to the next; + - 0 1 or the wheel zoom, the mouse moves what is\n"
                    "larger than the window; F fills the screen, Q ends.\n"
                    "Example: peximage view *.jpg");
    command->callback([request, &status] { status = run(*request); });
}
