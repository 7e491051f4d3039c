// The global hot keys and the shortcut recorder on the real X server: the default hot keys
// registered at start-up and pressed by another client, typing into another program's window, the gate of the current document,
// combinations another client holds refused, typing held back until the hot key is let go,
// and recording with real keys, layouts with dead keys included.

#include "core/app/QWPrefs.h"
#include "core/login/Typing.h"
#include "core/shortcuts/KeyNames.h"
#include "core/shortcuts/SRValidator.h"
#include "platform/x11/HotKeys.h"
#include "platform/x11/XTestKeySink.h"
#include "platform/x11/XkbKeyboardLayout.h"
#include "support/FileSupport.h"
#include "support/GuiSupport.h"
#include "ui/Controller.h"
#include "ui/Globals.h"
#include "ui/MyDocument.h"
#include "ui/ShortcutRecorder.h"

#include <QApplication>
#include <QLineEdit>
#include <QMainWindow>
#include <QMenuBar>
#include <QMessageBox>
#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QSignalSpy>
#include <QTest>
#include <QVBoxLayout>

#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon.h>

using namespace tess;
using namespace tess::testsupport;

namespace {

constexpr quint32 kCtrlAlt = CarbonMask::Command | CarbonMask::Option;
constexpr quint64 kCocoaCtrlAlt = CocoaMask::Command | CocoaMask::Option;

bool xdotool(const QStringList &args)
{
    return QProcess::execute(QStringLiteral("xdotool"), args) == 0;
}

// Another X client, holding combinations on the root window as a desktop's shortcut daemon
// would.
class OtherClient {
public:
    OtherClient() : m_c(xcb_connect(nullptr, nullptr))
    {
        m_root = xcb_setup_roots_iterator(xcb_get_setup(m_c)).data->root;
    }
    ~OtherClient() { xcb_disconnect(m_c); }
    bool grab(const char *xkbName, quint16 mods)
    {
        const xkb_keycode_t kc = xkb_keymap_key_by_name(
            static_cast<const XkbKeyboardLayout *>(SRKeyCodeTransformer::keyboardLayout())->keymap(), xkbName);
        xcb_generic_error_t *e = xcb_request_check(
            m_c, xcb_grab_key_checked(m_c, 1, m_root, mods, xcb_keycode_t(kc), XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        free(e);
        return !e;
    }

private:
    xcb_connection_t *m_c;
    xcb_window_t m_root;
};

// A terminal in a process of its own, in raw mode, that writes every byte it receives to a file:
// what a user's hot key typed into another program, exactly.
class RecordingTerminal {
public:
    explicit RecordingTerminal(const QString &dir) : m_out(dir + "/received"), m_ready(dir + "/ready")
    {
        m_term.start("xterm", {"-title", "tessaline-hotkey-target", "-e", "sh", "-c",
                               "stty raw -echo && : > '" + m_ready + "' && exec cat > '" + m_out + "'"});
    }
    ~RecordingTerminal()
    {
        m_term.kill();
        m_term.waitForFinished();
    }
    // Gives it the focus, as a click on it would. Our event loop keeps running meanwhile: the
    // window manager asks our windows to give up the focus. Under load the window manager can
    // miss a request, so it is asked again.
    bool activate()
    {
        for (int i = 0; i < 200 && !QFile::exists(m_ready); ++i)
            QTest::qWait(50);
        for (int attempt = 0; attempt < 5; ++attempt) {
            QProcess p;
            p.start("xdotool", {"search", "--sync", "--onlyvisible", "--name", "^tessaline-hotkey-target$", "windowactivate", "--sync"});
            for (int i = 0; i < 200 && p.state() != QProcess::NotRunning; ++i)
                QTest::qWait(25);
            if (p.state() == QProcess::NotRunning && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0)
                return true;
            qWarning("activating the terminal: %s", p.readAllStandardError().constData());
            p.kill();
            p.waitForFinished();
        }
        return false;
    }
    QByteArray received() const
    {
        QFile f(m_out);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }

private:
    QProcess m_term;
    QString m_out, m_ready;
};

// Closes the next alert, answering what it said.
QString closeNextAlert()
{
    QString text;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        if (auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget())) {
            text = box->text() + QStringLiteral("\n") + box->informativeText();
            box->accept();
        }
    });
    poll.start(50);
    for (int i = 0; i < 100 && text.isEmpty(); ++i)
        QTest::qWait(50);
    return text;
}

} // namespace

