// Shortcut validation and the recorder's behaviour without a display: which combinations are
// refused and with what texts, the modifier filtering, the cancel keys, the clear and
// snap-back buttons, the transition's timing, and the combination kept in the settings.

#include "core/app/QWPrefs.h"
#include "core/shortcuts/SRRecorderCell.h"
#include "core/shortcuts/SRValidator.h"
#include "platform/SystemShortcuts.h"
#include "platform/fake/UsKeyboardLayout.h"
#include "support/TestSupport.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

using namespace tess;
using tess::testsupport::ScopedHome;

namespace {

constexpr quint32 kCmd = CarbonMask::Command, kShift = CarbonMask::Shift, kOpt = CarbonMask::Option;
constexpr quint64 kCmdOpt = CocoaMask::Command | CocoaMask::Option;
constexpr int kU = 32, kQ = 12, kEscape = 53, kF5 = 96;

// The system's shortcuts as a fixed list; or a system that cannot be asked.
class ListedShortcuts : public SystemShortcuts {
public:
    QList<QPair<int, quint32>> taken;
    bool broken = false;
    int asked = 0;
    Answer isTaken(int keyCode, quint32 carbonFlags) override
    {
        ++asked;
        if (broken)
            return Answer::Unknown;
        return taken.contains({keyCode, carbonFlags}) ? Answer::Taken : Answer::Free;
    }
};

class Refuser : public SRValidatorDelegate {
public:
    QString reason;
    quint64 askedFlags = 0;
    bool shortcutValidatorIsKeyCodeAndFlagsTaken(SRValidator *, int, quint64 flags, QString *why) override
    {
        askedFlags = flags;
        *why = reason;
        return true;
    }
};

QList<SRMenuItem> appMenu()
{
    SRMenuItem quit{QStringLiteral("Quit Tessaline"), QStringLiteral("q"), CocoaMask::Command, {}};
    SRMenuItem find{QStringLiteral("Find Next"), QStringLiteral("G"), CocoaMask::Command, {}};
    SRMenuItem noKey{QStringLiteral("About"), QString(), 0, {}};
    SRMenuItem edit{QStringLiteral("Edit"), QString(), 0, {SRMenuItem{QStringLiteral("Find"), QString(), 0, {find}}}};
    return {SRMenuItem{QStringLiteral("File"), QString(), 0, {noKey, quit}}, edit};
}

} // namespace

class TestShortcuts : public QObject {
    Q_OBJECT

    UsKeyboardLayout m_layout;
    ListedShortcuts m_system;
    std::unique_ptr<ScopedHome> m_home;
    std::unique_ptr<QWPrefs> m_prefs;

private Q_SLOTS:
    void initTestCase()
    {
        SRKeyCodeTransformer::setKeyboardLayout(&m_layout);
        SRValidator::setMainMenuSource(appMenu);
    }

    void init()
    {
        m_system = {};
        SRValidator::setSystemShortcuts(&m_system);
        m_home = std::make_unique<ScopedHome>();
        m_prefs = std::make_unique<QWPrefs>(kApplicationID);
        gPrefs = m_prefs.get();
    }

    void cleanup()
    {
        gPrefs = nullptr;
        SRValidator::setSystemShortcuts(nullptr);
    }

    // --- SRValidator ---

    void delegateRefusalWithAndWithoutReason()
    {
        Refuser refuser;
        SRValidator v(&refuser);
        SRError e;
        QVERIFY(v.isKeyCodeAndFlagsTaken(kU, kCmd | kOpt, &e));
        QCOMPARE(refuser.askedFlags, kCmdOpt); // the delegate sees the Cocoa form
        QCOMPARE(e.localizedDescription, QString("The key combination Ctrl+Alt+U can't be used!"));
        QCOMPARE(e.localizedRecoverySuggestion,
                 QString("The key combination \"Ctrl + Alt + U\" can't be used because it's already used."));
        QCOMPARE(e.localizedRecoveryOptions, QStringList{"OK"});
        refuser.reason = QStringLiteral("it is the password hot key");
        QVERIFY(v.isKeyCodeAndFlagsTaken(kU, kCmd | kOpt, &e));
        QCOMPARE(e.localizedRecoverySuggestion,
                 QString("The key combination \"Ctrl + Alt + U\" can't be used because it is the password hot key."));
        QCOMPARE(m_system.asked, 0); // the delegate's word is final
    }

