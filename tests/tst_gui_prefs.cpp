// The preferences panel from the Edit menu and from the controller: what it shows, what OK
// writes to the settings file, Cancel and closing that write nothing, settings another program
// changed meanwhile; the help book from the Help menu and the help buttons; the support
// report's alert with each of its answers.

#include "core/app/Diagnostics.h"
#include "core/app/QWPrefs.h"
#include "core/archive/KeyedArchive.h"
#include "core/shortcuts/KeyNames.h"
#include "support/FileSupport.h"
#include "support/GuiSupport.h"
#include "ui/Controller.h"
#include "ui/EntryEditor.h"
#include "ui/GeneratorCallout.h"
#include "ui/Globals.h"
#include "ui/Help.h"
#include "ui/ImportDialog.h"
#include "ui/MyDocument.h"
#include "ui/Panels.h"
#include "ui/PreferencesDialog.h"
#include "ui/ShortcutRecorder.h"
#include "ui/SupportReport.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QDesktopServices>
#include <QDialogButtonBox>
#include <QLineEdit>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QSlider>
#include <QSpinBox>
#include <QTest>

#include <xcb/xcb.h>

using namespace tess;
using namespace tess::testsupport;

namespace {

QVariantMap settingsOnDisk()
{
    return archive::decodeKeyedArchive(readFile(gPrefs->prefsPath())).toMap();
}

void clickButton(QWidget *w, const QString &title)
{
    for (QPushButton *b : w->findChildren<QPushButton *>())
        if (b->text().remove(QLatin1Char('&')) == title && b->isVisible()) {
            b->click();
            return;
        }
    QFAIL(qPrintable(QStringLiteral("no button %1").arg(title)));
}

// Asks the window to close as the window manager does for its close button: WM_DELETE_WINDOW.
void closeAsTheWindowManagerWould(QWidget *w)
{
    auto *x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    QVERIFY(x11);
    xcb_connection_t *c = x11->connection();
    auto atom = [c](const char *name) {
        xcb_intern_atom_reply_t *r = xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, quint16(strlen(name)), name), nullptr);
        const xcb_atom_t a = r ? r->atom : xcb_atom_t(XCB_ATOM_NONE);
        free(r);
        return a;
    };
    xcb_client_message_event_t event = {};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = xcb_window_t(w->winId());
    event.type = atom("WM_PROTOCOLS");
    event.data.data32[0] = atom("WM_DELETE_WINDOW");
    event.data.data32[1] = XCB_CURRENT_TIME;
    xcb_send_event(c, 0, event.window, XCB_EVENT_MASK_NO_EVENT, reinterpret_cast<const char *>(&event));
    xcb_flush(c);
}

QAction *menuItem(QWidget *window, const QString &title)
{
    for (QAction *a : window->findChildren<QAction *>())
        if (a->text() == title)
            return a;
    return nullptr;
}

} // namespace

// Catches what the program asks the desktop to open.
class OpenedURLs : public QObject {
    Q_OBJECT
public:
    QList<QUrl> urls;
public Q_SLOTS:
    void open(const QUrl &url) { urls.append(url); }
};

class TestGuiPrefs : public DocumentSuite {
    Q_OBJECT

    OpenedURLs m_opened;

    MyDocument *openSample()
    {
        const QString path = pkg("Prefs.qvm");
        if (!makePackage(path, "pw", EntryList{Entry{{EntryKey::Path, "Bank"}}}))
            return nullptr;
        // Keys pressed later go to the window with the focus: it must be this one.
        MyDocument *doc = open(path);
        return doc && activate(doc) ? doc : nullptr;
    }

