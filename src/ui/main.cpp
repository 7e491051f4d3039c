// Tessaline: the desktop application.

#include "core/app/QWPrefs.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QLabel>
#include <QMainWindow>
#include <QTimer>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tessaline"));
    QApplication::setDesktopFileName(tess::kApplicationID);
    QMainWindow window;
    window.setWindowTitle(QStringLiteral("Tessaline"));
    auto *label = new QLabel(QStringLiteral(
        "<h2>Tessaline</h2><p>A password manager that logs you in: it opens a website in your "
        "browser and types your user ID and password for you.</p>"));
    label->setMargin(24);
    label->setWordWrap(true);
    window.setCentralWidget(label);
    window.resize(480, 240);
    window.show();

    QCommandLineParser parser;
    QCommandLineOption screenshot(QStringLiteral("screenshot"),
                                  QStringLiteral("Save a picture of the first window to FILE, then quit."),
                                  QStringLiteral("FILE"));
    parser.addOption(screenshot);
    parser.addHelpOption();
    parser.process(app);
    if (parser.isSet(screenshot)) {
        QTimer::singleShot(1500, &app, [&] {
            window.grab().save(parser.value(screenshot));
            QApplication::quit();
        });
    }
    return app.exec();
}