    void systemWideShortcut()
    {
        m_system.taken = {{kU, kCmd | kOpt}};
        SRValidator v;
        SRError e;
        // The function-key bit does not take part.
        QVERIFY(v.isKeyCodeAndFlagsTaken(kU, kCmd | kOpt | CarbonMask::Function, &e));
        QCOMPARE(e.localizedDescription, QString("The key combination Ctrl+Alt+U can't be used!"));
        QCOMPARE(e.localizedRecoverySuggestion,
                 QString("The key combination \"Ctrl + Alt + U\" can't be used because it's already used by a "
                         "system-wide keyboard shortcut."));
        QVERIFY(!v.isKeyCodeAndFlagsTaken(kU, kCmd | kOpt | kShift, &e));
        // The same answers without asking for an error.
        QVERIFY(v.isKeyCodeAndFlagsTaken(kU, kCmd | kOpt, nullptr));
        QVERIFY(!v.isKeyCodeAndFlagsTaken(kU, kCmd, nullptr));
    }

    void unknownSystemOrUnnamedKeyIsTakenSilently()
    {
        SRValidator v;
        SRError e;
        m_system.broken = true;
        QVERIFY(v.isKeyCodeAndFlagsTaken(kU, kCmd, &e));
        QVERIFY(e.localizedDescription.isEmpty());
        m_system.broken = false;
        QVERIFY(v.isKeyCodeAndFlagsTaken(127, kCmd, &e)); // no key has this code here
        QVERIFY(e.localizedDescription.isEmpty());
        // With no system source at all (no X server), nothing is taken system-wide.
        SRValidator::setSystemShortcuts(nullptr);
        QVERIFY(!v.isKeyCodeAndFlagsTaken(kU, kCmd, &e));
    }

    void menuItems()
    {
        SRValidator v;
        SRError e;
        QVERIFY(v.isKeyCodeAndFlagsTaken(kQ, kCmd, &e));
        QCOMPARE(e.localizedRecoverySuggestion,
                 QString("The key combination \"Ctrl + Q\" can't be used because it's already used by the menu item "
                         "\"Quit Tessaline\"."));
        QCOMPARE(e.localizedDescription, QString("The key combination Ctrl+Q can't be used!"));
        QVERIFY(!v.isKeyCodeAndFlagsTaken(kQ, kCmd | kShift, &e));
        QVERIFY(!v.isKeyCodeAndFlagsTaken(kQ, kCmd | kOpt, &e));
        // In a submenu of a submenu.
        QVERIFY(SRValidator::isKeyCodeAndFlagsTakenInMenu(5, kCmd, appMenu(), &e));
        QVERIFY(e.localizedRecoverySuggestion.endsWith("\"Find Next\"."));
        // An item with no key equivalent never matches.
        QVERIFY(!SRValidator::isKeyCodeAndFlagsTakenInMenu(0, 0, appMenu(), nullptr));
        // A named key written as Qt's menus write it.
        const QList<SRMenuItem> deleteItem = {SRMenuItem{QStringLiteral("Delete Entry"), QStringLiteral("Del"), CocoaMask::Command, {}}};
        QVERIFY(SRValidator::isKeyCodeAndFlagsTakenInMenu(117, kCmd, deleteItem, &e));
        QCOMPARE(e.localizedDescription, QString("The key combination Ctrl+Del can't be used!"));
        QCOMPARE(e.localizedRecoverySuggestion,
                 QString("The key combination \"Ctrl + Del\" can't be used because it's already used by the menu item \"Delete Entry\"."));
        QVERIFY(!SRValidator::isKeyCodeAndFlagsTakenInMenu(51, kCmd, deleteItem, nullptr));
    }

    // --- SRRecorderCell ---

    void recordsOnlyCombinationsWithModifiers()
    {
        SRRecorderCell cell;
        QSignalSpy changed(&cell, &SRRecorderCell::keyComboDidChange);
        QVERIFY(cell.performKeyEquivalent(49, 0, " ", " ", true)); // Space starts recording
        QVERIFY(cell.isRecording());
        QCOMPARE(cell.displayText(), QString("Type hotkey"));
        QVERIFY(!cell.performKeyEquivalent(kU, 0, "u", "u", true)); // U alone: ignored
        QVERIFY(cell.isRecording());
        cell.flagsChanged(kCmdOpt | CocoaMask::CapsLock);
        QCOMPARE(cell.recordingFlags(), kCmdOpt); // Caps Lock is not an allowed modifier
        QCOMPARE(cell.displayText(), QString("Ctrl+Alt+"));
        QVERIFY(cell.performKeyEquivalent(kU, kCmdOpt | CocoaMask::CapsLock, "u", "u", true));
        QVERIFY(!cell.isRecording());
        QCOMPARE(cell.keyCombo(), (KeyCombo{0x180000, 32}));
        QCOMPARE(cell.keyComboString(), QString("Ctrl+Alt+U"));
        QCOMPARE(changed.size(), 1);
        // F-keys carry the function-key bit, which is enough on its own.
        cell.startRecordingTransition();
        QVERIFY(cell.performKeyEquivalent(kF5, CocoaMask::Function, "", "F5", true));
        QCOMPARE(cell.keyCombo(), (KeyCombo{CocoaMask::Function, kF5}));
    }