    // Runs the panel from the document's Edit menu, by its shortcut, and lets `use` work in it.
    void inPanel(const std::function<void()> &start, const std::function<void(PreferencesDialog *)> &use)
    {
        ModalResponder r;
        bool seen = false;
        r.then([&](QWidget *w) {
            auto *panel = qobject_cast<PreferencesDialog *>(w);
            QVERIFY(panel);
            seen = true;
            use(panel);
            if (panel->isVisible() && QTest::currentTestFailed())
                panel->done(0);
        });
        start();
        QTRY_VERIFY_WITH_TIMEOUT(seen, 5000);
        QTRY_VERIFY(!QApplication::activeModalWidget());
    }

public:
    // (The fixture's own init slots run for each test; this suite adds none.)
    TestGuiPrefs()
    {
        QDesktopServices::setUrlHandler(QStringLiteral("file"), &m_opened, "open");
        QDesktopServices::setUrlHandler(QStringLiteral("mailto"), &m_opened, "open");
    }
    ~TestGuiPrefs() override
    {
        QDesktopServices::unsetUrlHandler(QStringLiteral("file"));
        QDesktopServices::unsetUrlHandler(QStringLiteral("mailto"));
    }

private Q_SLOTS:

    void panelShowsAndStoresEverySetting()
    {
        MyDocument *doc = openSample();
        QVERIFY(doc);
        gPrefs->setInteger(30, Pref::TypeSpeed);
        gPrefs->setInteger(6, Pref::PasswordPrompt);
        gPrefs->setObject(QStringLiteral("me@example.org"), Pref::DefaultUserID);
        gPrefs->setBool(true, Pref::SUEnableAutomaticChecks);
        QVERIFY(gPrefs->synchronize());
        inPanel([] { pressKeys({"ctrl+comma"}); }, [](PreferencesDialog *p) {
            // As filled: the start-up defaults and the values above.
            QVERIFY(p->checkForUpdatesSwitch->isChecked());
            QVERIFY(p->checkForUpdatesSwitch->isHidden());
            QCOMPARE(p->userIDHotKeyRecorder->keyCombo(), (KeyCombo{CocoaMask::Command | CocoaMask::Option, 32}));
            QCOMPARE(p->passwordHotKeyRecorder->keyCombo(), (KeyCombo{CocoaMask::Command | CocoaMask::Option, 35}));
            QCOMPARE(p->defaultUserID->text(), QStringLiteral("me@example.org"));
            QCOMPARE(p->waitForPageLoadDelay->value(), 10); // never set
            QCOMPARE(p->pageLoadDelay, 10);
            QVERIFY(p->typeSwitch->isChecked());
            QVERIFY(p->typeSpeedSlider->isEnabled());
            QCOMPARE(p->typeSpeedSlider->value(), 30);
            QCOMPARE(p->generatedPasswordLength->currentData().toLongLong(), 20); // 16 normalised at start-up
            QCOMPARE(p->passwordPromptPopup->currentData().toLongLong(), 6);
            QVERIFY(p->hoverUserID->isChecked());
            QVERIFY(!p->hoverPassword->isChecked() && !p->hoverURL->isChecked() && !p->hoverNotes->isChecked());
            QVERIFY(p->confirmDeleteSwitch->isChecked());
            // Change every one of them.
            p->userIDHotKeyRecorder->setKeyCombo(CocoaMask::Control | CocoaMask::Shift, 16);
            p->passwordHotKeyRecorder->setKeyCombo(KeyCombo{});
            p->defaultUserID->clear();
            QTest::keyClicks(p->defaultUserID, QStringLiteral("other"));
            p->waitForPageLoadDelay->setValue(4);
            p->typeSpeedSlider->setValue(75);
            p->generatedPasswordLength->setCurrentIndex(p->generatedPasswordLength->findData(qint64(32)));
            p->passwordPromptPopup->setCurrentIndex(p->passwordPromptPopup->findData(qint64(1)));
            for (QCheckBox *box : {p->hoverUserID, p->hoverPassword, p->hoverURL, p->hoverNotes, p->confirmDeleteSwitch})
                box->click();
            clickButton(p, QStringLiteral("OK"));
        });
        const QVariantMap disk = settingsOnDisk();
        QCOMPARE(disk.value(Pref::SUEnableAutomaticChecks).toBool(), true); // kept though hidden
        QCOMPARE(disk.value(Pref::HotkeyCodeUserID).toLongLong(), 16);
        QCOMPARE(disk.value(Pref::HotkeyUserIDModifierFlags).toLongLong(), qint64(CarbonMask::Control | CarbonMask::Shift));
        QCOMPARE(disk.value(Pref::HotkeyCodePassword).toLongLong(), -1);
        QCOMPARE(disk.value(Pref::HotkeyPasswordModifierFlags).toLongLong(), 0);
        QCOMPARE(disk.value(Pref::DefaultUserID).toString(), QStringLiteral("other"));
        QCOMPARE(disk.value(Pref::BrowserPageLoadDelay).toLongLong(), 4);
        QCOMPARE(disk.value(Pref::TypeSpeed).toLongLong(), 75);
        QCOMPARE(disk.value(Pref::GeneratedPasswordLength).toLongLong(), 32);
        QCOMPARE(disk.value(Pref::PasswordPrompt).toLongLong(), 1);
        QCOMPARE(disk.value(Pref::HoverUserID).toBool(), false);
        for (const QString &key : {Pref::HoverPassword, Pref::HoverURL, Pref::HoverNotes})
            QCOMPARE(disk.value(key).toBool(), true);
        QCOMPARE(disk.value(Pref::ConfirmDelete).toBool(), false);
    }

