// The guide's window: shows the pictures that it is called with, below each other.
#include <QApplication>
#include <QScrollArea>
#include <QTimer>
#include <QVBoxLayout>
#include <peximage/peximage.h>
#include <qt/PexImageWidget.h>
#include <qt/QtPlatform.h>

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    pex::connectToQt(application);

    auto* const list = new QWidget;
    auto* const column = new QVBoxLayout(list);
    for (const QString& path : application.arguments().mid(1)) {
        const auto view = pex::PexImageView::make({.frame = {0, 0, 400, 300}});
        view->setImage(pex::URL::fromPath(path.toStdString()), {});
        auto* const widget = new pex::PexImageWidget(view);
        widget->setMinimumSize(400, 300);
        column->addWidget(widget);
    }

    QScrollArea window;
    window.setWidget(list);
    window.show();
    if (qEnvironmentVariableIsSet("CLOSE_AT_ONCE")) QTimer::singleShot(0, &window, &QWidget::close);
    return application.exec();
}
