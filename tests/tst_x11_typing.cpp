// The keystroke engine on the real X server: key names from the server's layout, and text
// typed through XTest into a Qt window and a terminal, on several layouts, with Caps Lock on,
// by paste, and not while the user still holds a modifier.

#include "core/login/Typing.h"
#include "core/shortcuts/KeyNames.h"
#include "platform/x11/XTestKeySink.h"
#include "platform/x11/XkbKeyboardLayout.h"

#include <QApplication>
#include <QLineEdit>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QVBoxLayout>

#include <xcb/xcb.h>
#include <xcb/xtest.h>

using namespace tess;

namespace {

// Every character of the password generator's alphabet, and some that no US key has.
const QString kAscii = QStringLiteral(
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789!\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~ ");
const QString kOthers = QString::fromUtf8("é ß € 😀 中文 Ünïcødé");

bool setLayout(const QString &layout)
{
    return QProcess::execute("setxkbmap", {layout}) == 0;
}

} // namespace

class TestX11Typing : public QObject {
    Q_OBJECT

    xcb_connection_t *m_c = nullptr;
    std::unique_ptr<XkbKeyboardLayout> m_layout;
    std::unique_ptr<XTestKeySink> m_sink;
    std::unique_ptr<KeyScriptPlayer> m_player;
    std::unique_ptr<QWidget> m_window;
    QLineEdit *m_first = nullptr, *m_second = nullptr;
    int m_returns = 0;

    bool play(const KeyScript &script, int timeoutMs = 20000)
    {
        QSignalSpy done(m_player.get(), &KeyScriptPlayer::finished);
        m_player->play(script);
        return !done.isEmpty() || done.wait(timeoutMs); // a script with no waits ends at once
    }

    // Types into the first field, Tab, the second field, Return; answers what arrived.
    QPair<QString, QString> typeIntoWindow(const QString &a, const QString &b)
    {
        m_first->clear();
        m_second->clear();
        m_returns = 0;
        m_window->activateWindow();
        (void)QTest::qWaitForWindowActive(m_window.get());
        m_first->setFocus();
        QTest::qWait(50);
        KeyScript s = typeString(a, 100);
        s += tab();
        s += typeString(b, 100);
        s += nextPage();
        if (!play(s))
            return {};
        for (int i = 0; i < 250 && m_returns < 1; ++i)
            QTest::qWait(20);
        return {m_first->text(), m_second->text()};
    }

    void tapKey(quint8 keycode)
    {
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(m_c)).data->root;
        xcb_test_fake_input(m_c, XCB_KEY_PRESS, keycode, XCB_CURRENT_TIME, root, 0, 0, 0);
        xcb_test_fake_input(m_c, XCB_KEY_RELEASE, keycode, XCB_CURRENT_TIME, root, 0, 0, 0);
        xcb_flush(m_c);
    }

private Q_SLOTS:
    void initTestCase()
    {
        auto *x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
        if (!x11 || !qEnvironmentVariableIsSet("TESSALINE_TEST_SESSION"))
            QSKIP("needs the X server of `make test`");
        m_c = x11->connection();
        QVERIFY(setLayout("us"));
        m_layout = std::make_unique<XkbKeyboardLayout>(m_c);
        QVERIFY(m_layout->isValid());
        qApp->installNativeEventFilter(m_layout.get());
        SRKeyCodeTransformer::setKeyboardLayout(m_layout.get());
        m_sink = std::make_unique<XTestKeySink>(m_c, m_layout.get());
        m_player = std::make_unique<KeyScriptPlayer>(m_sink.get());

        m_window = std::make_unique<QWidget>();
        auto *layout = new QVBoxLayout(m_window.get());
        m_first = new QLineEdit;
        m_second = new QLineEdit;
        layout->addWidget(m_first);
        layout->addWidget(m_second);
        connect(m_second, &QLineEdit::returnPressed, this, [this] { ++m_returns; });
        m_window->resize(600, 100);
        m_window->show();
        QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    }

    void cleanupTestCase()
    {
        if (m_c)
            setLayout("us");
    }

    void keyNamesFollowTheServersLayout()
    {
        QCOMPARE(SRStringForKeyCode(0), QString("A"));
        QCOMPARE(SRStringForKeyCode(83), QString("Pad 1"));
        QCOMPARE(SRStringForKeyCode(49), QString("Space"));
        QCOMPARE(keyCodeForKey("v"), 9);
        QCOMPARE(SRCharacterForKeyCodeAndCocoaFlags(18, CocoaMask::Shift), QString("!"));
        SRKeyCodeTransformer t;
        QCOMPARE(t.reverseTransformedValue(QString("Z")).toInt(), 6);
        const int before = m_layout->changes();
        QVERIFY(setLayout("de"));
        QTRY_VERIFY(m_layout->changes() > before); // told by the server, not asked
        QTRY_COMPARE(t.reverseTransformedValue(QString("Z")).toInt(), 16);
        QCOMPARE(SRStringForKeyCode(6), QString("Y"));
        QVERIFY(setLayout("us"));
        QTRY_COMPARE(t.reverseTransformedValue(QString("Z")).toInt(), 6);
    }