    void typeSwitchAndUnchangedOK()
    {
        // With no window open, the controller runs the panel on its own.
        QVERIFY(m_controller->documents().isEmpty());
        gPrefs->setInteger(0, Pref::TypeSpeed);
        gPrefs->setInteger(30, Pref::GeneratedPasswordLength); // not in the list: kept
        inPanel([this] { m_controller->preferences(); }, [](PreferencesDialog *p) {
            QVERIFY(!p->typeSwitch->isChecked());
            QVERIFY(!p->typeSpeedSlider->isEnabled());
            QCOMPARE(p->generatedPasswordLength->currentData().toLongLong(), 30);
            p->typeSwitch->click(); // on by a click: the slider goes to the middle
            QVERIFY(p->typeSpeedSlider->isEnabled());
            QCOMPARE(p->typeSpeedSlider->value(), 50);
            clickButton(p, QStringLiteral("OK"));
        });
        QVariantMap disk = settingsOnDisk();
        QCOMPARE(disk.value(Pref::TypeSpeed).toLongLong(), 50);
        QCOMPARE(disk.value(Pref::BrowserPageLoadDelay).toLongLong(), 10); // shown as 10, so stored as 10
        QCOMPARE(disk.value(Pref::GeneratedPasswordLength).toLongLong(), 30);
        QCOMPARE(disk.value(Pref::DefaultUserID).toString(), QString()); // stored even when empty
        QVERIFY(disk.contains(Pref::DefaultUserID));

        inPanel([this] { m_controller->preferences(); }, [](PreferencesDialog *p) {
            p->typeSpeedSlider->setValue(90);
            p->typeSwitch->click(); // off: pasted, whatever the slider says
            QVERIFY(!p->typeSpeedSlider->isEnabled());
            clickButton(p, QStringLiteral("OK"));
        });
        QCOMPARE(settingsOnDisk().value(Pref::TypeSpeed).toLongLong(), 0);
    }

    void cancelAndClosingStoreNothing_data()
    {
        QTest::addColumn<QString>("how");
        QTest::addRow("Cancel") << "Cancel";
        QTest::addRow("Escape") << "Escape";
        QTest::addRow("window closed") << "close";
    }
    void cancelAndClosingStoreNothing()
    {
        QFETCH(QString, how);
        MyDocument *doc = openSample();
        QVERIFY(doc);
        QVERIFY(gPrefs->synchronize());
        const QByteArray before = readFile(gPrefs->prefsPath());
        const QVariantMap inMemory = gPrefs->prefsMutableDictionary();
        int registered = 0;
        inPanel([] { pressKeys({"ctrl+comma"}); }, [&](PreferencesDialog *p) {
            p->registerHotKeys = [&] { ++registered; };
            p->typeSwitch->click();
            p->hoverNotes->click();
            p->waitForPageLoadDelay->setValue(3);
            p->userIDHotKeyRecorder->setKeyCombo(CocoaMask::Control, 0);
            if (how == u"Cancel")
                clickButton(p, QStringLiteral("Cancel"));
            else if (how == u"Escape")
                QTest::keyClick(p, Qt::Key_Escape);
            else
                closeAsTheWindowManagerWould(p);
        });
        QCOMPARE(readFile(gPrefs->prefsPath()), before);
        QCOMPARE(gPrefs->prefsMutableDictionary(), inMemory);
        QCOMPARE(registered, 0);
    }