class TestX11HotKeys : public DocumentSuite {
    Q_OBJECT

    std::unique_ptr<XkbKeyboardLayout> m_layout;
    std::unique_ptr<QWidget> m_window;
    ShortcutRecorder *m_recorder = nullptr;
    QLineEdit *m_field = nullptr;

    HotKeys *hotKeys() { return m_controller->hotKeys(); }

    void showWindow()
    {
        m_window = std::make_unique<QWidget>();
        auto *layout = new QVBoxLayout(m_window.get());
        m_recorder = new ShortcutRecorder(QStringLiteral("Test"), m_window.get());
        m_field = new QLineEdit(m_window.get());
        layout->addWidget(m_recorder);
        layout->addWidget(m_field);
        m_window->show();
        QVERIFY(activate(m_window.get()));
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (!qEnvironmentVariableIsSet("TESSALINE_TEST_SESSION"))
            QSKIP("needs the test session of `make test` (Xvfb, D-Bus, keyring)");
        auto *x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
        QVERIFY(x11);
        m_layout = std::make_unique<XkbKeyboardLayout>(x11->connection());
        QVERIFY(m_layout->isValid());
        qApp->installNativeEventFilter(m_layout.get());
        SRKeyCodeTransformer::setKeyboardLayout(m_layout.get());
    }

    void defaultHotKeysAreRegisteredAtStartUp()
    {
        QVERIFY(hotKeys());
        QVERIFY(hotKeys()->isRegistered(1));
        QVERIFY(hotKeys()->isRegistered(2));
        QSignalSpy pressed(hotKeys(), &HotKeys::hotKeyPressed);
        QVERIFY(xdotool({"key", "ctrl+alt+u"}));
        QTRY_COMPARE(pressed.size(), 1);
        QCOMPARE(pressed[0][0].toUInt(), 1u);
        // Caps Lock and Num Lock on do not matter.
        QVERIFY(xdotool({"key", "Caps_Lock", "Num_Lock", "ctrl+alt+p", "Caps_Lock", "Num_Lock"}));
        QTRY_COMPARE(pressed.size(), 2);
        QCOMPARE(pressed[1][0].toUInt(), 2u);
        // Another modifier held: not the hot key.
        QVERIFY(xdotool({"key", "ctrl+alt+shift+u"}));
        QTest::qWait(200);
        QCOMPARE(pressed.size(), 2);
        // New combinations from the settings after unregister, register.
        gPrefs->setInteger(40, Pref::HotkeyCodeUserID); // K
        m_controller->unRegisterHotKeys();
        m_controller->registerHotKeys();
        QVERIFY(xdotool({"key", "ctrl+alt+u", "ctrl+alt+k"}));
        QTRY_COMPARE(pressed.size(), 3);
        QTest::qWait(200);
        QCOMPARE(pressed.size(), 3);
    }

    // The handler answers only with a current document; a re-locked one silences both keys.
    void handlerGoesToTheCurrentDocumentOnly()
    {
        QVERIFY(!gWebsiteDocument);
        QVERIFY(!Controller::hotKeyHandler(1));
        QVERIFY(!Controller::hotKeyHandler(2));
        QVERIFY(makePackage(pkg("Hot.qvm"), "pw", sampleEntries(3)));
        MyDocument *doc = open(pkg("Hot.qvm"));
        QVERIFY(doc && activate(doc));
        QTRY_VERIFY(gWebsiteDocument == doc);
        QVERIFY(Controller::hotKeyHandler(1));
        QVERIFY(Controller::hotKeyHandler(2));
        QVERIFY(!Controller::hotKeyHandler(3));
        doc->setPromptForPassword();
        QVERIFY(!Controller::hotKeyHandler(1));
        QVERIFY(!Controller::hotKeyHandler(2));
    }

