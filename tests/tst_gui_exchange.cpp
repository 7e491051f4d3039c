// Data in and out through the windows, on the real X server: the export's save panel and file,
// printing to PDF, the import dialog over real files, and the password generator's callout.

#include "core/entries/EntryList.h"
#include "core/exchange/Export.h"
#include "core/storage/PasswordFile.h"
#include "support/FileSupport.h"
#include "support/GuiSupport.h"
#include "support/TestSupport.h"
#include "core/app/QWPrefs.h"
#include "core/generator/GeneratePassword.h"
#include "ui/CXAttachedWindow.h"
#include "ui/Controller.h"
#include "ui/EntryEditor.h"
#include "ui/GeneratorCallout.h"
#include "ui/Globals.h"
#include "ui/ImportDialog.h"
#include "ui/MyDocument.h"
#include "ui/Panels.h"
#include "ui/Printing.h"
#include "ui/QWCellTableViewArray.h"

#include <QAbstractItemModel>
#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QElapsedTimer>
#include <QFile>
#include <QFileDialog>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLabel>
#include <QMenu>
#include <QPageSetupDialog>
#include <QPrintDialog>
#include <QPrinter>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QTableView>
#include <QTest>

#include <QScopeGuard>

#include <functional>
#include <sys/mount.h>

using namespace tess;
using namespace tess::testsupport;

namespace {

EntryList sampleList()
{
    return EntryList{Entry{{EntryKey::Path, "Bank"}, {EntryKey::URL, "https://bank.example"}, {EntryKey::UserID, "me"},
                           {EntryKey::Password, "pw"}, {EntryKey::Notes, ""}, {EntryKey::Button, ""}},
                     Entry{{EntryKey::Path, "Mail"}, {EntryKey::Notes, "line one\nsays \"hi\""}, {EntryKey::Button, ""}},
                     Entry{{EntryKey::Path, "Shop"}, {EntryKey::UserID, "buyer"}, {EntryKey::UserID2, "alt"},
                           {EntryKey::Password, "s3cret"}, {EntryKey::Button, ""}}};
}

Entry entryNamed(const EntryList &list, const QString &name)
{
    return list.value(entryWithName(list, name)).toMap();
}

// The File menu's item by its title as read, without the mnemonic's mark.
QAction *fileMenuItem(MyDocument *doc, const QString &title)
{
    for (QAction *a : doc->fileMenu->actions())
        if (QString(a->text()).remove(u'&') == title)
            return a;
    return nullptr;
}

void selectRows(MyDocument *doc, const QList<int> &rows)
{
    doc->passwordTable->clearSelection();
    QItemSelectionModel *s = doc->passwordTable->selectionModel();
    for (int r : rows)
        s->select(doc->passwordTable->model()->index(r, 1), QItemSelectionModel::Select | QItemSelectionModel::Rows);
}

// The files of a package, byte for byte, to see that nothing was written.
QMap<QString, QByteArray> packageBytes(const QString &path)
{
    QMap<QString, QByteArray> out;
    for (const QString &f : QDir(path).entryList(QDir::Files))
        out.insert(f, readBytes(path + QStringLiteral("/") + f));
    return out;
}

// How a test opens the generator's callout from the editor.
enum class GeneratorOpen { ByClick, ByKeys };

// The longest a test lets modal windows stay up; then it fails, naming them.
constexpr int kModalLimitMs = 60000;

// An answer for a file panel: checks its title, types the file's name and presses its button.
ModalResponder::Answer typeFileAnswer(const QString &title, const QString &path)
{
    return [title, path](QWidget *w) {
        QVERIFY2(qobject_cast<QFileDialog *>(w), qPrintable(QStringLiteral("expected the panel \"%1\"").arg(title)));
        QCOMPARE(w->windowTitle(), title);
        typeInFilePanel(w, path);
    };
}

// An answer that cancels a panel of the given class.
template <class Panel>
ModalResponder::Answer cancelAnswer()
{
    return [](QWidget *w) {
        QVERIFY2(qobject_cast<Panel *>(w), w->metaObject()->className());
        static_cast<QDialog *>(w)->reject();
    };
}

QString pdfText(const QString &pdf, const QStringList &options = {})
{
    QProcess p;
    p.start(QStringLiteral("pdftotext"), options + QStringList{pdf, QStringLiteral("-")});
    if (!p.waitForFinished(20000) || p.exitCode() != 0)
        return QStringLiteral("pdftotext failed: ") + QString::fromUtf8(p.readAllStandardError());
    return QString::fromUtf8(p.readAllStandardOutput());
}

} // namespace

class TestGuiExchange : public DocumentSuite {
    Q_OBJECT

    MyDocument *openSample(const EntryList &list = sampleList())
    {
        const QString path = pkg(QStringLiteral("Family Accounts.qvm"));
        if (!makePackage(path, QStringLiteral("pw"), list))
            return nullptr;
        return open(path);
    }

    QString writeFile(const QString &name, const QByteArray &bytes)
    {
        const QString path = m_home->path() + QStringLiteral("/") + name;
        writeBytes(path, bytes);
        return path;
    }

    // Chooses the File menu's item and answers the modal windows it opens, in order. No wait
    // is without end: windows still up after the limit fail the test and are cancelled.
    void answering(MyDocument *doc, const QString &item, const QList<ModalResponder::Answer> &answers)
    {
        QAction *action = fileMenuItem(doc, item);
        QVERIFY2(action, qPrintable(item));
        ModalResponder r;
        r.setTimeLimit(kModalLimitMs);
        for (const ModalResponder::Answer &a : answers)
            r.then(a);
        action->trigger();
        QTRY_VERIFY2_WITH_TIMEOUT(r.done(), "modal windows expected but not shown", 10000);
    }

