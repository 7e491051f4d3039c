// Takes the README's screenshots: the sample password file's window, the entry editor and the
// change-password panel, on whatever X display it is given (scripts/screenshots.sh uses Xvfb).

#include "core/app/QWPrefs.h"
#include "ui/Controller.h"
#include "ui/MyDocument.h"
#include "ui/Panels.h"
#include "ui/CXAttachedWindow.h"
#include "ui/QWCellTableViewArray.h"
#include "platform/fake/MapKeychain.h"

#include <QApplication>
#include <QDir>
#include <QLineEdit>
#include <QScreen>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>
#include <functional>

using namespace tess;

namespace {

void copyDir(const QString &from, const QString &to)
{
    QDir().mkpath(to);
    for (const QString &f : QDir(from).entryList(QDir::Files))
        QFile::copy(from + '/' + f, to + '/' + f);
}

// The screen around a window and the windows over it.
void grab(QWidget *around, const QString &file, int margin = 24)
{
    QRect r = around->frameGeometry();
    for (QWidget *w : QApplication::topLevelWidgets())
        if (w->isVisible())
            r = r.united(w->frameGeometry());
    r.adjust(-margin, -margin, margin, margin);
    QGuiApplication::primaryScreen()->grabWindow(0, r.x(), r.y(), r.width(), r.height()).save(file);
    std::printf("%s\n", qPrintable(file));
}

void after(int ms, std::function<void()> f)
{
    QTimer::singleShot(ms, qApp, std::move(f));
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tessaline"));
    if (argc < 3) {
        std::fprintf(stderr, "usage: screenshots SAMPLE.qvm OUTPUT-DIRECTORY\n");
        return 1;
    }
    const QString sample = QString::fromLocal8Bit(argv[1]), out = QString::fromLocal8Bit(argv[2]);
    QTemporaryDir home;
    qputenv("HOME", home.path().toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", (home.path() + "/.config").toLocal8Bit());
    const QString path = home.path() + "/Sample.qvm";
    copyDir(sample, path);
    QDir().mkpath(out);

    MapKeychain keychain;
    keychain.items.insert({QStringLiteral("Sample"), QStringLiteral("Tessaline")}, "sample");
    Controller controller(&keychain);
    controller.awakeFromNib();
    gPrefs->setBool(true, Pref::HoverURL);
    controller.openFile(path);

    after(1500, [&] {
        MyDocument *doc = controller.documentForPath(path);
        if (!doc || !doc->isOpen()) {
            std::fprintf(stderr, "screenshots: the sample did not open\n");
            QApplication::exit(1);
            return;
        }
        doc->move(120, 80);
        doc->passwordTable->selectRowAlone(0);
        after(400, [&, doc] {
            grab(doc, out + "/main-window.png");
            doc->passwordTable->selectRowAlone(0);
            doc->editEntry(); // opens the editor on the next pass, modally
            after(900, [&, doc] {
                grab(doc, out + "/entry-editor.png");
                doc->callout->done(0);
                after(300, [&, doc] {
                    // The change-password panel, as it shows after the current password.
                    after(600, [&, doc] {
                        doc->framisChangePanel->newFramis->setText("new password");
                        doc->framisChangePanel->newFramis2->setText("new password");
                        after(300, [&, doc] {
                            grab(doc, out + "/change-password.png");
                            doc->framisChangePanel->done(0);
                            after(600, [&] { QApplication::exit(0); });
                        });
                    });
                    after(100, [doc] {
                        // The current password first.
                        doc->framisPanel->framisText->setText("sample");
                        doc->framisPanel->done(1);
                    });
                    doc->changePassword();
                });
            });
        });
    });
    // Anything left open ("Password not changed.") is dismissed on the way out.
    QObject::connect(&app, &QCoreApplication::aboutToQuit, [] {});
    after(1500 + 400 + 900 + 300 + 100 + 600 + 300 + 600 + 400, [] {
        if (QWidget *w = QApplication::activeModalWidget())
            static_cast<QDialog *>(w)->done(1);
    });
    return app.exec();
}