    // The default hot keys, registered by the application at start-up and pressed by the user
    // (XTest), type the current entry into a terminal of another process.
    void hotKeysTypeIntoAnotherProgram()
    {
        gPrefs->setInteger(100, Pref::TypeSpeed);    // typed: a terminal does not paste on Ctrl+V
        gPrefs->setInteger(2, Pref::PasswordPrompt); // asks again a minute after its window is left
        QTemporaryDir dir;
        RecordingTerminal term(dir.path());
        QVERIFY(term.activate());
        // No document was ever made active: nothing.
        QVERIFY(xdotool({"key", "ctrl+alt+u", "ctrl+alt+p"}));
        QTest::qWait(1500);
        QCOMPARE(term.received(), QByteArray());

        const QString password = QStringLiteral("pa55 w0rd!");
        QVERIFY(makePackage(pkg("Hot.qvm"), "pw",
                            EntryList{Entry{{EntryKey::Path, "Site"}, {EntryKey::UserID, "alice"}, {EntryKey::Password, password},
                                            {EntryKey::PasswordOptions, 0}, {EntryKey::PasswordTabSwitch, true},
                                            {EntryKey::PasswordTabCount, 1}}}));
        MyDocument *doc = open(pkg("Hot.qvm"));
        QVERIFY(doc && activate(doc));
        selectByName(doc, QStringLiteral("Site"));
        QTRY_VERIFY(gWebsiteDocument == doc);
        QVERIFY(term.activate());
        QTRY_VERIFY(doc->passwordTimer.isActive()); // the window was left

        // User ID, the two Tabs the entry asks for, the password; nothing while the keys are held.
        QVERIFY(xdotool({"keydown", "ctrl+alt+u"}));
        QTest::qWait(1000);
        QCOMPARE(term.received(), QByteArray());
        QVERIFY(xdotool({"keyup", "u", "alt", "ctrl"}));
        QByteArray expected = "alice\t\t" + password.toUtf8();
        QTRY_COMPARE_WITH_TIMEOUT(term.received(), expected, 10000);
        // The password hot key: the password alone, no Tabs.
        QTest::qWait(1200);
        QVERIFY(xdotool({"key", "ctrl+alt+p"}));
        expected += password.toUtf8();
        QTRY_COMPARE_WITH_TIMEOUT(term.received(), expected, 10000);

        // The document falls due to ask for its password: neither key types anything.
        QTest::qWait(1200);
        doc->passwordTimer.start(1);
        QTRY_VERIFY(!gWebsiteDocument);
        QVERIFY(xdotool({"key", "ctrl+alt+u", "ctrl+alt+p"}));
        QTest::qWait(2500);
        QCOMPARE(term.received(), expected);

        // Back in its window the password is asked for; once given, the hot keys type again.
        ModalResponder r;
        r.then([](QWidget *w) { typePassword(w, QStringLiteral("pw")); });
        doc->raise();
        doc->activateWindow();
        QTRY_VERIFY_WITH_TIMEOUT(r.done(), 10000);
        QTRY_VERIFY(gWebsiteDocument == doc);
        selectByName(doc, QStringLiteral("Site"));
        QVERIFY(term.activate());
        QVERIFY(xdotool({"key", "ctrl+alt+p"}));
        expected += password.toUtf8();
        QTRY_COMPARE_WITH_TIMEOUT(term.received(), expected, 10000);
        QTest::qWait(1500);
        QCOMPARE(term.received(), expected);
    }

    void combinationsAnotherClientHoldsAreRefused()
    {
        OtherClient other;
        QVERIFY(other.grab("AC09", XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1)); // ctrl+alt+L
        // Silently not registered, the other hot key still is.
        gPrefs->setInteger(37, Pref::HotkeyCodePassword);
        m_controller->unRegisterHotKeys();
        m_controller->registerHotKeys();
        QVERIFY(hotKeys()->isRegistered(1));
        QVERIFY(!hotKeys()->isRegistered(2));
        // No key (-1 stored as unsigned): not registered either.
        gPrefs->setInteger(-1, Pref::HotkeyCodeUserID);
        m_controller->unRegisterHotKeys();
        m_controller->registerHotKeys();
        QVERIFY(!hotKeys()->isRegistered(1));

        SRValidator validator;
        SRError e;
        QCOMPARE(hotKeys()->isTaken(37, kCtrlAlt), SystemShortcuts::Answer::Taken);
        QVERIFY(validator.isKeyCodeAndFlagsTaken(37, kCtrlAlt, &e));
        QCOMPARE(e.localizedDescription, QString("The key combination Ctrl+Alt+L can't be used!"));
        QCOMPARE(e.localizedRecoverySuggestion,
                 QString("The key combination \"Ctrl + Alt + L\" can't be used because it's already used by a "
                         "system-wide keyboard shortcut."));
        // With Caps Lock in the picture it is still the same combination; free ones stay free
        // (and the trial grab leaves nothing grabbed behind).
        QVERIFY(!validator.isKeyCodeAndFlagsTaken(37, kCtrlAlt | CarbonMask::Shift, &e));
        QVERIFY(other.grab("AC09", XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_SHIFT));
    }