    void settingsChangedOutsideWhileOpen()
    {
        // What another program wrote while the panel was up (read into the store by its
        // watcher) survives OK unless the user changed that control too.
        int unregistered = 0, registered = 0;
        inPanel([this] { m_controller->preferences(); }, [&](PreferencesDialog *p) {
            p->unRegisterHotKeys = [&] { QCOMPARE(registered, 0); ++unregistered; };
            p->registerHotKeys = [&] {
                QCOMPARE(unregistered, 1);
                ++registered;
                // Registered from what is already stored, before the later settings are.
                QCOMPARE(gPrefs->integerForKey(Pref::HotkeyCodeUserID), 0);
                QCOMPARE(gPrefs->integerForKey(Pref::GeneratedPasswordLength), 24);
                QVERIFY(!gPrefs->boolForKey(Pref::HoverNotes));
            };
            gPrefs->setInteger(7, Pref::BrowserPageLoadDelay);
            gPrefs->setObject(QStringLiteral("from-cli"), Pref::DefaultUserID);
            gPrefs->setBool(true, Pref::HoverURL);
            gPrefs->setInteger(99, Pref::TypeSpeed);
            p->typeSpeedSlider->setValue(12);
            p->typeSwitch->setChecked(true);
            p->userIDHotKeyRecorder->setKeyCombo(CocoaMask::Command, 0);
            p->generatedPasswordLength->setCurrentIndex(p->generatedPasswordLength->findData(qint64(24)));
            p->hoverNotes->click();
            clickButton(p, QStringLiteral("OK"));
        });
        QCOMPARE(registered, 1);
        const QVariantMap disk = settingsOnDisk();
        QCOMPARE(disk.value(Pref::BrowserPageLoadDelay).toLongLong(), 7);
        QCOMPARE(disk.value(Pref::DefaultUserID).toString(), QStringLiteral("from-cli"));
        QCOMPARE(disk.value(Pref::HoverURL).toBool(), true);
        QCOMPARE(disk.value(Pref::TypeSpeed).toLongLong(), 12); // the user's change wins
        QCOMPARE(disk.value(Pref::HoverNotes).toBool(), true);
    }

    void delegatedFieldKeepsTheLastKey()
    {
        PreferencesDialog panel;
        auto *field = new QLineEdit(&panel);
        panel.delegateTextField(field);
        panel.show();
        QVERIFY(QTest::qWaitForWindowActive(&panel));
        field->setFocus();
        typeText(QStringLiteral("uvw"));
        QTRY_COMPARE(field->text(), QStringLiteral("w"));
    }

    void helpMenuOpensTheBookAtItsTopic()
    {
        const QString book = helpBookDirectory(qEnvironmentVariable("TESSALINE_BUILD_DIR"));
        QCOMPARE(book, QDir::cleanPath(qEnvironmentVariable("TESSALINE_BUILD_DIR") + "/help"));
        MyDocument *doc = openSample();
        QVERIFY(doc);
        // The test program is not beside the book; the application is.
        QVERIFY(menuItem(doc, QStringLiteral("Tessaline Help")));
        QCOMPARE(helpURL(book, QString()), QUrl::fromLocalFile(book + "/index.html"));
        const QList<std::pair<QString, QString>> items = {{"Hot Keys", "logging-in.html#hot-keys"},
                                                         {"Password Files", "index.html#files"},
                                                         {"Command Line", "settings.html#command-line"}};
        for (const auto &[title, page] : items) {
            QCOMPARE(helpURL(book, menuItem(doc, title)->property("helpAnchor").toString()), QUrl("file://" + book + "/" + page));
        }
        // From the menu and the panel's Help button, as the application opens them.
        setHelpBookDirectory(book);
        m_opened.urls.clear();
        menuItem(doc, QStringLiteral("Tessaline Help"))->trigger();
        menuItem(doc, QStringLiteral("Import and Export"))->trigger();
        inPanel([this] { m_controller->preferences(); }, [](PreferencesDialog *p) {
            clickButton(p, QStringLiteral("Help"));
            clickButton(p, QStringLiteral("Cancel"));
        });
        setHelpBookDirectory(QString());
        QCOMPARE(m_opened.urls, (QList<QUrl>{QUrl::fromLocalFile(book + "/index.html"), QUrl("file://" + book + "/settings.html#import-export"),
                                             QUrl("file://" + book + "/settings.html#preferences")}));
    }

