// peximage-view FILE|URL…: shows pictures in a window. `peximage view` starts it.
#include "Album.h"
#include "ViewerWindow.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "qt/QtPlatform.h"

#include <QApplication>
#include <QColor>
#include <QCommandLineParser>
#include <QFile>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <unistd.h>

namespace {

constexpr int wrongUsage = 2;

/// Ends the program with a hint when a number is none.
double number(const QCommandLineParser& options, const QString& name) {
    bool isNumber = false;
    const double value = options.value(name).toDouble(&isNumber);
    if (isNumber && value >= 0 && value <= 10'000) return value;
    std::cerr << "peximage: '" << options.value(name).toStdString() << "' is no length in points\n";
    std::exit(wrongUsage);
}

ViewerWindow::Options read(QCommandLineParser& options, const QApplication& application) {
    options.addPositionalArgument("file", "Files and addresses.", "FILE|URL…");
    options.addOption({"radius", "Round corners of so many points.", "points", "0"});
    options.addOption({"border", "A border of so many points.", "points", "0"});
    options.addOption({"border-color", "The border's colour.", "RRGGBB", "808080"});
    options.addOption({{"v", "verbose"}, "Tell on standard error how long things take."});
    options.process(application);
    const QColor color("#" + options.value("border-color"));
    if (!color.isValid()) {
        std::cerr << "peximage: '" << options.value("border-color").toStdString()
                  << "' is no colour; write RRGGBB\n";
        std::exit(wrongUsage);
    }
    return {.radius = number(options, "radius"),
            .border = number(options, "border"),
            .borderColor = pex::NSColor(color.redF(), color.greenF(), color.blueF()),
            .verbose = options.isSet("verbose")};
}

/// Qt ends a program that finds no desktop by aborting it.
void tellOfNoDesktop(int) {
    constexpr char line[] = "peximage: there is no desktop to show images on\n";
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line, sizeof line - 1);
    ::_exit(1);
}

} // namespace

int main(int argc, char** argv) {
    pex::diagnostics::setSink({});
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    std::signal(SIGABRT, tellOfNoDesktop);
    QApplication application(argc, argv);
    std::signal(SIGABRT, SIG_DFL);
    QApplication::setApplicationName("PexImage");
    pex::connectToQt(application);
    QCommandLineParser options;
    const ViewerWindow::Options look = read(options, application);
    std::vector<std::string> items;
    for (const QString& item : options.positionalArguments())
        items.push_back(QFile::encodeName(item).toStdString());
    if (items.empty()) {
        std::cerr << "peximage: nothing to view\n";
        return wrongUsage;
    }
    ViewerWindow window(std::make_shared<Album>(std::move(items)), look);
    window.showItem(0); // loading goes on while the window is made
    window.show();
    return QApplication::exec();
}