    void menuItemsOfTheApplicationAreTaken()
    {
        QMainWindow window;
        QMenu *file = window.menuBar()->addMenu(QStringLiteral("&File"));
        file->addAction(QStringLiteral("&Quit"))->setShortcut(QKeySequence(QStringLiteral("Ctrl+Q")));
        window.show();
        SRValidator validator;
        SRError e;
        QVERIFY(validator.isKeyCodeAndFlagsTaken(12, CarbonMask::Command, &e));
        QCOMPARE(e.localizedRecoverySuggestion,
                 QString("The key combination \"Ctrl + Q\" can't be used because it's already used by the menu item \"Quit\"."));
        QVERIFY(!validator.isKeyCodeAndFlagsTaken(12, CarbonMask::Command | CarbonMask::Shift, &e));
    }

    // Typing started by a hot key waits until every key of it is up, its letter included.
    void typingWaitsForTheHotKeyToBeReleased()
    {
        showWindow();
        m_field->setFocus();
        auto *x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
        XTestKeySink sink(x11->connection(), m_layout.get());
        KeyScriptPlayer player(&sink);
        QSignalSpy pressed(hotKeys(), &HotKeys::hotKeyPressed);
        connect(hotKeys(), &HotKeys::hotKeyPressed, &player, [&] { player.play(typeString(QStringLiteral("hello"), 100)); });
        QVERIFY(xdotool({"keydown", "ctrl+alt+u"}));
        QTRY_COMPARE(pressed.size(), 1);
        QTest::qWait(700);
        QVERIFY(player.isPlaying());
        QCOMPARE(m_field->text(), QString());
        QVERIFY(xdotool({"keyup", "ctrl+alt"}));
        QTest::qWait(300);
        QCOMPARE(m_field->text(), QString()); // the letter is still down
        QSignalSpy finished(&player, &KeyScriptPlayer::finished);
        QVERIFY(xdotool({"keyup", "u"}));
        QVERIFY(finished.wait(5000));
        QTRY_COMPARE(m_field->text(), QString("hello"));
        QCOMPARE(pressed.size(), 1);
    }

    void recordingWithRealKeys()
    {
        showWindow();
        m_recorder->setFocus();
        QSignalSpy changed(m_recorder, &ShortcutRecorder::shortcutChanged);
        QVERIFY(xdotool({"key", "space"}));
        QTRY_VERIFY(m_recorder->isRecording());
        QVERIFY(xdotool({"key", "u"})); // no modifier: ignored
        QTest::qWait(100);
        QVERIFY(m_recorder->isRecording());
        QVERIFY(xdotool({"key", "ctrl+alt+j"}));
        QTRY_VERIFY(!m_recorder->isRecording());
        QCOMPARE(m_recorder->keyCombo(), (KeyCombo{kCocoaCtrlAlt, 38}));
        QCOMPARE(changed.size(), 1);
        QCOMPARE(changed[0][0].toUInt(), 38u);
        QCOMPARE(gPrefs->objectForKey("ShortcutRecorder Test").toMap().value("keyCode").toInt(), 38);
        // Escape cancels; Backspace with a modifier is recorded.
        QVERIFY(xdotool({"key", "space", "Escape"}));
        QTRY_VERIFY(!m_recorder->isRecording());
        QCOMPARE(m_recorder->keyCombo(), (KeyCombo{kCocoaCtrlAlt, 38}));
        QVERIFY(xdotool({"key", "space"}));
        QTRY_VERIFY(m_recorder->isRecording());
        QVERIFY(xdotool({"key", "ctrl+BackSpace"}));
        QTRY_VERIFY(!m_recorder->isRecording());
        QCOMPARE(m_recorder->keyCombo(), (KeyCombo{CocoaMask::Command, 51}));
        QCOMPARE(m_recorder->keyComboString(), QString("Ctrl+Backspace"));
        // Clicking starts recording; a click in the button snaps back.
        QVERIFY(xdotool({"mousemove", "--window", QString::number(m_recorder->winId()), "10", "5", "click", "1"}));
        QTRY_VERIFY(m_recorder->isRecording());
    }