    void everyTopicIsInTheBook()
    {
        const QString book = QStringLiteral(TESSALINE_SOURCE_DIR "/data/help");
        for (const QString &anchor : HelpAnchor::all()) {
            const QUrl url = helpURL(book, anchor);
            QCOMPARE(url.fragment(), anchor);
            QVERIFY2(readFile(url.toLocalFile()).contains(QByteArray("id=\"" + anchor.toUtf8() + '"')), qPrintable(anchor));
        }
        // Links between pages lead to anchors that exist.
        const QDir dir(book);
        for (const QString &page : dir.entryList({"*.html"})) {
            const QString html = QString::fromUtf8(readFile(dir.filePath(page)));
            static const QRegularExpression link(QStringLiteral("href=\"([a-z-]+\\.html)?(?:#([a-z-]+))?\""));
            for (auto it = link.globalMatch(html); it.hasNext();) {
                const auto m = it.next();
                const QString target = m.captured(1).isEmpty() ? page : m.captured(1);
                QVERIFY2(dir.exists(target), qPrintable(page + " -> " + target));
                if (!m.captured(2).isEmpty())
                    QVERIFY2(readFile(dir.filePath(target)).contains(QByteArray("id=\"" + m.captured(2).toUtf8() + '"')),
                             qPrintable(page + " -> " + m.captured(0)));
            }
        }
        // Installed: share/tessaline/help of the prefix, seen from its bin folder.
        QTemporaryDir prefix;
        QVERIFY(QDir().mkpath(prefix.filePath("bin")) && QDir().mkpath(prefix.filePath("share/tessaline/help")));
        QVERIFY(QFile::copy(book + "/index.html", prefix.filePath("share/tessaline/help/index.html")));
        QCOMPARE(helpBookDirectory(prefix.filePath("bin")), prefix.filePath("share/tessaline/help"));
    }

    // Every panel with a help button opens the book at a topic the book has.
    void helpButtonsOpenTopicsOfTheBook()
    {
        const QString book = QStringLiteral(TESSALINE_SOURCE_DIR "/data/help");
        setHelpBookDirectory(book);
        // Clicks the panel's help buttons; answers their anchors, each its button's identifier.
        auto anchorsOf = [](QWidget *panel) {
            QStringList anchors;
            for (QPushButton *b : panel->findChildren<QPushButton *>())
                if (b->property("helpAnchor").isValid() && b->objectName() == b->property("helpAnchor").toString()) {
                    anchors.append(b->objectName());
                    b->click();
                }
            return anchors;
        };
        m_opened.urls.clear();
        PreferencesDialog preferences;
        ChangePasswordPanel changePassword(nullptr);
        ImportDialog import;
        GeneratorCallout generator;
        EntryEditor editor;
        QStringList anchors;
        for (QWidget *panel : std::initializer_list<QWidget *>{&preferences, &changePassword, &import, &generator, &editor}) {
            const QStringList found = anchorsOf(panel);
            QVERIFY2(found.size() == 1, qPrintable(panel->metaObject()->className()));
            anchors += found;
        }
        // The new file panel's, from the controller as the File menu runs it; F1 there too.
        ModalResponder r;
        r.then([&](QWidget *w) {
            anchors += anchorsOf(w);
            QVERIFY(QTest::qWaitForWindowActive(w));
            pressKeys({"F1"});
            static_cast<QDialog *>(w)->reject();
        });
        m_controller->newDocument();
        QVERIFY(r.done());
        setHelpBookDirectory(QString());
        QCOMPARE(anchors, (QStringList{HelpAnchor::Preferences, HelpAnchor::ChangePassword, HelpAnchor::Import,
                                       HelpAnchor::Generator, HelpAnchor::Entries, HelpAnchor::Files}));
        QCOMPARE(m_opened.urls.size(), anchors.size() + 1);
        QCOMPARE(m_opened.urls.last(), m_opened.urls[anchors.size() - 1]);
        for (int i = 0; i < anchors.size(); ++i) {
            const QUrl &url = m_opened.urls[i];
            QCOMPARE(url.fragment(), anchors[i]);
            QVERIFY2(readFile(url.toLocalFile()).contains(QByteArray("id=\"" + anchors[i].toUtf8() + '"')), qPrintable(url.toString()));
        }
    }

