// Widgets come and go while other threads set what their views show. Ends with 0 unless it crashes.
#include "peximage/platform/toolkit/NSImage.h"
#include "qt/PexImageWidget.h"
#include "qt/QtPlatform.h"

#include <QApplication>
#include <memory>
#include <thread>

int main(int argc, char** argv) {
    constexpr int widgets = 300;
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    pex::connectToQt(application);
    for (int i = 0; i < widgets; ++i) {
        const auto view = i % 10 == 0 ? nullptr : pex::PexImageView::make({.frame = {}});
        auto widget = std::make_unique<pex::PexImageWidget>(view);
        const std::jthread setting([shown = widget->view()](const std::stop_token& stop) {
            while (!stop.stop_requested())
                shown->setImage(std::shared_ptr<pex::NSImage>());
        });
        widget->resize(20 + i % 3, 20);
        widget->show();
        QApplication::processEvents();
        widget.reset();
    }
}
