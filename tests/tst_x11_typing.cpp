// The keystroke engine on the real X server: key names from the server's layout, and text
// typed through XTest into a Qt window and a terminal, on several layouts, with Caps Lock on,
// by paste, and not while the user still holds a modifier.

#include "core/login/Typing.h"
#include "core/shortcuts/KeyNames.h"
#include "platform/x11/ReceiverProgress.h"
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
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

#include <sys/wait.h>
#include <unistd.h>

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

// An X server of the test's own, on a display it picks itself, that the test may kill.
class PrivateXServer {
public:
    explicit PrivateXServer(const QStringList &extraArgs = {})
    {
        m_process.start("Xvfb", QStringList{"-displayfd", "1", "-nolisten", "tcp", "-screen", "0", "640x480x24"} + extraArgs);
        if (!m_process.waitForReadyRead(10000))
            return;
        m_display = ":" + m_process.readLine().trimmed();
        m_c = xcb_connect(m_display.constData(), nullptr);
    }
    QByteArray display() const { return m_display; }
    ~PrivateXServer()
    {
        if (m_c)
            xcb_disconnect(m_c);
        kill();
    }
    xcb_connection_t *connection() const { return m_c && !xcb_connection_has_error(m_c) ? m_c : nullptr; }
    void kill()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

private:
    QProcess m_process;
    QByteArray m_display;
    xcb_connection_t *m_c = nullptr;
};

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
        QTest::qWait(100); // keys an earlier test sent land before the fields are cleared
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

    // The server's whole keyboard mapping, as bytes.
    QByteArray keymapBytes()
    {
        const xcb_setup_t *setup = xcb_get_setup(m_c);
        xcb_get_keyboard_mapping_reply_t *r = xcb_get_keyboard_mapping_reply(
            m_c, xcb_get_keyboard_mapping(m_c, setup->min_keycode, quint8(setup->max_keycode - setup->min_keycode + 1)), nullptr);
        if (!r)
            return {};
        const QByteArray bytes(reinterpret_cast<const char *>(xcb_get_keyboard_mapping_keysyms(r)),
                               xcb_get_keyboard_mapping_keysyms_length(r) * 4);
        free(r);
        return bytes;
    }

    bool anyKeyDown()
    {
        xcb_query_keymap_reply_t *r = xcb_query_keymap_reply(m_c, xcb_query_keymap(m_c), nullptr);
        bool down = false;
        for (int i = 0; r && i < 32; ++i)
            down = down || r->keys[i];
        free(r);
        return down;
    }

    bool capsLocked()
    {
        xcb_xkb_get_state_reply_t *r = xcb_xkb_get_state_reply(m_c, xcb_xkb_get_state(m_c, XCB_XKB_ID_USE_CORE_KBD), nullptr);
        const bool locked = r && (r->lockedMods & XCB_MOD_MASK_LOCK);
        free(r);
        return locked;
    }

    // Once the last test's bindings are undone: the keymap, then Caps Lock turned on and the
    // first field cleared; empty when the keymap or Caps Lock could not be had.
    QByteArray keymapWithCapsLockOn()
    {
        if (!QTest::qWaitFor([this] { return m_sink->spareKeycodesInUse() == 0; }, 10000))
            return {};
        const QByteArray keymap = keymapBytes();
        tapKey(66); // Caps Lock on Xvfb's keymap
        if (!QTest::qWaitFor([this] { return capsLocked(); }))
            return {};
        m_first->clear();
        return keymap;
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

    // The hot key's own letter, still down, would be taken by its grab: typing waits for it.
    void waitsForTheHotKeysLetter()
    {
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(m_c)).data->root;
        const quint8 u = 30; // "u" on Xvfb's keymap
        xcb_test_fake_input(m_c, XCB_KEY_PRESS, u, XCB_CURRENT_TIME, root, 0, 0, 0);
        xcb_flush(m_c);
        QSignalSpy failed(m_player.get(), &KeyScriptPlayer::failed);
        m_player->play(typeString("xyz", 100));
        QVERIFY(failed.wait(5000));
        QVERIFY2(failed.first().first().toString().startsWith("u is still held"), qPrintable(failed.first().first().toString()));
        tapKey(u);
        QVERIFY(!anyKeyDown());
    }

    // More distinct characters without a key than places for them (two on each spare keycode,
    // the second with Shift): bound in batches, none lost, lower and capital letters alike.
    void typesMoreUnusualCharactersThanSpareKeys()
    {
        QString text;
        const int places = m_sink->bindingPlaces();
        QCOMPARE(places, 2 * m_sink->spareKeycodeCount());
        for (int i = 0; i < places + 10; ++i)
            text += QChar(0x410 + i) + QStringLiteral("a"); // Cyrillic capitals and small letters, with keys between
        text += text; // and the first batch again
        const auto [a, b] = typeIntoWindow(text, QString::fromUtf8("ü€"));
        QCOMPARE(a, text);
        QCOMPARE(b, QString::fromUtf8("ü€"));
    }

    // Qt, like Chromium and GTK, stamps its window (or the window it names for that) with the
    // time of each key press it has handled: nothing later than a mark until a key sent after it.
    void followsTheReportsOfTheFocusedWindow()
    {
        typeIntoWindow(QStringLiteral("x"), QString());
        ReceiverProgress progress(m_c);
        QVERIFY(progress.follow());
        const std::optional<ReceiverProgress::Mark> mark = progress.mark();
        QVERIFY(mark);
        QTest::qWait(50);
        QVERIFY(!ReceiverProgress::isThrough(*mark, progress.reported()));
        tapKey(56); // b
        QTRY_VERIFY(ReceiverProgress::isThrough(*mark, progress.reported()));
    }

    // Reports that say nothing of the keys before a mark.
    void reportsThatShowNothing()
    {
        const ReceiverProgress::Mark mark{3000000000u, 2999999000u};
        QVERIFY(ReceiverProgress::isThrough(mark, 3000000001u));
        QVERIFY(!ReceiverProgress::isThrough(mark, std::nullopt));     // no report at all
        QVERIFY(!ReceiverProgress::isThrough(mark, 2999999000u));      // the one before the mark
        QVERIFY(!ReceiverProgress::isThrough(mark, 3000000000u));      // a key as old as the mark
        QVERIFY(!ReceiverProgress::isThrough(mark, 0u));               // "never": half a clock away
        QVERIFY(!ReceiverProgress::isThrough(mark, 3000000000u + 86400000u)); // another clock's
        // Across the clock's wrap.
        QVERIFY(ReceiverProgress::isThrough({0xfffffff0u, 0xffffff00u}, 5u));
    }

    // What the slow receiver of another process got from the script.
    QString typeIntoSlowReceiver(int msPerKey, const KeyScript &script)
    {
        QProcess receiver;
        QByteArray errors;
        connect(&receiver, &QProcess::readyReadStandardError, this, [&] { errors += receiver.readAllStandardError(); });
        receiver.start(QStringLiteral(TESSALINE_SLOW_RECEIVER), {QString::number(msPerKey)});
        if (!receiver.waitForStarted() || !QTest::qWaitFor([&] { return errors.contains("ready"); }, 10000))
            return QStringLiteral("(the receiver did not start: %1)").arg(QString::fromUtf8(errors));
        if (!play(script, 60000))
            return QStringLiteral("(the script did not finish)");
        // The event loop runs meanwhile: the sink's bindings are undone on a timer.
        if (!QTest::qWaitFor([&] { return receiver.state() == QProcess::NotRunning; }, 60000))
            return QStringLiteral("(the receiver got no Return)");
        return QString::fromUtf8(receiver.readAllStandardOutput());
    }

    // A receiver in a process of its own that takes 10 ms a key, slower than any estimate of
    // ours, still gets every character when more of them need a spare keycode than there are
    // places: a keycode is rebound only once the receiver reports it has handled what went before.
    void rebindsOnlyWhenASlowReceiverHasCaughtUp()
    {
        QString text;
        for (int i = 0; i < m_sink->bindingPlaces() + 10; ++i)
            text += QChar(0x410 + i) + QStringLiteral("b");
        text += text;
        QCOMPARE(typeIntoSlowReceiver(10, typeString(text, 100) + nextPage()), text);
    }

    // A report covers the keys sent before its mark only: a step that began before the receiver
    // had caught up, on the keys bound already, marks again before it rebinds.
    void aMarkCoversOnlyTheKeysSentBeforeIt()
    {
        QString first, second = QChar(0x410);
        for (int i = 0; i < m_sink->bindingPlaces(); ++i)
            first += QChar(0x410 + i);
        for (int i = 0; i < m_sink->bindingPlaces(); ++i)
            second += QChar(0x3b1 + i % 20) + QChar(0x100 + i);
        const KeyScript script = typeString(first, 100) + KeyScript{{KeyAction::Pause, 0, 0, {}, 0}} + typeString(second, 100) + nextPage();
        QCOMPARE(typeIntoSlowReceiver(10, script), first + second);
    }

    // Undoing the last bindings is a change like any other: it waits for the receiver too.
    void unbindsOnlyWhenASlowReceiverHasCaughtUp()
    {
        QString text;
        for (int i = 0; i < m_sink->bindingPlaces(); ++i)
            text += QChar(0x410 + i);
        QCOMPARE(typeIntoSlowReceiver(60, typeString(text, 100) + nextPage()), text);
    }

    // Keys for characters without one are bound while the pause before their step runs, so
    // the keymap change has settled by the step's first key; Caps Lock is still the step's own
    // to release and put back, and a cancel during the pause restores the keymap exactly.
    void bindsKeysDuringThePauseBeforeTheirStep()
    {
        const QByteArray before = keymapWithCapsLockOn();
        QVERIFY(!before.isEmpty());
        m_window->activateWindow();
        (void)QTest::qWaitForWindowActive(m_window.get());
        m_first->setFocus();
        const QString text = QString::fromUtf8("é€x");
        KeyScript s{KeyAction{KeyAction::Pause, 0, 0, {}, 1000000}};
        s += typeString(text, 100);
        QSignalSpy done(m_player.get(), &KeyScriptPlayer::finished);
        QVERIFY(m_player->play(s));
        // The pause has just begun: the keys are bound, nothing is typed, Caps Lock untouched.
        QCOMPARE(m_sink->spareKeycodesInUse(), 2);
        QVERIFY(keymapBytes() != before);
        QVERIFY(capsLocked());
        QVERIFY(m_first->text().isEmpty());
        QVERIFY(done.wait(20000));
        QTRY_COMPARE(m_first->text(), text);
        QVERIFY(capsLocked());
        QTRY_COMPARE_WITH_TIMEOUT(keymapBytes(), before, 10000); // undone after the step

        QSignalSpy cancelled(m_player.get(), &KeyScriptPlayer::cancelled);
        QVERIFY(m_player->play(s));
        QVERIFY(keymapBytes() != before);
        m_player->cancel();
        QCOMPARE(cancelled.size(), 1);
        QCOMPARE(keymapBytes(), before);
        QCOMPARE(m_sink->spareKeycodesInUse(), 0);
        QVERIFY(capsLocked());
        QTest::qWait(300);
        QCOMPARE(m_first->text(), text);
        tapKey(66);
        QTRY_VERIFY(!capsLocked());
    }

    // Cancelled mid-way: no key left down, Caps Lock as it was, the keymap byte for byte.
    void cancelLeavesTheKeyboardAsItWas()
    {
        const QByteArray before = keymapWithCapsLockOn();
        QVERIFY(!before.isEmpty());
        m_first->setFocus();
        KeyScript s = typeString(QString::fromUtf8("aé€ÀB😀").repeated(30), 95);
        s += doKeyboardEvent(0, CocoaMask::Command | CocoaMask::Shift);
        QSignalSpy cancelled(m_player.get(), &KeyScriptPlayer::cancelled);
        QVERIFY(m_player->play(s));
        QTRY_VERIFY(m_first->text().size() > 10);
        QVERIFY(m_sink->spareKeycodesInUse() > 0);
        m_player->cancel();
        QCOMPARE(cancelled.size(), 1);
        QVERIFY(!anyKeyDown());
        QTest::qWait(100); // keys sent before the cancel may still be on their way
        QVERIFY(capsLocked());
        QCOMPARE(keymapBytes(), before);
        // Keys sent before the cancel may still be on their way through the server.
        QTest::qWait(200);
        const int typed = int(m_first->text().size());
        QTest::qWait(300);
        QCOMPARE(int(m_first->text().size()), typed);
        tapKey(66);
        QTRY_VERIFY(!capsLocked());
    }

    // The X server goes away while a script types: the script fails, saying why, and is never
    // reported as done.
    void aLostConnectionIsAFailure()
    {
        PrivateXServer server;
        QVERIFY(server.connection());
        XkbKeyboardLayout layout(server.connection());
        QVERIFY(layout.isValid());
        XTestKeySink sink(server.connection(), &layout);
        KeyScriptPlayer player(&sink);
        QSignalSpy finished(&player, &KeyScriptPlayer::finished);
        QSignalSpy failed(&player, &KeyScriptPlayer::failed);
        KeyScript s = typeString(QStringLiteral("password").repeated(40), 90); // 25 ms a key: 8 s
        s.append({KeyAction::Pause, 0, 0, {}, 0});
        s += typeString(QStringLiteral("more"), 100);
        QVERIFY(player.play(s));
        QTest::qWait(300);
        QVERIFY(player.isPlaying());
        server.kill();
        QVERIFY(failed.wait(5000));
        QVERIFY2(failed.first().first().toString().contains("connection to the X server was lost"),
                 qPrintable(failed.first().first().toString()));
        QTest::qWait(200);
        QVERIFY(finished.isEmpty());
        QVERIFY(!player.isPlaying());
        QCOMPARE(failed.size(), 1);
    }

    // The record of bound keycodes belongs to the server the keys were bound on, whatever
    // $DISPLAY names: a run on another display neither reads nor removes it.
    void theBindingRecordIsNamedAfterTheConnectionsServer()
    {
        PrivateXServer server;
        QVERIFY(server.connection());
        QCOMPARE(XTestKeySink::displayOf(server.connection()), QString::fromLatin1(server.display()));
        QCOMPARE(XTestKeySink::displayOf(m_c), qEnvironmentVariable("DISPLAY"));
        const QString own = XTestKeySink::bindingRecordPath(server.connection());
        QVERIFY(own.endsWith("tessaline-keys-" + QString::fromLatin1(server.display())));
        QVERIFY(own != XTestKeySink::bindingRecordPath(m_c));

        XkbKeyboardLayout layout(server.connection());
        QVERIFY(layout.isValid());
        XTestKeySink sink(server.connection(), &layout);
        QVERIFY(sink.prepare(QString::fromUtf8("€")) > 0); // bound: noted in that server's record
        QVERIFY(QFile::exists(own));
        QVERIFY(!QFile::exists(XTestKeySink::bindingRecordPath(m_c)));
        sink.finish();
        sink.restoreBindings();
        QVERIFY(!QFile::exists(own));
    }

    // No keyboard state to type with (Xvfb always has XKB: here the layout could not be read):
    // nothing is typed and the script fails.
    void noKeyboardStateIsAFailure()
    {
        PrivateXServer server;
        QVERIFY(server.connection());
        XkbKeyboardLayout layout(nullptr);
        QVERIFY(!layout.isValid());
        XTestKeySink sink(server.connection(), &layout);
        KeyScriptPlayer player(&sink);
        QSignalSpy finished(&player, &KeyScriptPlayer::finished);
        QSignalSpy failed(&player, &KeyScriptPlayer::failed);
        player.play(typeString(QStringLiteral("secret"), 100));
        QTRY_COMPARE(failed.size(), 1);
        QVERIFY2(failed.first().first().toString().contains("XKB"), qPrintable(failed.first().first().toString()));
        QVERIFY(finished.isEmpty());
    }

    // A run that died with spare keycodes bound: the next one puts them back.
    void keysLeftBoundByACrashAreRestored()
    {
        QTRY_COMPARE_WITH_TIMEOUT(m_sink->spareKeycodesInUse(), 0, 10000);
        const QByteArray before = keymapBytes();
        const int spare = m_sink->spareKeycodeCount();
        QVERIFY(spare > 0);
        // The highest keycode with no symbol, bound as a crashed run would have left it.
        const xcb_setup_t *setup = xcb_get_setup(m_c);
        int kc = setup->max_keycode;
        const int per = int(before.size() / 4 / (setup->max_keycode - setup->min_keycode + 1));
        const auto *syms = reinterpret_cast<const quint32 *>(before.constData());
        while (kc >= setup->min_keycode && syms[(kc - setup->min_keycode) * per] != 0)
            --kc;
        std::vector<xcb_keysym_t> bound(std::size_t(per), 0);
        bound[0] = bound[1] = 0x10020ac; // €
        xcb_change_keyboard_mapping(m_c, 1, quint8(kc), quint8(per), bound.data());
        xcb_flush(m_c);
        QVERIFY(keymapBytes() != before);
        QFile record(XTestKeySink::bindingRecordPath(m_c));
        QVERIFY(record.open(QIODevice::WriteOnly));
        pid_t dead = ::fork();
        if (dead == 0)
            ::_exit(0);
        ::waitpid(dead, nullptr, 0);
        record.write(QByteArray::number(dead) + ' ' + QByteArray::number(kc) + '\n');
        record.close();
        XTestKeySink next(m_c, m_layout.get());
        QCOMPARE(keymapBytes(), before);
        QVERIFY(!QFile::exists(XTestKeySink::bindingRecordPath(m_c)));
    }
};

QTEST_MAIN(TestX11Typing)
#include "tst_x11_typing.moc"