    void supportReportAnswers_data()
    {
        QTest::addColumn<QString>("answer");
        QTest::addRow("Mail Program") << "Mail Program";
        QTest::addRow("Web Mail") << "Web Mail";
        QTest::addRow("Cancel") << "Cancel";
    }
    void supportReportAnswers()
    {
        QFETCH(QString, answer);
        const QString report = QStringLiteral("report & more = 100%\nline 2");
        QApplication::clipboard()->setText(QStringLiteral("before"));
        m_opened.urls.clear();
        ModalResponder r;
        QString question, afterwards;
        r.then([&](QWidget *w) {
            auto *box = qobject_cast<QMessageBox *>(w);
            QVERIFY(box);
            QCOMPARE(box->windowTitle(), kDebuggingInformation);
            question = box->informativeText();
            QStringList titles;
            for (QAbstractButton *b : box->buttons())
                titles.append(b->text().remove(QLatin1Char('&')));
            titles.sort();
            QCOMPARE(titles, (QStringList{"Cancel", "Mail Program", "Web Mail"}));
            clickButton(box, answer);
        });
        if (answer == u"Web Mail")
            r.then([&](QWidget *w) {
                afterwards = static_cast<QMessageBox *>(w)->informativeText();
                // The report is on the clipboard while the second alert is up.
                QCOMPARE(QApplication::clipboard()->text(), report);
                clickButton(w, QStringLiteral("OK"));
            });
        const ReportDelivery chosen = deliverReport(report, nullptr);
        QVERIFY(r.done());
        QCOMPARE(question, debuggingInformationQuestion().replace('\r', '\n'));
        QVERIFY(question.endsWith("paste it into an email to support@tessaline.org.\n\nWhich do you use?"));
        if (answer == u"Mail Program") {
            QCOMPARE(chosen, ReportDelivery::MailProgram);
            QCOMPARE(m_opened.urls.size(), 1);
            QCOMPARE(QUrl::fromPercentEncoding(m_opened.urls.first().toEncoded()),
                     "mailto:support@tessaline.org?Subject=Tessaline Debugging Info&body=\n\n" + report);
            QCOMPARE(QApplication::clipboard()->text(), QStringLiteral("before"));
        } else if (answer == u"Web Mail") {
            QCOMPARE(chosen, ReportDelivery::WebMail);
            QCOMPARE(afterwards, "The debugging information is on your clipboard.  Please paste it into an email to support@tessaline.org");
            QVERIFY(m_opened.urls.isEmpty());
        } else {
            QCOMPARE(chosen, ReportDelivery::Cancel);
            QVERIFY(m_opened.urls.isEmpty());
            QCOMPARE(QApplication::clipboard()->text(), QStringLiteral("before"));
        }
    }

    void supportReportFromTheHelpMenu()
    {
        MyDocument *doc = openSample();
        QVERIFY(doc);
        gDebugInfo = QStringLiteral("Number exported=3; Export size= 120; export error = (null)\n");
        ModalResponder r;
        r.then([](QWidget *w) { clickButton(w, QStringLiteral("Web Mail")); });
        r.then([](QWidget *w) { clickButton(w, QStringLiteral("OK")); });
        menuItem(doc, QStringLiteral("Send Debugging Information…"))->trigger();
        QTRY_VERIFY(r.done());
        const QString text = QApplication::clipboard()->text();
        QVERIFY(text.startsWith("Tessaline 6.0 Debugging info is included below."));
        QVERIFY(text.contains("\n\n--------------------------   Debug Info   --------------------------\n\n" + gDebugInfo));
        QVERIFY(text.contains("\"hotkeyCodeUserID\": 32"));
        gDebugInfo.clear();
    }
};

QTEST_MAIN(TestGuiPrefs)
#include "tst_gui_prefs.moc"