    // While recording the keyboard is ours: our own hot key and another client's combination
    // reach the recorder instead of firing; the other client's is refused with the alert.
    void recordingSwitchesSystemHotKeysOff()
    {
        OtherClient other;
        QVERIFY(other.grab("AC08", XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1)); // ctrl+alt+K
        showWindow();
        m_recorder->setFocus();
        QSignalSpy pressed(hotKeys(), &HotKeys::hotKeyPressed);
        QVERIFY(xdotool({"key", "space"}));
        QTRY_VERIFY(m_recorder->isRecording());
        QTest::qWait(450); // the transition
        QVERIFY(xdotool({"key", "ctrl+alt+k"}));
        const QString alert = closeNextAlert();
        QVERIFY2(alert.contains("The key combination \"Ctrl + Alt + K\" can't be used because it's already used by a "
                                "system-wide keyboard shortcut."),
                 qPrintable(alert));
        QVERIFY(m_recorder->isRecording());
        QVERIFY(xdotool({"key", "ctrl+alt+u"})); // our own user-ID hot key
        QTRY_VERIFY(!m_recorder->isRecording());
        QVERIFY2(m_recorder->keyCombo() == (KeyCombo{kCocoaCtrlAlt, 32}), qPrintable(QString("recorded %1 %2, hot key pressed %3 times").arg(m_recorder->keyCombo().flags, 0, 16).arg(m_recorder->keyCombo().code).arg(pressed.size())));
        QCOMPARE(pressed.size(), 0);
        // Recording over: the hot key works again.
        QTest::qWait(450);
        QVERIFY(xdotool({"key", "ctrl+alt+u"}));
        QTRY_COMPARE(pressed.size(), 1);
    }

    void deadKeysAreNamedAndRecordable_data()
    {
        QTest::addColumn<QString>("layout");
        QTest::addColumn<QString>("key"); // XKB name of a dead key of that layout
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("name");
        QTest::addRow("de circumflex") << "de" << "TLDE" << 50 << "^";
        QTest::addRow("de acute") << "de" << "AE12" << 24 << QString(QChar(0xB4));
        QTest::addRow("fr circumflex") << "fr" << "AD11" << 33 << "^";
    }

    void deadKeysAreNamedAndRecordable()
    {
        QFETCH(QString, layout);
        QFETCH(QString, key);
        QFETCH(int, code);
        QFETCH(QString, name);
        const int before = m_layout->changes();
        auto restore = qScopeGuard([] { QProcess::execute("setxkbmap", {"us"}); });
        QCOMPARE(QProcess::execute("setxkbmap", {layout}), 0);
        QTRY_VERIFY(m_layout->changes() > before);
        QCOMPARE(SRStringForKeyCode(code), name);
        showWindow();
        m_recorder->setFocus();
        QVERIFY(xdotool({"key", "space"}));
        QTRY_VERIFY(m_recorder->isRecording());
        // The key itself by its keycode: xdotool would pick any key with the accent on some level.
        const xkb_keycode_t kc = xkb_keymap_key_by_name(m_layout->keymap(), key.toLatin1().constData());
        QVERIFY(xdotool({"keydown", "ctrl+alt"}));
        QVERIFY(xdotool({"key", QString::number(kc)}));
        QVERIFY(xdotool({"keyup", "ctrl+alt"}));
        QTRY_VERIFY(!m_recorder->isRecording());
        QVERIFY2(m_recorder->keyCombo() == (KeyCombo{kCocoaCtrlAlt, code}),
                 qPrintable(QString("%1 %2").arg(m_recorder->keyCombo().flags, 0, 16).arg(m_recorder->keyCombo().code)));
        QCOMPARE(m_recorder->keyComboString(), "Ctrl+Alt+" + name);
    }
};

QTEST_MAIN(TestX11HotKeys)
#include "tst_x11_hotkeys.moc"