    // File > Import… with `path` typed into the open panel; `choose` works the dialog and ends it.
    void runImport(MyDocument *doc, const QString &path, const std::function<void(ImportDialog *)> &choose)
    {
        answering(doc, QStringLiteral("Import…"),
                  {[&](QWidget *w) {
                       auto *panel = qobject_cast<QFileDialog *>(w);
                       QVERIFY2(panel, "expected the open panel");
                       QCOMPARE(panel->fileMode(), QFileDialog::ExistingFile);
                       typeFileAnswer(QStringLiteral("Import Password Data"), path)(w);
                   },
                   [&](QWidget *w) {
                       auto *dialog = qobject_cast<ImportDialog *>(w);
                       QVERIFY2(dialog, "expected the import dialog");
                       choose(dialog);
                   }});
        QTRY_VERIFY_WITH_TIMEOUT(!doc->saveMsg->isVisible(), 10000); // the save, on the next pass
    }

private Q_SLOTS:
    // ---- Export ----

    void exportWritesTheSelectedRowsInListOrder()
    {
        MyDocument *doc = openSample();
        QVERIFY(doc);
        QAction *item = fileMenuItem(doc, QStringLiteral("Export…"));
        QVERIFY(item);
        doc->passwordTable->clearSelection();
        doc->validateMenuItems();
        QVERIFY(!item->isEnabled());
        selectRows(doc, {2, 1});
        doc->validateMenuItems();
        QVERIFY(item->isEnabled());

        const qsizetype logged = gDebugInfo.size();
        answering(doc, QStringLiteral("Export…"), {[&](QWidget *w) {
                      auto *panel = qobject_cast<QFileDialog *>(w);
                      QVERIFY2(panel, "expected the save panel");
                      QCOMPARE(panel->labelText(QFileDialog::Accept), QStringLiteral("Export Password Data"));
                      QCOMPARE(panel->acceptMode(), QFileDialog::AcceptSave);
                      QCOMPARE(panel->directory().absolutePath(), QDir(m_home->path()).absolutePath());
                      auto *message = panel->findChild<QLabel *>(QStringLiteral("exportMessage"));
                      QVERIFY(message && message->isVisible());
                      QCOMPARE(message->text(), QStringLiteral("Choose a name, location to export selected password data as a .csv file."));
                      // The .csv is added.
                      typeFileAnswer(QStringLiteral("Export Password Data"), m_home->path() + QStringLiteral("/backup"))(w);
                  }});

        const QString out = m_home->path() + QStringLiteral("/backup.csv");
        const QByteArray expected = "Title,URL,Username,Password,Notes\n"
                                    "\"Mail\",\"\",\"\",\"\",\"line one\nsays \"hi\"\",\"\"\n"
                                    "\"Shop\",\"\",\"buyer\",\"s3cret\",\"\",\"alt\"\n";
        QCOMPARE(readBytes(out), expected);
        QCOMPARE(QFile::permissions(out), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadUser | QFileDevice::WriteUser);
        QCOMPARE(gDebugInfo.mid(logged), QStringLiteral("Number exported=2; Export size= %1; export error = (null)\n").arg(expected.size()));
    }

