// Takes the README's screenshots: the sample password file's window, the entry editor, the
// change-password panel, the password generator's callout and the import dialog, on whatever X display it is given (scripts/screenshots.sh uses Xvfb).

#include "core/app/QWPrefs.h"
#include "ui/Controller.h"
#include "ui/EntryEditor.h"
#include "ui/ImportDialog.h"
#include "ui/MyDocument.h"
#include "ui/Panels.h"
#include "ui/CXAttachedWindow.h"
#include "ui/QWCellTableViewArray.h"
#include "platform/fake/MapKeychain.h"

#include <QApplication>
#include <QButtonGroup>
#include <QDir>
#include <QFileDialog>
#include <QPushButton>
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

// The generator's callout over the entry editor, then the import dialog over a CSV file.
void generatorAndImport(MyDocument *doc, const QString &home, const QString &out)
{
    // The message left by the change-password panel goes first.
    if (auto *message = qobject_cast<QDialog *>(QApplication::activeModalWidget())) {
        message->done(1);
        after(300, [doc, home, out] { generatorAndImport(doc, home, out); });
        return;
    }
    doc->passwordTable->selectRowAlone(0);
    doc->editEntry();
    after(900, [doc] { doc->pwDataCalloutView->generateButton->click(); });
    after(1800, [doc, home, out] {
        grab(doc, out + "/generator.png");
        if (auto *callout = qobject_cast<QDialog *>(QApplication::activeModalWidget()))
            callout->done(0);
        after(300, [doc, home, out] {
            doc->callout->done(0);
            // The dialog as it shows over a browser's CSV file, comma chosen and four columns ticked.
            auto *dialog = new ImportDialog(doc);
            dialog->beginChoosing(QStringLiteral("Title,URL,Username,Password,Notes\n"
                                                 "Bookshop,https://books.example,reader42,c0ver2cover,\n"
                                                 "Library,https://library.example,ann.smith,Sh3lf-Life,card in wallet\n"
                                                 "\"Smith, J. (work)\",https://mail.example,jsmith,Mail!2024,\n"
                                                 "Garage door,,,4711,code for the keypad\n"));
            dialog->importPasswordDataRadioButtons->button(1)->click();
            for (int p = 1; p <= 4; ++p)
                dialog->setTicked(p, true);
            dialog->move(doc->x() + 20, doc->y() + 60);
            dialog->show();
            after(800, [doc, dialog, out] {
                grab(dialog, out + "/import-dialog.png", 24);
                dialog->done(0);
                after(600, [] { QApplication::exit(0); });
            });
        });
    });
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
                            after(600, [&, doc] { generatorAndImport(doc, home.path(), out); });
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
    return app.exec();
}