    void cancelKeys()
    {
        SRRecorderCell cell;
        cell.setKeyCombo({kCmdOpt, kU});
        cell.startRecordingTransition();
        QVERIFY(cell.performKeyEquivalent(kEscape, 0, "\x1b", "\x1b", true));
        QVERIFY(!cell.isRecording());
        QCOMPARE(cell.keyCombo(), (KeyCombo{kCmdOpt, kU}));
        // Escape with a modifier is a combination like any other.
        cell.startRecordingTransition();
        QVERIFY(cell.performKeyEquivalent(kEscape, CocoaMask::Command, "\x1b", "\x1b", true));
        QCOMPARE(cell.keyCombo(), (KeyCombo{CocoaMask::Command, kEscape}));
        // Key-only combinations: Escape still cancels, unless it is to be recorded.
        cell.setAllowsKeyOnly(true, false);
        cell.startRecordingTransition();
        QVERIFY(cell.performKeyEquivalent(kEscape, 0, "\x1b", "\x1b", true));
        QCOMPARE(cell.keyCombo(), (KeyCombo{CocoaMask::Command, kEscape}));
        cell.setAllowsKeyOnly(true, true);
        cell.startRecordingTransition();
        QVERIFY(cell.performKeyEquivalent(kEscape, 0, "\x1b", "\x1b", true));
        QCOMPARE(cell.keyCombo(), (KeyCombo{0, kEscape}));
    }

    void keyWithoutCharactersBeepsAndEnds()
    {
        SRRecorderCell cell;
        int beeps = 0;
        cell.beep = [&] { ++beeps; };
        cell.startRecordingTransition();
        QVERIFY(cell.performKeyEquivalent(kU, kCmdOpt, "", "", true));
        QCOMPARE(beeps, 1);
        QVERIFY(!cell.isRecording());
        QCOMPARE(cell.keyCombo().code, qint64(-1));
    }

    void takenCombinationShowsTheAlertAndKeepsRecording()
    {
        m_system.taken = {{kU, kCmd | kOpt}};
        SRRecorderCell cell;
        QList<SRError> alerts;
        cell.showAlert = [&](const SRError &e) { alerts.append(e); };
        cell.currentModifierFlags = [] { return CocoaMask::Command; };
        cell.startRecordingTransition();
        QVERIFY(cell.performKeyEquivalent(kU, kCmdOpt, "u", "u", true));
        QCOMPARE(alerts.size(), 1);
        QVERIFY(alerts[0].localizedRecoverySuggestion.contains("system-wide keyboard shortcut"));
        QVERIFY(cell.isRecording());
        QCOMPARE(cell.recordingFlags(), CocoaMask::Command); // re-read after the alert
        QCOMPARE(cell.keyCombo().code, qint64(-1));
        // The owner's own rule comes first, with its reason.
        cell.isKeyCodeAndFlagsTakenHook = [](int code, quint64, QString *why) {
            *why = QStringLiteral("it's the user ID hot key");
            return code == 35;
        };
        QVERIFY(cell.performKeyEquivalent(35, kCmdOpt, "p", "p", true));
        QCOMPARE(alerts.size(), 2);
        QVERIFY(alerts[1].localizedRecoverySuggestion.endsWith("because it's the user ID hot key."));
    }

    void clearAndSnapBackButtons()
    {
        SRRecorderCell cell;
        cell.setKeyCombo({kCmdOpt, kU});
        QVERIFY(!cell.objectValue().isEmpty());
        cell.mouseReleased(SRRecorderCell::MouseUp::InCell);
        QVERIFY(cell.isRecording());
        cell.setMouseInsideTrackingArea(true);
        QCOMPARE(cell.displayText(), QString("Use old hotkey"));
        cell.mouseReleased(SRRecorderCell::MouseUp::InButton); // snap back
        QVERIFY(!cell.isRecording());
        QCOMPARE(cell.keyCombo(), (KeyCombo{kCmdOpt, kU}));
        cell.mouseReleased(SRRecorderCell::MouseUp::InButton); // clear
        QCOMPARE(cell.keyCombo().code, qint64(-1));
        QVERIFY(cell.objectValue().isEmpty());
        QCOMPARE(cell.displayText(), QString("Click to record hotkey"));
        // Losing the focus while recording ends it unchanged.
        cell.setKeyCombo({kCmdOpt, kU});
        cell.mouseReleased(SRRecorderCell::MouseUp::InCell);
        cell.resignFirstResponder();
        QVERIFY(!cell.isRecording());
        QCOMPARE(cell.keyCombo(), (KeyCombo{kCmdOpt, kU}));
    }

