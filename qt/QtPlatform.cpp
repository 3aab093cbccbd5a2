#include "qt/QtPlatform.h"

#include "peximage/platform/toolkit/NSScreen.h"
#include "peximage/platform/varda/XMain.h"

#include <QGuiApplication>
#include <QPointer>
#include <QScreen>
#include <vector>

namespace pex {
namespace {

void declareScreens() {
    std::vector<NSScreen> screens;
    for (const QScreen* screen : QGuiApplication::screens())
        screens.push_back({.backingScaleFactor = screen->devicePixelRatio()});
    NSScreen::setScreens(std::move(screens));
}

void watchScreen(const QScreen* screen, QGuiApplication& application) {
    QObject::connect(screen, &QScreen::physicalDotsPerInchChanged, &application, declareScreens);
    QObject::connect(screen, &QScreen::geometryChanged, &application, declareScreens);
}

} // namespace

void connectToQt(QGuiApplication& application) {
    XMain::becomeMain();
    XMain::setWakeUp([running = QPointer(&application)] {
        if (running)
            QMetaObject::invokeMethod(
                running, [] { XMain::drain(); }, Qt::QueuedConnection);
    });
    QObject::connect(&application, &QObject::destroyed, [] { XMain::setWakeUp({}); });
    for (const QScreen* screen : QGuiApplication::screens())
        watchScreen(screen, application);
    QObject::connect(&application, &QGuiApplication::screenAdded, &application,
                     [&application](const QScreen* screen) {
                         watchScreen(screen, application);
                         declareScreens();
                     });
    QObject::connect(&application, &QGuiApplication::screenRemoved, &application, declareScreens);
    declareScreens();
}

} // namespace pex