    void typesExactlyOnEveryLayout_data()
    {
        QTest::addColumn<QString>("layout");
        QTest::addColumn<bool>("capsLock");
        QTest::addRow("us") << "us" << false;
        QTest::addRow("de") << "de" << false;
        QTest::addRow("fr") << "fr" << false;
        QTest::addRow("us, Caps Lock on") << "us" << true;
        QTest::addRow("de, Caps Lock on") << "de" << true;
    }
    void typesExactlyOnEveryLayout()
    {
        QFETCH(QString, layout);
        QFETCH(bool, capsLock);
        QVERIFY(setLayout(layout));
        QTest::qWait(100);
        if (capsLock)
            tapKey(66); // Caps_Lock on Xvfb's keymap
        const auto [a, b] = typeIntoWindow(kAscii, kOthers);
        if (capsLock)
            tapKey(66);
        QCOMPARE(a, kAscii);
        QCOMPARE(b, kOthers);
        QTRY_COMPARE_WITH_TIMEOUT(m_sink->spareKeycodesInUse(), 0, 5000); // bindings are undone after the script
        QVERIFY(setLayout("us"));
    }

    void typesIntoATerminal()
    {
        QTemporaryDir dir;
        const QString out = dir.filePath("typed.txt");
        QProcess term;
        term.start("xterm", {"-title", "tessaline-typing-target", "-e", "sh", "-c", "cat > '" + out + "'"});
        QVERIFY(term.waitForStarted());
        QVERIFY(QProcess::execute("xdotool", {"search", "--sync", "--name", "tessaline-typing-target", "windowactivate", "--sync"}) == 0);
        QTest::qWait(300);
        const QString text = kAscii + kOthers;
        KeyScript s = typeString(text, 100);
        s += nextPage();
        s += doKeyboardEvent(2, CocoaMask::Command); // Ctrl+D ends cat's input
        QVERIFY(play(s));
        QVERIFY(term.waitForFinished(10000));
        QFile f(out);
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromUtf8(f.readAll()), text + "\n");
    }

    void pastesWithThePasswordManagerHint()
    {
        m_first->clear();
        m_window->activateWindow();
        (void)QTest::qWaitForWindowActive(m_window.get());
        m_first->setFocus();
        QVERIFY(play(pasteString(QStringLiteral("pasted sécret 😀"), keyCodeForKey("v")), 5000));
        QTRY_COMPARE(m_first->text(), QStringLiteral("pasted sécret 😀"));
        // Another program sees the text and the hint; our event loop answers it.
        QProcess targets;
        targets.start("xclip", {"-o", "-selection", "clipboard", "-t", "TARGETS"});
        QTRY_VERIFY(targets.state() == QProcess::NotRunning);
        const QByteArray types = targets.readAllStandardOutput();
        QVERIFY2(types.contains("x-kde-passwordManagerHint"), types.constData());
        QProcess hint;
        hint.start("xclip", {"-o", "-selection", "clipboard", "-t", "x-kde-passwordManagerHint"});
        QTRY_VERIFY(hint.state() == QProcess::NotRunning);
        QCOMPARE(hint.readAllStandardOutput(), QByteArray("secret"));
    }

    void waitsForHeldModifiersThenGivesUp()
    {
        m_first->clear();
        m_first->setFocus();
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(m_c)).data->root;
        const quint8 controlL = 37;
        xcb_test_fake_input(m_c, XCB_KEY_PRESS, controlL, XCB_CURRENT_TIME, root, 0, 0, 0);
        xcb_flush(m_c);
        QSignalSpy failed(m_player.get(), &KeyScriptPlayer::failed);
        m_player->play(typeString("xyz", 100));
        QVERIFY(failed.wait(5000));
        QVERIFY(failed.first().first().toString().contains("Ctrl"));
        // Let go within the wait: typing goes ahead.
        QSignalSpy done(m_player.get(), &KeyScriptPlayer::finished);
        m_player->play(typeString("xyz", 100));
        QTimer::singleShot(300, this, [&] {
            xcb_test_fake_input(m_c, XCB_KEY_RELEASE, controlL, XCB_CURRENT_TIME, root, 0, 0, 0);
            xcb_flush(m_c);
        });
        QVERIFY(done.wait(5000));
        QTRY_COMPARE(m_first->text(), QString("xyz"));
    }
};

QTEST_MAIN(TestX11Typing)
#include "tst_x11_typing.moc"
