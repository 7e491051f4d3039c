// Key names and modifier masks, and the typing engine's keystroke sequences and timings.

#include "core/app/QWPrefs.h"
#include "core/login/Typing.h"
#include "support/TestSupport.h"
#include "core/shortcuts/KeyNames.h"
#include "platform/fake/RecordingKeySink.h"
#include "platform/fake/UsKeyboardLayout.h"

#include <QElapsedTimer>
#include <QKeySequence>
#include <QSignalSpy>
#include <QTest>

using namespace tess;

class TestKeys : public QObject {
    Q_OBJECT

    UsKeyboardLayout m_us;

private Q_SLOTS:
    void initTestCase() { SRKeyCodeTransformer::setKeyboardLayout(&m_us); }

    void keyNames_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("name");
        QTest::addRow("Space") << 49 << "Space";
        QTest::addRow("F1") << 122 << "F1";
        QTest::addRow("F19") << 80 << "F19";
        // Named keys as Linux desktops and Qt's menus name them.
        QTest::addRow("Return") << 36 << "Return";
        QTest::addRow("Tab") << 48 << "Tab";
        QTest::addRow("Backspace") << 51 << "Backspace";
        QTest::addRow("Delete") << 117 << "Del";
        QTest::addRow("Escape") << 53 << "Esc";
        QTest::addRow("Page Up") << 116 << "PgUp";
        QTest::addRow("left arrow") << 123 << "Left";
        QTest::addRow("keypad Enter") << 76 << "Enter";
        QTest::addRow("Help, Insert here") << 114 << "Ins";
        QTest::addRow("letter, upper-cased") << 0 << "A";
        QTest::addRow("U") << 32 << "U";
        QTest::addRow("digit") << 18 << "1";
        QTest::addRow("keypad") << 83 << "Pad 1";
        QTest::addRow("keypad star") << 67 << "Pad *";
        QTest::addRow("negative") << -1 << QString();
        QTest::addRow("not on the layout") << 127 << QString();
    }
    void keyNames()
    {
        QFETCH(int, code);
        QFETCH(QString, name);
        QCOMPARE(SRStringForKeyCode(code), name);
    }

    void modifierStrings()
    {
        // Short forms with this platform's names, in the order its menus write them.
        QCOMPARE(SRStringForCarbonModifierFlags(0x1B00), QString("Ctrl+Alt+Shift+Super+"));
        QCOMPARE(SRStringForCarbonModifierFlags(0), QString());
        QCOMPARE(SRStringForCarbonModifierFlagsAndKeyCode(0x0900, 32), QString("Ctrl+Alt+U"));
        QCOMPARE(SRStringForCocoaModifierFlagsAndKeyCode(0x120000, 96), QString("Ctrl+Shift+F5"));
        QCOMPARE(SRStringForCocoaModifierFlagsAndKeyCode(0x140000, 51), QString("Ctrl+Super+Backspace"));
        // Readable: Command, Option, Control, Shift, then the key, with this platform's names.
        QCOMPARE(SRReadableStringForCarbonModifierFlagsAndKeyCode(0x1B00, 32), QString("Ctrl + Alt + Super + Shift + U"));
        QCOMPARE(SRReadableStringForCarbonModifierFlagsAndKeyCode(2304, 35), QString("Ctrl + Alt + P"));
        QCOMPARE(SRStringForCarbonModifierFlagsAndKeyCode(0x0100, -1), QString("Ctrl+")); // an unknown key shows nothing
    }

    // The recorder names a combination as the application's menus show the same one.
    void namesAsTheMenusShowThem_data()
    {
        QTest::addColumn<quint64>("flags");
        QTest::addColumn<int>("code");
        QTest::addColumn<int>("qtCombination");
        const quint64 ctrl = CocoaMask::Command, alt = CocoaMask::Option, shift = CocoaMask::Shift;
        QTest::addRow("Ctrl+Alt+U") << (ctrl | alt) << 32 << int(Qt::CTRL | Qt::ALT | Qt::Key_U);
        QTest::addRow("Ctrl+Alt+Shift+P") << (ctrl | alt | shift) << 35 << int(Qt::CTRL | Qt::ALT | Qt::SHIFT | Qt::Key_P);
        QTest::addRow("Ctrl+,") << ctrl << 43 << int(Qt::CTRL | Qt::Key_Comma);
        QTest::addRow("Ctrl+Shift+F5") << (ctrl | shift) << 96 << int(Qt::CTRL | Qt::SHIFT | Qt::Key_F5);
        QTest::addRow("Del") << quint64(0) << 117 << int(Qt::Key_Delete);
        QTest::addRow("Ctrl+Backspace") << ctrl << 51 << int(Qt::CTRL | Qt::Key_Backspace);
        QTest::addRow("Alt+Esc") << alt << 53 << int(Qt::ALT | Qt::Key_Escape);
        QTest::addRow("Ctrl+Return") << ctrl << 36 << int(Qt::CTRL | Qt::Key_Return);
        QTest::addRow("keypad Enter") << ctrl << 76 << int(Qt::CTRL | Qt::Key_Enter);
        QTest::addRow("Ctrl+Tab") << ctrl << 48 << int(Qt::CTRL | Qt::Key_Tab);
        QTest::addRow("Ctrl+Space") << ctrl << 49 << int(Qt::CTRL | Qt::Key_Space);
        QTest::addRow("Ctrl+PgUp") << ctrl << 116 << int(Qt::CTRL | Qt::Key_PageUp);
        QTest::addRow("Ctrl+PgDown") << ctrl << 121 << int(Qt::CTRL | Qt::Key_PageDown);
        QTest::addRow("Ctrl+Home") << ctrl << 115 << int(Qt::CTRL | Qt::Key_Home);
        QTest::addRow("Ctrl+End") << ctrl << 119 << int(Qt::CTRL | Qt::Key_End);
        QTest::addRow("Ctrl+Left") << ctrl << 123 << int(Qt::CTRL | Qt::Key_Left);
        QTest::addRow("Ctrl+Down") << ctrl << 125 << int(Qt::CTRL | Qt::Key_Down);
        QTest::addRow("Ctrl+Ins") << ctrl << 114 << int(Qt::CTRL | Qt::Key_Insert);
    }
    void namesAsTheMenusShowThem()
    {
        QFETCH(quint64, flags);
        QFETCH(int, code);
        QFETCH(int, qtCombination);
        QCOMPARE(SRStringForCocoaModifierFlagsAndKeyCode(flags, code), QKeySequence(qtCombination).toString(QKeySequence::NativeText));
    }

    void maskConversions()
    {
        QCOMPARE(SRCarbonToCocoaFlags(0x0900), quint64(0x180000));
        QCOMPARE(SRCocoaToCarbonFlags(0x180000), quint32(0x0900));
        QCOMPARE(SRCocoaToCarbonFlags(0x010000 | 0x100000), quint32(0x0100)); // Caps Lock is dropped
        QCOMPARE(SRCarbonToCocoaFlags(0x800000 | 0x1000), quint64(0x800000 | 0x040000));
        QCOMPARE(SRCocoaToCarbonFlags(0x800000), quint32(0x800000));
        QCOMPARE(SRCarbonToCocoaFlags(0x0001), quint64(0)); // other bits are dropped
    }

    void charactersWithModifiers()
    {
        QCOMPARE(SRCharacterForKeyCodeAndCocoaFlags(0, 0), QString("A"));
        QCOMPARE(SRCharacterForKeyCodeAndCocoaFlags(18, CocoaMask::Shift), QString("!"));
        QCOMPARE(SRCharacterForKeyCodeAndCarbonFlags(18, CarbonMask::Shift | CarbonMask::Command), QString("!"));
        QCOMPARE(SRCharacterForKeyCodeAndCocoaFlags(18, CocoaMask::Command), QString("1")); // Command does not reach the layout
        QCOMPARE(SRCharacterForKeyCodeAndCocoaFlags(49, 0), QString("Space")); // falls back to the name
    }

    void reverseLookupAndKeyCodeForKey()
    {
        SRKeyCodeTransformer t;
        QVERIFY(SRKeyCodeTransformer::allowsReverseTransformation());
        QCOMPARE(t.reverseTransformedValue(QString("U")).toInt(), 32);
        QCOMPARE(t.reverseTransformedValue(QString("F5")).toInt(), 96);
        QCOMPARE(t.reverseTransformedValue(QString("Pad 5")).toInt(), 87);
        QVERIFY(!t.reverseTransformedValue(QString("nothing")).isValid());
        QVERIFY(!t.reverseTransformedValue(32).isValid());
        QCOMPARE(keyCodeForKey("u"), 32);
        QCOMPARE(keyCodeForKey("p"), 35);
        QCOMPARE(keyCodeForKey("v"), 9);
        QCOMPARE(keyCodeForKey("U"), -1); // compared with lower-cased names
        QCOMPARE(keyCodeForKey("1"), 18);
    }

    void keyPresses()
    {
        QCOMPARE(tab(), (KeyScript{{KeyAction::KeyDown, 48, 0, {}, 0}, {KeyAction::KeyUp, 48, 0, {}, 0}}));
        QCOMPARE(nextPage().first().keyCode, 36);
        // Only the key-down of the paste key carries Command.
        const KeyScript paste = pasteString("secret", 9);
        QCOMPARE(paste, (KeyScript{{KeyAction::Pause, 0, 0, {}, 1000000}, {KeyAction::SetClipboard, 0, 0, "secret", 0},
                                   {KeyAction::KeyDown, 9, 0x100000, {}, 0}, {KeyAction::KeyUp, 9, 0, {}, 0}}));
    }

    void typingDelays_data()
    {
        QTest::addColumn<qint64>("speed");
        QTest::addColumn<qint64>("micros");
        QTest::addRow("1") << qint64(1) << qint64(247500);
        QTest::addRow("50") << qint64(50) << qint64(125000);
        QTest::addRow("99") << qint64(99) << qint64(2500);
        QTest::addRow("100") << qint64(100) << qint64(0);
        QTest::addRow("150") << qint64(150) << qint64(0);
        QTest::addRow("-1") << qint64(-1) << qint64(252500);
    }
    void typingDelays()
    {
        QFETCH(qint64, speed);
        QFETCH(qint64, micros);
        const QString text = QString::fromUtf8("aé😀");
        const KeyScript s = typeString(text, speed);
        KeyScript expected;
        for (QChar unit : text) {
            if (micros)
                expected.append({KeyAction::Wait, 0, 0, {}, micros});
            expected.append({KeyAction::KeyDown, 1, 0, QString(unit), 0});
            expected.append({KeyAction::KeyUp, 1, 0, QString(unit), 0});
        }
        QCOMPARE(s, expected);
        QCOMPARE(s.count({KeyAction::KeyDown, 1, 0, QString(text.at(2)), 0}), 1); // surrogate halves go one per pair
        QVERIFY(typeString(QString(), speed).isEmpty());
    }

    void typingOrPasting()
    {
        QCOMPARE(enterString("x", 0, 9).at(1).type, KeyAction::SetClipboard);
        QCOMPARE(enterString("x", 100, 9).first().type, KeyAction::KeyDown);
        // The setting is read again for every field.
        testsupport::ScopedHome home;
        QWPrefs prefs(kApplicationID);
        gPrefs = &prefs;
        QCOMPARE(theTypeSpeed, -1);
        prefs.setInteger(50, Pref::TypeSpeed);
        QCOMPARE(enterString("x", 9).first(), (KeyAction{KeyAction::Wait, 0, 0, {}, 125000}));
        QCOMPARE(theTypeSpeed, 50);
        prefs.setInteger(0, Pref::TypeSpeed);
        QCOMPARE(enterString("x", 9).at(1).type, KeyAction::SetClipboard);
        gPrefs = nullptr;
    }

    void tabsBeforeAField_data()
    {
        QTest::addColumn<QVariant>("tabSwitch");
        QTest::addColumn<QVariant>("count");
        QTest::addColumn<int>("tabs");
        QTest::addRow("0 is one Tab") << QVariant(true) << QVariant(qint64(0)) << 1;
        QTest::addRow("3 is four") << QVariant(true) << QVariant(qint64(3)) << 4;
        QTest::addRow("negative is none") << QVariant(true) << QVariant(qint64(-1)) << 0;
        QTest::addRow("switch off") << QVariant(false) << QVariant(qint64(3)) << 0;
        QTest::addRow("switch absent") << QVariant() << QVariant(qint64(3)) << 0;
        QTest::addRow("count absent") << QVariant(true) << QVariant() << 1;
        QTest::addRow("count not a number") << QVariant(true) << QVariant(QString("many")) << 1;
    }
    void tabsBeforeAField()
    {
        QFETCH(QVariant, tabSwitch);
        QFETCH(QVariant, count);
        QFETCH(int, tabs);
        Entry e;
        if (tabSwitch.isValid())
            e.insert("websitePasswordTabSwitch", tabSwitch);
        if (count.isValid())
            e.insert("websitePasswordTabCount", count);
        e.insert("websiteUserIDTabSwitch", true);
        e.insert("websiteUserIDTabCount", qint64(5));
        QCOMPARE(doTABs("Password", e), [&] {
            KeyScript s;
            for (int i = 0; i < tabs; ++i)
                s += tab();
            return s;
        }());
    }

    void playingThroughASink()
    {
        RecordingKeySink sink;
        KeyScriptPlayer player(&sink);
        QSignalSpy done(&player, &KeyScriptPlayer::finished);
        QElapsedTimer t;
        t.start();
        player.play(typeString("abc", 90)); // 25 ms before each
        QVERIFY(done.wait(2000));
        QVERIFY(t.elapsed() >= 74);
        QCOMPARE(sink.typedText(), QString("abc"));
        QCOMPARE(sink.events.size(), 6);
        player.play(pasteString("pw", 9));
        QVERIFY(done.wait(3000));
        QCOMPARE(sink.clipboard, QStringList{"pw"});
        QCOMPARE(sink.events.last(), (RecordingKeySink::Event{9, 0, false, {}}));
    }
};

QTEST_GUILESS_MAIN(TestKeys)
#include "tst_keys.moc"