    void requiredAndAllowedFlags()
    {
        SRRecorderCell cell;
        cell.setRequiredFlags(CocoaMask::Command);
        cell.startRecordingTransition();
        QVERIFY(cell.performKeyEquivalent(kU, CocoaMask::Option, "u", "u", true));
        QCOMPARE(cell.keyCombo().flags, kCmdOpt);
        cell.setKeyCombo({CocoaMask::Shift, kU});
        QCOMPARE(cell.keyCombo().flags, CocoaMask::Shift | CocoaMask::Command);
        QSignalSpy changed(&cell, &SRRecorderCell::keyComboDidChange);
        cell.setRequiredFlags(0);
        cell.setAllowedFlags(CocoaMask::Command);
        QCOMPARE(cell.keyCombo().flags, CocoaMask::Command);
        QCOMPARE(changed.size(), 1);
    }

    void systemHotKeysOffExactlyWhileRecording()
    {
        SRRecorderCell cell;
        QList<bool> calls;
        cell.setSystemHotKeysOff = [&](bool off) { calls.append(off); };
        cell.startRecordingTransition();
        QCOMPARE(calls, QList<bool>()); // only when asked for
        cell.resignFirstResponder();
        cell.setCanCaptureGlobalHotKeys(true);
        cell.startRecordingTransition();
        QCOMPARE(calls, QList<bool>{true});
        cell.performKeyEquivalent(kU, kCmdOpt, "u", "u", true);
        QCOMPARE(calls, (QList<bool>{true, false}));
    }

    void transitionTakesElevenTicks()
    {
        SRRecorderCell cell;
        cell.setAnimates(true);
        cell.setStyle(1);
        int frames = 0;
        connect(&cell, &SRRecorderCell::needsDisplay, [&] { ++frames; });
        QSignalSpy recording(&cell, &SRRecorderCell::recordingChanged);
        QElapsedTimer clock;
        clock.start();
        cell.startRecordingTransition();
        QVERIFY(cell.isAnimatingNow() && !cell.isRecording());
        QVERIFY(recording.wait(2000));
        const qint64 ms = clock.elapsed();
        QVERIFY(cell.isRecording());
        QCOMPARE(frames, 11 + 1); // 11 ticks, then the recording look
        QVERIFY2(ms >= 11 * 33, qPrintable(QString::number(ms)));
        // Without animation (or in another style) at once.
        SRRecorderCell plain;
        plain.setAnimates(true);
        plain.startRecordingTransition();
        QVERIFY(plain.isRecording());
    }

    void keptInTheSettingsUnderItsAutosaveName()
    {
        {
            SRRecorderCell cell;
            cell.setAutosaveName(QStringLiteral("UserID"));
            cell.startRecordingTransition();
            cell.performKeyEquivalent(kU, kCmdOpt, QString(QChar(0xF8)), "u", true);
        }
        const QVariantMap saved = gPrefs->objectForKey("ShortcutRecorder UserID").toMap();
        QCOMPARE(saved.value("keyCode").toInt(), 32);
        QCOMPARE(saved.value("modifierFlags").toULongLong(), kCmdOpt);
        QCOMPARE(saved.value("modifiers").toUInt(), kCmd | kOpt);
        QCOMPARE(saved.value("keyCharsIgnoringModifiers").toString(), QString("u"));
        // A restart: the settings file read again.
        m_prefs = std::make_unique<QWPrefs>(kApplicationID);
        gPrefs = m_prefs.get();
        SRRecorderCell again;
        QSignalSpy changed(&again, &SRRecorderCell::keyComboDidChange);
        again.setAutosaveName(QStringLiteral("UserID"));
        QCOMPARE(again.keyCombo(), (KeyCombo{kCmdOpt, kU}));
        QCOMPARE(again.keyChars(), QString(QChar(0xF8)));
        QCOMPARE(changed.size(), 1);
        // Only the Carbon form, as older settings have it.
        gPrefs->setObject(QVariantMap{{"keyCode", 35}, {"modifiers", kCmd | kShift}}, "ShortcutRecorder Password");
        SRRecorderCell old;
        old.setAutosaveName(QStringLiteral("Password"));
        QCOMPARE(old.keyCombo(), (KeyCombo{CocoaMask::Command | CocoaMask::Shift, 35}));
    }
};

QTEST_GUILESS_MAIN(TestShortcuts)
#include "tst_shortcuts.moc"
