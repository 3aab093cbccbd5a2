#include "Commands.h"
#include "Interrupt.h"
#include "Settings.h"
#include "Text.h"
#include "peximage/peximage.h"

#include <iostream>
#include <string>

namespace {

constexpr int wrongUsage = 2;

int explain(const CLI::App& program, const std::string& message) {
    std::string command;
    for (const CLI::App* asked : program.get_subcommands())
        command += ' ' + asked->get_name();
    std::cerr << "peximage: " << message << "\nTry 'peximage" << command << " --help'.\n";
    return wrongUsage;
}

int run(CLI::App& program, int argc, char** argv) {
    int status = 0;
    addInfo(program, status);
    addShrink(program, status);
    addConvert(program, status);
    addResize(program, status);
    addComposer(program, status);
    addCrop(program, status);
    addRotate(program, status);
    addSplit(program, status);
    addJoin(program, status);
    addWatermark(program, status);
    addCanvas(program, status);
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return program.exit(error); // --help, --version
        return explain(program, error.what());
    } catch (const UsageError& error) {
        return explain(program, error.message);
    }
    return status;
}

} // namespace

int main(int argc, char** argv) {
    watchInterrupts();
    CLI::App program("Fits, converts and measures images.", "peximage");
    program.set_version_flag("--version", "peximage " PEX_VERSION "\nreads and writes " + knownFormats());
    program.require_subcommand(1);
    program.footer("'peximage COMMAND --help' tells more about a command.");
    return run(program, argc, argv);
}
