// Tessaline: the desktop application.

#include "core/app/PlatformChoice.h"
#include "core/app/QWPrefs.h"
#include "core/shortcuts/KeyNames.h"
#include "platform/linux/SecretServiceKeychain.h"
#include "platform/x11/XkbKeyboardLayout.h"
#include "ui/Controller.h"
#include "ui/MyDocument.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QScreen>
#include <QTimer>

#include <memory>
#include <vector>

namespace {

// The arguments for QApplication: those given, plus "-platform xcb" where the session is
// Wayland with XWayland and the user chose no platform. (An argument rather than the
// environment variable, which browsers and other programs we start would inherit.)
std::vector<char *> argumentsWithPlatform(int argc, char **argv)
{
    static char platformOption[] = "-platform";
    static QByteArray platform;
    std::vector<char *> args(argv, argv + argc);
    QStringList given;
    for (int i = 0; i < argc; ++i)
        given.append(QString::fromLocal8Bit(argv[i]));
    platform = tess::preferredPlatformPlugin(QProcessEnvironment::systemEnvironment(), given);
    if (!platform.isEmpty()) {
        args.push_back(platformOption);
        args.push_back(platform.data());
    }
    args.push_back(nullptr);
    return args;
}

} // namespace

int main(int argc, char **argv)
{
    std::vector<char *> args = argumentsWithPlatform(argc, argv);
    int count = int(args.size()) - 1;
    QApplication app(count, args.data());
    QApplication::setApplicationName(QStringLiteral("Tessaline"));
    QApplication::setApplicationVersion(QStringLiteral(TESSALINE_VERSION));
    QApplication::setDesktopFileName(tess::kApplicationID);

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("A password manager that logs you in."));
    parser.addHelpOption();
    parser.addVersionOption();
    QCommandLineOption screenshot(QStringLiteral("screenshot"),
                                  QStringLiteral("Save a picture of the screen to FILE once the first window is up, then quit."),
                                  QStringLiteral("FILE"));
    parser.addOption(screenshot);
    parser.addPositionalArgument(QStringLiteral("files"), QStringLiteral("Password files (.qvm folders) to open."), QStringLiteral("[FILE.qvm...]"));
    parser.process(app);

    // Key names follow the X server's layout, and change with it.
    std::unique_ptr<tess::XkbKeyboardLayout> layout;
    if (auto *x11 = app.nativeInterface<QNativeInterface::QX11Application>()) {
        layout = std::make_unique<tess::XkbKeyboardLayout>(x11->connection());
        if (layout->isValid()) {
            app.installNativeEventFilter(layout.get());
            tess::SRKeyCodeTransformer::setKeyboardLayout(layout.get());
        }
    }

    tess::SecretServiceKeychain keychain;
    tess::Controller controller(&keychain);
    controller.awakeFromNib();

    if (parser.isSet(screenshot)) {
        const QString file = parser.value(screenshot);
        QTimer::singleShot(2000, &app, [file] {
            QGuiApplication::primaryScreen()->grabWindow(0).save(file);
            QCoreApplication::exit(0);
        });
    }

    QTimer::singleShot(0, &controller, [&] {
        const QStringList files = parser.positionalArguments();
        if (files.isEmpty())
            controller.applicationOpenUntitledFile();
        for (const QString &f : files)
            controller.openFile(f);
    });
    return app.exec();
}