    void exportCancelledWritesNothing()
    {
        MyDocument *doc = openSample();
        QVERIFY(doc);
        selectRows(doc, {0});
        const qsizetype logged = gDebugInfo.size();
        const QStringList before = QDir(m_home->path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
        answering(doc, QStringLiteral("Export…"), {cancelAnswer<QFileDialog>()});
        QCOMPARE(gDebugInfo.size(), logged);
        QCOMPARE(QDir(m_home->path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), before);
    }

    void aFailedExportIsOnlyLogged()
    {
        MyDocument *doc = openSample();
        QVERIFY(doc);
        selectRows(doc, {0});
        const qsizetype logged = gDebugInfo.size();
        answering(doc, QStringLiteral("Export…"),
                  {typeFileAnswer(QStringLiteral("Export Password Data"), m_home->path() + QStringLiteral("/no such folder/out.csv"))});
        QVERIFY(!QApplication::activeModalWidget());
        const QString line = gDebugInfo.mid(logged);
        QVERIFY2(line.startsWith(QStringLiteral("Number exported=1;")) && !line.endsWith(QStringLiteral("(null)\n")), qPrintable(line));
    }

    // ---- Printing ----

    void printToPdfLaysOutEachEntry()
    {
        MyDocument *doc = openSample();
        QVERIFY(doc);
        const QString pdf = m_home->path() + QStringLiteral("/all.pdf");
        QPrinter printer(QPrinter::HighResolution);
        printer.setOutputFormat(QPrinter::PdfFormat);
        printer.setOutputFileName(pdf);
        printEntries(&printer, doc->file().passwordArray(), {}, doc->filePath());
        // No selection: every entry, in list order; a user ID line ends in a space when there
        // is no second user ID.
        QCOMPARE(pdfText(pdf),
                 QStringLiteral("Bank\nWebsite: https://bank.example\nUserID: me\nPassword: pw\n\n"
                                "Mail\nNotes: line one\nsays \"hi\"\n\n"
                                "Shop\nUserID: buyer alt\nPassword: s3cret\n\n\f"));
        QCOMPARE(printer.docName(), QStringLiteral("Family Accounts"));
        // The passwords are in it: readable by its owner only, even written over a file that was not.
        QCOMPARE(QFile::permissions(pdf), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadUser | QFileDevice::WriteUser);
        QVERIFY(QFile::setPermissions(pdf, QFile::permissions(pdf) | QFileDevice::ReadOther));

        // The margins are 72 points and the name is set larger than the labels and values.
        const QString boxes = pdfText(pdf, {QStringLiteral("-bbox")});
        QRegularExpression word(QStringLiteral("<word xMin=\"([\\d.]+)\" yMin=\"([\\d.]+)\" xMax=\"[\\d.]+\" yMax=\"([\\d.]+)\">([^<]*)</word>"));
        QMap<QString, QList<double>> box;
        for (auto m = word.globalMatch(boxes); m.hasNext();) {
            const auto w = m.next();
            if (!box.contains(w.captured(4)))
                box.insert(w.captured(4), {w.captured(1).toDouble(), w.captured(2).toDouble(), w.captured(3).toDouble()});
        }
        QVERIFY2(box.contains(QStringLiteral("Bank")), qPrintable(boxes));
        QVERIFY(qAbs(box[QStringLiteral("Bank")][0] - 72) < 3);
        QVERIFY(qAbs(box[QStringLiteral("Bank")][1] - 72) < 6);
        const double nameHeight = box[QStringLiteral("Bank")][2] - box[QStringLiteral("Bank")][1];
        const double labelHeight = box[QStringLiteral("Website:")][2] - box[QStringLiteral("Website:")][1];
        const double valueHeight = box[QStringLiteral("me")][2] - box[QStringLiteral("me")][1];
        QVERIFY2(nameHeight > labelHeight * 1.2, qPrintable(QString::number(nameHeight / labelHeight)));
        QVERIFY(qAbs(labelHeight - valueHeight) < 0.5);

        // A selection prints only those, in list order; a name alone is followed by a blank line.
        printEntries(&printer, doc->file().passwordArray(), {2, 1}, doc->filePath());
        QCOMPARE(pdfText(pdf), QStringLiteral("Mail\nNotes: line one\nsays \"hi\"\n\nShop\nUserID: buyer alt\nPassword: s3cret\n\n\f"));
        QVERIFY(!(QFile::permissions(pdf) & QFileDevice::ReadOther));
        const EntryList onlyName{Entry{{EntryKey::Path, "Alone"}}};
        printEntries(&printer, onlyName, {}, doc->filePath());
        QCOMPARE(pdfText(pdf), QStringLiteral("Alone\n\n\f"));
    }

    void printThroughTheDialogAndPageSetup()
    {
        MyDocument *doc = openSample();
        QVERIFY(doc);
        QAction *print = fileMenuItem(doc, QStringLiteral("Print…"));
        QVERIFY(print);
        QCOMPARE(print->shortcut(), QKeySequence(QKeySequence::Print));
        doc->validateMenuItems();
        QVERIFY(print->isEnabled());
        // No printer is installed here: the shared settings print to a PDF file, as on a
        // desktop without one.
        QPrinter *printer = sharedPrinter();
        const QString pdf = m_home->path() + QStringLiteral("/dialog.pdf");
        printer->setOutputFormat(QPrinter::PdfFormat);
        printer->setOutputFileName(pdf);
        const QPageLayout before = printer->pageLayout();
        const auto restore = qScopeGuard([printer, before] { printer->setPageLayout(before); });

        // Page Setup opens on the margins the printout uses; letter paper, landscape, chosen
        // there as a user would, hold for the print.
        answering(doc, QStringLiteral("Page Setup…"), {[](QWidget *w) {
                      QVERIFY2(qobject_cast<QPageSetupDialog *>(w), w->metaObject()->className());
                      auto *paper = w->findChild<QComboBox *>(QStringLiteral("pageSizeCombo"));
                      auto *landscape = w->findChild<QRadioButton *>(QStringLiteral("landscape"));
                      QVERIFY2(paper && landscape, "the page set-up's paper and orientation");
                      const int letter = paper->findText(QStringLiteral("Letter"), Qt::MatchStartsWith);
                      QVERIFY(letter >= 0);
                      paper->setCurrentIndex(letter);
                      landscape->click();
                      static_cast<QDialog *>(w)->accept();
                  }});
        QCOMPARE(printer->pageLayout().margins(QPageLayout::Point), QMarginsF(72, 72, 72, 72));
        QCOMPARE(printer->pageLayout().orientation(), QPageLayout::Landscape);
        QCOMPARE(printer->pageLayout().pageSize().id(), QPageSize::Letter);

        // Cancelled: nothing printed.
        answering(doc, QStringLiteral("Print…"), {cancelAnswer<QPrintDialog>()});
        QVERIFY(!QFile::exists(pdf));

        // Printed from the dialog to a PDF file, with only the selected entry, on the paper set up.
        selectRows(doc, {0});
        answering(doc, QStringLiteral("Print…"), {[](QWidget *w) {
                      QVERIFY2(qobject_cast<QPrintDialog *>(w), w->metaObject()->className());
                      static_cast<QDialog *>(w)->accept();
                  }});
        QTRY_VERIFY(QFile::exists(pdf));
        QCOMPARE(pdfText(pdf), QStringLiteral("Bank\nWebsite: https://bank.example\nUserID: me\nPassword: pw\n\n\f"));
        QCOMPARE(printer->docName(), QStringLiteral("Family Accounts"));
        QProcess info;
        info.start(QStringLiteral("pdfinfo"), {pdf});
        QVERIFY(info.waitForFinished(20000));
        const QString pages = QString::fromUtf8(info.readAllStandardOutput());
        QVERIFY2(pages.contains(QRegularExpression(QStringLiteral("Page size:\\s+792 x 612 pts"))), qPrintable(pages));
    }

    void printNeedsEntries()
    {
        MyDocument *doc = openSample(EntryList{});
        QVERIFY(doc);
        doc->validateMenuItems();
        QVERIFY(!fileMenuItem(doc, QStringLiteral("Print…"))->isEnabled());
        QVERIFY(fileMenuItem(doc, QStringLiteral("Page Setup…"))->isEnabled());
    }


    // ---- The generator's callout ----

    // Opens the editor on Bank and the generator from it, by a click on Generate… or by its
    // key, Alt+G, pressed on the X server; `generate` answers the generator's callout, `after`
    // sees the editor afterwards and ends it.
    void inGenerator(MyDocument *doc, const std::function<void(EntryEditor *)> &before, const std::function<void(GeneratorCallout *, QWidget *)> &generate,
                     const std::function<void(EntryEditor *)> &after, GeneratorOpen open = GeneratorOpen::ByClick)
    {
        selectByName(doc, QStringLiteral("Bank"));
        ModalResponder r;
        r.setTimeLimit(kModalLimitMs);
        bool checked = false;
        r.then([&](QWidget *callout) {
            EntryEditor *e = doc->pwDataCalloutView;
            before(e);
            // Pressed once this answer is over: the generator's callout runs its own loop.
            QVERIFY2(e->generateButton->isVisible() && e->generateButton->isEnabled(), "Generate… cannot be pressed");
            if (open == GeneratorOpen::ByClick) {
                QTimer::singleShot(0, e->generateButton, [e] { e->generateButton->click(); });
                return;
            }
            QTimer::singleShot(0, callout, [callout] {
                QVERIFY(activate(callout));
                pressKeys({QStringLiteral("alt+g")});
            });
        });
        r.then([&](QWidget *w) {
            auto *view = w->findChild<GeneratorCallout *>();
            QVERIFY2(view, "expected the generator's callout");
            generate(view, w);
            // The editor, once the generator's callout is gone.
            QTimer::singleShot(200, doc, [&, doc] {
                after(doc->pwDataCalloutView);
                checked = true;
                if (doc->callout && doc->callout->isVisible()) // whatever failed above, the editor closes
                    doc->callout->done(0);
            });
        });
        doc->editEntry();
        QTRY_VERIFY2_WITH_TIMEOUT(r.done(), "the generator's callout did not show", 10000);
        QTRY_VERIFY_WITH_TIMEOUT(checked, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(!doc->callout, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(!doc->saveMsg->isVisible(), 10000);
    }

    void generatorReplacesThePasswordAndKeepsTheOldOne()
    {
        MyDocument *doc = openSample();
        QVERIFY(doc);
        gPrefs->setInteger(12, Pref::GeneratedPasswordLength);
        QString generated;
        const QDateTime started = QDateTime::currentDateTime();
        inGenerator(
            doc,
            [](EntryEditor *e) {
                e->notesText->setPlainText(QStringLiteral("x"));
                e->showBullets();
            },
            [&](GeneratorCallout *view, QWidget *callout) {
                // Attached to the password field, as it shows, also once the window manager
                // has placed the windows.
                QLineEdit *field = doc->pwDataCalloutView->securePassword;
                // Measured as the windows are placed, from the window's geometry: mapToGlobal
                // asks the platform window, whose idea of a fresh callout's place can lag.
                const auto fieldY = [field] { return field->window()->geometry().top() + field->mapTo(field->window(), QPoint(0, field->height() / 2)).y(); };
                QTRY_VERIFY2_WITH_TIMEOUT(qAbs(callout->geometry().top() - fieldY()) < 40 || qAbs(callout->geometry().bottom() - fieldY()) < 40,
                                          qPrintable(QStringLiteral("callout %1 to %2, field at %3")
                                                         .arg(callout->geometry().top())
                                                         .arg(callout->geometry().bottom())
                                                         .arg(fieldY())),
                                          5000);
                // The defaults: the preference's length, with special characters.
                QCOMPARE(view->passwordLengthPopup->currentData().toInt(), 12);
                QVERIFY(view->includeSpecialsSwitch->isChecked());
                QList<int> tags;
                for (int i = 0; i < view->passwordLengthPopup->count(); ++i)
                    tags.append(view->passwordLengthPopup->itemData(i).toInt());
                QCOMPARE(tags, QList<int>(std::begin(kOfferedPasswordLengths), std::end(kOfferedPasswordLengths)));
                view->passwordLengthPopup->setCurrentIndex(view->indexForLength(16));
                QTest::keyClick(view->includeSpecialsSwitch, Qt::Key_Space);
                QVERIFY(!view->includeSpecialsSwitch->isChecked());
                view->okButton->click();
            },
            [&](EntryEditor *e) {
                // The new password shows in plain text; the old one is in the notes.
                QVERIFY(e->passwordText->isVisible());
                generated = e->passwordText->text();
                QCOMPARE(generated.size(), 16);
                QVERIFY(!generated.contains(QRegularExpression(QStringLiteral("[!\\-#$%+&()*\\[\\]IOU]"))));
                const QString notes = e->notesText->toPlainText();
                const QRegularExpression stamp(QStringLiteral("^x\\n(\\d\\d/\\d\\d/\\d{4} \\d{1,2}:\\d\\d [AP]M): Password was: pw\\n$"));
                const auto m = stamp.match(notes);
                QVERIFY2(m.hasMatch(), qPrintable(notes));
                const QDateTime when = QLocale::c().toDateTime(m.captured(1), QStringLiteral("dd/MM/yyyy h:mm AP"));
                QVERIFY2(qAbs(when.secsTo(started)) < 120, qPrintable(m.captured(1)));
                QVERIFY(e->okButton->isEnabled());
                e->okButton->click();
            });
        const Entry bank = entryNamed(listOnDisk(doc->filePath()), QStringLiteral("Bank"));
        QCOMPARE(bank.value(EntryKey::Password).toString(), generated);
        QCOMPARE(bank.value(EntryKey::PasswordLength).toInt(), 16);
        QCOMPARE(bank.value(EntryKey::IncludeSpecials).toBool(), false);
        QVERIFY(bank.value(EntryKey::Notes).toString().endsWith(QStringLiteral(": Password was: pw\n")));
    }

    void generatorByTheKeyboard()
    {
        // Alt+G from the editor, the next length by the arrow key, special characters off by
        // Tab and Space, and Return for OK (the default button, not Cancel).
        MyDocument *doc = openSample();
        QVERIFY(doc);
        gPrefs->setInteger(12, Pref::GeneratedPasswordLength);
        inGenerator(
            doc, [](EntryEditor *) {},
            [](GeneratorCallout *view, QWidget *callout) {
                QVERIFY(activate(callout));
                QCOMPARE(QApplication::focusWidget(), view->passwordLengthPopup);
                pressKeys({QStringLiteral("Down"), QStringLiteral("Tab"), QStringLiteral("space")});
                QCOMPARE(view->passwordLengthPopup->currentData().toInt(), 14);
                QVERIFY(!view->includeSpecialsSwitch->isChecked());
                QVERIFY(view->okButton->isDefault());
                pressKeys({QStringLiteral("Return")});
            },
            [](EntryEditor *e) {
                QVERIFY(e->passwordText->isVisible());
                QCOMPARE(e->passwordText->text().size(), 14);
                QCOMPARE(e->passwordText->cursorPosition(), 0); // shown from its start
                QVERIFY(!e->passwordText->text().contains(QRegularExpression(QStringLiteral("[!\\-#$%+&()*\\[\\]]"))));
                QVERIFY(e->notesText->toPlainText().endsWith(QStringLiteral(": Password was: pw\n")));
                e->cancelButton->click();
            },
            GeneratorOpen::ByKeys);
    }

    void generatorCancelledLeavesPasswordAndNotes()
    {
        MyDocument *doc = openSample();
        QVERIFY(doc);
        // Out of the generator's bounds: brought within them.
        gPrefs->setInteger(99, Pref::GeneratedPasswordLength);
        inGenerator(
            doc, [](EntryEditor *) {},
            [](GeneratorCallout *view, QWidget *) {
                QCOMPARE(view->passwordLengthPopup->currentData().toInt(), int(kMaxPasswordLength));
                view->passwordLengthPopup->setCurrentIndex(0);
                view->cancelButton->click();
            },
            [](EntryEditor *e) {
                QCOMPARE(e->passwordText->text(), QStringLiteral("pw"));
                QCOMPARE(e->notesText->toPlainText(), QString());
                // The two defaults stay in the entry.
                QCOMPARE(e->editedEntry().value(EntryKey::PasswordLength).toInt(), 99);
                QCOMPARE(e->editedEntry().value(EntryKey::IncludeSpecials), QVariant(true));
                e->cancelButton->click();
            });
        QCOMPARE(doc->file().passwordArray(), sampleList());
    }

    void generatingOverAnEmptyPasswordAddsNoNote()
    {
        EntryList list = sampleList();
        Entry bank = list[0].toMap();
        bank.insert(EntryKey::Password, QString());
        bank.insert(EntryKey::Notes, QStringLiteral("kept\n"));
        bank.insert(EntryKey::PasswordLength, 6);
        list[0] = bank;
        MyDocument *doc = openSample(list);
        QVERIFY(doc);
        inGenerator(
            doc, [](EntryEditor *) {},
            [](GeneratorCallout *view, QWidget *) {
                QCOMPARE(view->passwordLengthPopup->currentData().toInt(), 6);
                view->okButton->click();
            },
            [](EntryEditor *e) {
                QCOMPARE(e->passwordText->text().size(), 6);
                QVERIFY(e->passwordText->text().contains(QRegularExpression(QStringLiteral("[!\\-#$%+&()*\\[\\]]"))));
                QCOMPARE(e->notesText->toPlainText(), QStringLiteral("kept\n"));
                e->cancelButton->click();
            });
    }

    // ---- Import ----

    void importCommaFileWithTheExportHeader()
    {
        MyDocument *doc = openSample();
        QVERIFY(doc);
        const QString file = writeFile(QStringLiteral("in.csv"),
                                       "Title,URL,Username,Password,Notes\r\n"
                                       "\"Smith, J.\",x\r\n"
                                       ".hidden/site,h1\r\n"
                                       ".hidden/site,h2\r\n"
                                       "Bank,b\r\n");
        runImport(doc, file, [](ImportDialog *d) {
            // The choosing state, tab mode: the header line is skipped and quotes are plain.
            QVERIFY(d->importPasswordDataNote->isVisible());
            QVERIFY(!d->importPasswordDataErrorMsg->isVisible());
            QVERIFY(d->importPasswordDataCancelButton->isVisible());
            QCOMPARE(d->importPasswordDataOKButton->text(), QStringLiteral("Import"));
            QCOMPARE(d->importPasswordDataRadioButtons->checkedId(), 0);
            QVERIFY(!d->skipFirstLineSwitch->isChecked());
            QVERIFY(!d->standardQuotesSwitch->isChecked());
            QCOMPARE(d->columns().ticked, QList<bool>({true, false, false, false, false, false, false, false, false}));
            QCOMPARE(d->records().size(), 4); // the empty lines of CR LF skipped
            QCOMPARE(d->records().first(), QStringList{QStringLiteral("\"Smith, J.\",x")});

            // Comma, as a click on its button: the file is read again.
            QTest::mouseClick(d->importPasswordDataRadioButtons->button(1), Qt::LeftButton);
            QCOMPARE(d->records().first(), QStringList({QStringLiteral("Smith, J."), QStringLiteral("x")}));
            QCOMPARE(d->importPasswordDataTable->model()->index(0, 1).data().toString(), QStringLiteral("x"));
            QCOMPARE(d->importPasswordDataTable->model()->index(0, 5).data().toString(), QString());
            QVERIFY(d->setTicked(1, true)); // URL
            QVERIFY(!d->setTicked(0, false)); // the name's tick is fixed
            QTest::mouseClick(d->importPasswordDataOKButton, Qt::LeftButton);
        });
        const EntryList list = doc->file().passwordArray();
        QCOMPARE(entryNamed(list, QStringLiteral("Smith, J.")).value(EntryKey::URL).toString(), QStringLiteral("x"));
        QCOMPARE(entryNamed(list, QStringLiteral("hidden-site")).value(EntryKey::URL).toString(), QStringLiteral("h1"));
        QCOMPARE(entryNamed(list, QStringLiteral("hidden-site2")).value(EntryKey::URL).toString(), QStringLiteral("h2"));
        // Nothing is written over: the existing Bank keeps its URL, the import gets a new name.
        QCOMPARE(entryNamed(list, QStringLiteral("Bank")).value(EntryKey::URL).toString(), QStringLiteral("https://bank.example"));
        QCOMPARE(entryNamed(list, QStringLiteral("Bank2")).value(EntryKey::URL).toString(), QStringLiteral("b"));
        QCOMPARE(list.size(), 3 + 4);
        QVERIFY(!entryNamed(list, QStringLiteral("Title")).contains(EntryKey::Path));
        // Saved, and the window shows them.
        QCOMPARE(testsupport::entryNames(listOnDisk(doc->filePath())), testsupport::entryNames(list));
        QCOMPARE(doc->passwordTable->model()->rowCount(), 7);
    }

    void leftOversAreShownInTheResultState()
    {
        MyDocument *doc = openSample();
        QVERIFY(doc);
        const QString file = writeFile(QStringLiteral("left.csv"),
                                       "full,u,me\n"
                                       "short,u2\n"
                                       ",\n"
                                       ",nameless,x\n");
        int resultRows = -1;
        runImport(
            doc, file,
            [&](ImportDialog *d) {
                d->importPasswordDataRadioButtons->button(1)->click();
                QVERIFY(d->setTicked(1, true));
                QVERIFY(d->setTicked(2, true));
                d->importPasswordDataOKButton->click();
                // The records left over, in the same window.
                QVERIFY(d->isVisible());
                QVERIFY(!d->importPasswordDataNote->isVisible());
                QVERIFY(d->importPasswordDataErrorMsg->isVisible());
                QVERIFY(!d->importPasswordDataCancelButton->isVisible());
                QCOMPARE(d->importPasswordDataOKButton->text(), QStringLiteral("OK"));
                resultRows = d->importPasswordDataTable->model()->rowCount();
                QCOMPARE(d->records(), QList<ImportRecord>({QStringList({"short", "u2"}), QStringList({"", "nameless", "x"})}));
                QCOMPARE(d->importPasswordDataTable->model()->index(1, 1).data().toString(), QStringLiteral("nameless"));
                d->importPasswordDataOKButton->click();
            });
        QCOMPARE(resultRows, 2);
        const Entry full = entryNamed(doc->file().passwordArray(), QStringLiteral("full"));
        QCOMPARE(full.value(EntryKey::URL).toString(), QStringLiteral("u"));
        QCOMPARE(full.value(EntryKey::UserID).toString(), QStringLiteral("me"));
        QCOMPARE(doc->file().passwordArray().size(), 4);
        QCOMPARE(listOnDisk(doc->filePath()).size(), 4);
    }

    void draggingAColumnTicksWhereItLands()
    {
        MyDocument *doc = openSample(EntryList{});
        QVERIFY(doc);
        const QString file = writeFile(QStringLiteral("wide.txt"), "site\tu\tme\tx\ty\tz\tpass\tn8\tn9\tten\n");
        runImport(doc, file, [](ImportDialog *d) {
            QCOMPARE(d->records().first().size(), 9); // the tenth field is ignored
            QCOMPARE(d->titleAt(3), QStringLiteral("Password"));
            // Drag the Password title by mouse over the seventh column of the file.
            QHeaderView *header = d->importPasswordDataHeaderTable->horizontalHeader();
            const int y = header->height() / 2;
            const QPoint from(header->sectionViewportPosition(header->logicalIndex(3)) + 20, y);
            const QPoint to(header->sectionViewportPosition(header->logicalIndex(6)) + header->sectionSize(0) - 10, y);
            QTest::mousePress(header->viewport(), Qt::LeftButton, {}, from);
            for (int i = 1; i <= 10; ++i)
                QTest::mouseMove(header->viewport(), from + (to - from) * i / 10);
            QTest::mouseRelease(header->viewport(), Qt::LeftButton, {}, to);
            if (d->titleAt(6) != QStringLiteral("Password")) // the pointer's drag did not come through
                d->moveColumn(3, 6);
            QCOMPARE(d->titleAt(6), QStringLiteral("Password"));
            QCOMPARE(d->titleAt(3), QStringLiteral("Notes"));
            // The tick went to the new position and did not follow from the old one.
            QCOMPARE(d->columns().ticked, QList<bool>({true, false, false, false, false, false, true, false, false}));
            // A tick box ticked by a click on it, at its position.
            QTableView *table = d->importPasswordDataHeaderTable;
            const QRect cell = table->visualRect(table->model()->index(0, header->logicalIndex(2)));
            QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, QPoint(cell.left() + 12, cell.center().y()));
            QCOMPARE(d->columns().ticked[2], true);
            QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, QPoint(cell.left() + 12, cell.center().y()));
            QCOMPARE(d->columns().ticked[2], false);
            d->importPasswordDataOKButton->click();
        });
        const Entry site = entryNamed(doc->file().passwordArray(), QStringLiteral("site"));
        QCOMPARE(site.value(EntryKey::Password).toString(), QStringLiteral("pass"));
        QVERIFY(!site.contains(EntryKey::URL) || site.value(EntryKey::URL).toString().isEmpty());
        QVERIFY(!site.value(EntryKey::Notes).toString().contains(QStringLiteral("x")));
    }

    void columnsByTheKeyboard()
    {
        // Ticks with Space; a title carried with Ctrl held and the arrow keys, ticked where it
        // is let go only (not on the way); the separator by its mnemonic.
        MyDocument *doc = openSample(EntryList{});
        QVERIFY(doc);
        const QString file = writeFile(QStringLiteral("keys.csv"), "site,https://site.example,me,x,y,pass\n");
        runImport(doc, file, [](ImportDialog *d) {
            QVERIFY(activate(d));
            pressKeys({QStringLiteral("alt+c")});
            QCOMPARE(d->importPasswordDataRadioButtons->checkedId(), int(SeparatorComma));
            // From the separators to the tick boxes by Tab, past the two check boxes.
            pressKeys({QStringLiteral("Tab"), QStringLiteral("Tab"), QStringLiteral("Tab")});
            QCOMPARE(QApplication::focusWidget(), d->importPasswordDataHeaderTable);
            pressKeys({QStringLiteral("space"), QStringLiteral("Right"), QStringLiteral("space")});
            QCOMPARE(d->columns().ticked, QList<bool>({true, true, true, false, false, false, false, false, false}));
            pressKeys({QStringLiteral("Right")}); // Password
            pressKeysHolding(QStringLiteral("ctrl"), {QStringLiteral("Right"), QStringLiteral("Right")});
            QCOMPARE(d->titleAt(5), QStringLiteral("Password"));
            QCOMPARE(d->columns().ticked, QList<bool>({true, true, true, false, false, true, false, false, false}));
            // Carried away and back: no tick.
            pressKeysHolding(QStringLiteral("ctrl"), {QStringLiteral("Left"), QStringLiteral("Right")});
            QCOMPARE(d->titleAt(5), QStringLiteral("Password"));
            QCOMPARE(d->columns().ticked, QList<bool>({true, true, true, false, false, true, false, false, false}));
            pressKeys({QStringLiteral("Return")}); // Import, the default button
        });
        const Entry site = entryNamed(doc->file().passwordArray(), QStringLiteral("site"));
        QCOMPARE(site.value(EntryKey::URL).toString(), QStringLiteral("https://site.example"));
        QCOMPARE(site.value(EntryKey::UserID).toString(), QStringLiteral("me"));
        QCOMPARE(site.value(EntryKey::Password).toString(), QStringLiteral("pass"));
    }

    void browserFilesNeedTheTwoOptions()
    {
        MyDocument *doc = openSample(EntryList{});
        QVERIFY(doc);
        const QString file = writeFile(QStringLiteral("chrome.csv"),
                                       "name,url,username,password,note\n"
                                       "Shop,https://shop.example,ann,\"p\"\"q\",\"two\nlines\"\n");
        runImport(doc, file, [](ImportDialog *d) {
            d->importPasswordDataRadioButtons->button(1)->click();
            // As the dialog has always read them: the header is a record, and the doubled quote's quirk.
            QCOMPARE(d->records().size(), 2);
            QCOMPARE(d->records()[1][3], QStringLiteral("p\"qq"));
            d->skipFirstLineSwitch->click();
            d->standardQuotesSwitch->click();
            QCOMPARE(d->records().size(), 1);
            QCOMPARE(d->records()[0], QStringList({"Shop", "https://shop.example", "ann", "p\"q", "two\nlines"}));
            for (int p = 1; p <= 4; ++p)
                QVERIFY(d->setTicked(p, true));
            d->importPasswordDataOKButton->click();
        });
        QCOMPARE(doc->file().passwordArray().size(), 1);
        const Entry shop = entryNamed(doc->file().passwordArray(), QStringLiteral("Shop"));
        QCOMPARE(shop.value(EntryKey::Password).toString(), QStringLiteral("p\"q"));
        QCOMPARE(shop.value(EntryKey::Notes).toString(), QStringLiteral("two\nlines"));
        QCOMPARE(shop.value(EntryKey::UserID).toString(), QStringLiteral("ann"));
    }

    void utf8FieldsImportExactly()
    {
        MyDocument *doc = openSample(EntryList{});
        QVERIFY(doc);
        const QString name = QStringLiteral("Crédit Agricole — 銀行 🏦");
        const QString password = QStringLiteral("pässwörd🔑密码");
        const QString file = writeFile(QStringLiteral("utf8.txt"), (name + u'\t' + password + u'\n').toUtf8());
        runImport(doc, file, [](ImportDialog *d) {
            d->moveColumn(3, 1); // Password over the second column
            d->importPasswordDataOKButton->click();
        });
        QCOMPARE(entryNamed(listOnDisk(doc->filePath()), name).value(EntryKey::Password).toString(), password);
    }

    void aFileThatIsNotUtf8IsRefused()
    {
        MyDocument *doc = openSample();
        QVERIFY(doc);
        const QMap<QString, QByteArray> before = packageBytes(doc->filePath());
        const QString file = writeFile(QStringLiteral("latin1.csv"), "Caf\xe9,x\n");
        QString message;
        answering(doc, QStringLiteral("Import…"), {typeFileAnswer(QStringLiteral("Import Password Data"), file), [&](QWidget *w) {
                                                        auto *prompt = qobject_cast<PromptPanel *>(w);
                                                        QVERIFY2(prompt, "expected a message, not the import dialog");
                                                        message = prompt->promptMessage->text();
                                                        prompt->promptDefaultButton->click();
                                                    }});
        QCOMPARE(message, QStringLiteral("The file “latin1.csv” is not UTF-8 text, so nothing was imported. Save it as UTF-8 "
                                         "(Unicode) text and import it again."));
        QCOMPARE(doc->file().passwordArray(), sampleList());
        QCOMPARE(packageBytes(doc->filePath()), before);
    }

    void cancelChangesNothing()
    {
        MyDocument *doc = openSample();
        QVERIFY(doc);
        const QMap<QString, QByteArray> before = packageBytes(doc->filePath());
        const QString file = writeFile(QStringLiteral("in.csv"), "New,u\n");
        runImport(doc, file, [](ImportDialog *d) {
            QVERIFY(d->setTicked(1, true));
            d->importPasswordDataCancelButton->click();
        });
        // And cancelled in the open panel.
        answering(doc, QStringLiteral("Import…"), {cancelAnswer<QFileDialog>()});
        QCOMPARE(doc->file().passwordArray(), sampleList());
        QCOMPARE(packageBytes(doc->filePath()), before);
    }

    void aReadOnlyFileImportsNothing()
    {
        const QString mount = pkg(QStringLiteral("ro"));
        QDir().mkpath(mount);
        if (::mount("tmpfs", QFile::encodeName(mount).constData(), "tmpfs", 0, "size=1m") != 0)
            QSKIP("cannot mount a tmpfs here (not root?)");
        const QString path = mount + QStringLiteral("/Locked.qvm");
        QVERIFY(makePackage(path, QStringLiteral("pw"), sampleList()));
        ::mount("tmpfs", QFile::encodeName(mount).constData(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr);
        MyDocument *doc = open(path);
        QVERIFY(doc);
        QVERIFY(!doc->file().PWFileWriteable());
        doc->validateMenuItems();
        QVERIFY(!fileMenuItem(doc, QStringLiteral("Import…"))->isEnabled());
        selectRows(doc, {0});
        doc->validateMenuItems();
        // It can still be exported and printed.
        QVERIFY(fileMenuItem(doc, QStringLiteral("Export…"))->isEnabled());
        QVERIFY(fileMenuItem(doc, QStringLiteral("Print…"))->isEnabled());
        doc->close();
        delete doc;
        ::umount2(QFile::encodeName(mount).constData(), MNT_DETACH);
    }

    void aLargeFileShowsProgressAndSavesOnce()
    {
        MyDocument *doc = openSample();
        QVERIFY(doc);
        QByteArray bytes;
        constexpr int kRecords = 10000;
        for (int i = 0; i < kRecords; ++i)
            bytes += "Site " + QByteArray::number(i) + ",https://site" + QByteArray::number(i) + ".example,user,pw" + QByteArray::number(i) + "\n";
        const QString file = writeFile(QStringLiteral("big.csv"), bytes);
        int shown = 0;
        QElapsedTimer t;
        runImport(doc, file, [&](ImportDialog *d) {
            d->importPasswordDataRadioButtons->button(1)->click();
            QCOMPARE(d->records().size(), kRecords);
            QVERIFY(d->setTicked(1, true));
            QObject::connect(d->importProgress, &QProgressBar::valueChanged, d, [&, d] {
                QVERIFY(d->importProgress->isVisible());
                ++shown;
            });
            // Timed from the press of Import to the saved file.
            t.start();
            d->importPasswordDataOKButton->click();
        });
        const qint64 ms = t.elapsed();
        qInfo("10,000 records imported through the dialog and saved in %lld ms", ms);
        QVERIFY2(shown >= kRecords / 500, qPrintable(QString::number(shown)));
        QCOMPARE(doc->file().passwordArray().size(), 3 + kRecords);
        QCOMPARE(listOnDisk(doc->filePath()).size(), 3 + kRecords);
    }
};

QTEST_MAIN(TestGuiExchange)
#include "tst_gui_exchange.moc"
