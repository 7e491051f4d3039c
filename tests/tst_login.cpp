// The login sequences as scripts, for every option that changes them, and their player and
// runner over a recording sink and a workspace double: what is typed, in which order, with
// which pauses, and what is refused or stopped.

#include "core/app/QWPrefs.h"
#include "core/login/LoginRunner.h"
#include "core/login/LoginScript.h"
#include "platform/fake/RecordingKeySink.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

using namespace tess;

namespace {

constexpr qint64 kSecond = 1000000;

KeyScript warn() { return {{KeyAction::ShowWarning, 0, 0, {}, 0}}; }
KeyScript unwarn() { return {{KeyAction::HideWarning, 0, 0, {}, 0}}; }
KeyScript pause(qint64 micros) { return {{KeyAction::Pause, 0, 0, {}, micros}}; }
KeyScript field(const QString &text) { return {{KeyAction::EnterString, 0, 0, text, 0}}; }
KeyScript tabs(int n)
{
    KeyScript s;
    for (int i = 0; i < n; ++i)
        s += tab();
    return s;
}
KeyScript ret() { return nextPage(); }
KeyScript hook(const char *name, int argument = 0) { return {{KeyAction::BuiltInBrowser, argument, 0, QString::fromLatin1(name), 0}}; }
KeyScript floating(const QString &pw) { return {{KeyAction::ShowFloatingPassword, 0, 0, pw, 0}}; }

Entry entry(std::initializer_list<std::pair<QString, QVariant>> values)
{
    Entry e{{EntryKey::Path, "Site"}, {EntryKey::URL, "example.org"}, {EntryKey::UserID, "me"},
            {EntryKey::Password, "pw"}, {EntryKey::NewUserIDOptions, 1}};
    for (const auto &[k, v] : values) {
        if (v.isValid())
            e.insert(k, v);
        else
            e.remove(k);
    }
    return e;
}

// A workspace that opens nothing and remembers what it was asked.
class FakeWorkspace : public Workspace {
public:
    QList<BrowserInfo> browsers() override { return {}; }
    LaunchResult openURLWithApplication(const QString &url, const QString &desktopID) override
    {
        opened.append(desktopID + ' ' + url);
        QThread::msleep(startMs);
        LaunchResult r;
        r.status = installed.contains(desktopID) ? (broken ? LaunchResult::Failed : LaunchResult::Started)
                                                 : LaunchResult::NotFound;
        r.name = desktopID.chopped(8);
        r.error = QStringLiteral("exec failed");
        return r;
    }
    LaunchResult openURLInDefaultBrowser(const QString &url) override
    {
        opened.append("default " + url);
        LaunchResult r;
        r.status = LaunchResult::Started;
        r.name = QStringLiteral("Default");
        return r;
    }
    bool launchFailed(const LaunchResult &, QString *why) override
    {
        if (diesLater && why)
            *why = QStringLiteral("exit status 1");
        return diesLater;
    }
    QStringList installed{"chromium.desktop"};
    bool broken = false;
    bool diesLater = false;
    unsigned long startMs = 0; // how long starting the browser takes
    QStringList opened;
};

// A sink that notes when each key went out and whether it was stopped.
class TimedSink : public RecordingKeySink {
public:
    void keyEvent(int keyCode, quint64 flags, bool down, const QString &unicode) override
    {
        RecordingKeySink::keyEvent(keyCode, flags, down, unicode);
        if (down && !unicode.isEmpty())
            times.append(clock.nsecsElapsed() / 1000);
        if (stallAfter >= 0 && times.size() == stallAfter)
            QThread::msleep(120); // the event loop stalls
    }
    void cancel() override { ++cancels; }
    QElapsedTimer clock;
    QList<qint64> times;
    int stallAfter = -1;
    int cancels = 0;
};

} // namespace

class TestLogin : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void scripts_data()
    {
        QTest::addColumn<Entry>("entry");
        QTest::addColumn<int>("start");
        QTest::addColumn<KeyScript>("expected");
        const int goTo = int(LoginStart::GoTo), idKey = int(LoginStart::UserIDHotkey), pwKey = int(LoginStart::PasswordHotkey);
        const KeyScript load = warn() + pause(3 * kSecond);
        const QString pt = EntryKey::PasswordTabSwitch, pc = EntryKey::PasswordTabCount, po = EntryKey::PasswordOptions;

        QTest::addRow("go to without login") << entry({{EntryKey::NewUserIDOptions, 0}}) << goTo << KeyScript{};
        QTest::addRow("same page, no Tabs asked")
            << entry({}) << goTo << load + field("me") + pause(kSecond) + field("pw") + pause(kSecond) + unwarn() + unwarn();
        QTest::addRow("same page, one Tab each (count 0), Return after the password")
            << entry({{EntryKey::UserIDTabSwitch, true}, {EntryKey::UserIDTabCount, 0}, {pt, true}, {pc, 0}, {EntryKey::PasswordEnter, true}})
            << goTo
            << load + tabs(1) + field("me") + pause(kSecond) + tabs(1) + field("pw") + pause(kSecond) + ret() + unwarn() + unwarn();
        QTest::addRow("Tab counts 2 and 3")
            << entry({{EntryKey::UserIDTabSwitch, true}, {EntryKey::UserIDTabCount, 2}, {pt, true}, {pc, 3}}) << goTo
            << load + tabs(3) + field("me") + pause(kSecond) + tabs(4) + field("pw") + pause(kSecond) + unwarn() + unwarn();
        QTest::addRow("Tab switch off ignores the count")
            << entry({{EntryKey::UserIDTabSwitch, false}, {EntryKey::UserIDTabCount, 2}}) << goTo
            << load + field("me") + pause(kSecond) + field("pw") + pause(kSecond) + unwarn() + unwarn();
        QTest::addRow("second user ID")
            << entry({{EntryKey::UserID2, "me2"}, {pt, true}}) << goTo
            << load + field("me") + pause(kSecond) + tabs(1) + field("me2") + pause(kSecond) + tabs(1) + field("pw") +
                   pause(kSecond) + unwarn() + unwarn();
        QTest::addRow("Return after the user ID")
            << entry({{EntryKey::UserIDReturnSwitch, true}, {po, 2}}) << goTo << load + field("me") + pause(kSecond) + ret() + unwarn();
        QTest::addRow("password on the next page")
            << entry({{EntryKey::UserIDReturnSwitch, true}, {po, 1}, {pt, true}, {pc, 1}, {EntryKey::PasswordEnter, true}})
            << goTo
            << load + field("me") + pause(kSecond) + ret() + warn() + pause(3 * kSecond) + tabs(2) + field("pw") +
                   pause(kSecond) + ret() + unwarn() + unwarn();
        QTest::addRow("user ID only") << entry({{po, 2}, {pt, true}}) << goTo << load + field("me") + pause(kSecond) + unwarn();
        QTest::addRow("password shown, not typed")
            << entry({{po, 3}, {EntryKey::PasswordEnter, true}}) << goTo
            << load + field("me") + pause(kSecond) + floating("pw") + unwarn() + unwarn();
        QTest::addRow("no user ID, no password")
            << entry({{EntryKey::UserID, QVariant()}, {EntryKey::Password, QVariant()}, {pt, true}}) << goTo
            << load + pause(kSecond) + unwarn();
        QTest::addRow("user-ID hot key: no user-ID Tabs, the password's Tabs stay")
            << entry({{EntryKey::UserIDTabSwitch, true}, {EntryKey::UserIDTabCount, 2}, {pt, true}, {pc, 0}}) << idKey
            << field("me") + pause(kSecond) + tabs(1) + field("pw") + pause(kSecond) + unwarn();
        QTest::addRow("user-ID hot key, next page: waits for the page")
            << entry({{EntryKey::UserIDReturnSwitch, true}, {po, 1}}) << idKey
            << field("me") + pause(kSecond) + ret() + warn() + pause(3 * kSecond) + field("pw") + pause(kSecond) + unwarn();
        QTest::addRow("user-ID hot key, user ID only") << entry({{po, 2}}) << idKey << field("me") + pause(kSecond);
        QTest::addRow("password hot key: no Tabs, no page wait")
            << entry({{po, 1}, {pt, true}, {pc, 2}, {EntryKey::PasswordEnter, true}}) << pwKey
            << field("pw") + pause(kSecond) + ret() + unwarn();
        QTest::addRow("password hot key, option 3") << entry({{po, 3}}) << pwKey << floating("pw") + unwarn();
        QTest::addRow("password hot key without a password") << entry({{EntryKey::Password, QVariant()}}) << pwKey << KeyScript{};
        QTest::addRow("built-in browser: no pauses, its hooks")
            << entry({{EntryKey::UseDVBrowser, true}, {EntryKey::UserID2, "me2"}, {EntryKey::UserIDReturnSwitch, true}, {po, 1}})
            << idKey << field("me") + tabs(1) + field("me2") + hook("setAutoLogin", 2) + ret() + hook("showAutoWarning") + hook("pastePasswordFromTimer");
        QTest::addRow("built-in browser's password")
            << entry({{EntryKey::UseDVBrowser, true}, {EntryKey::PasswordEnter, true}}) << pwKey
            << field("pw") + hook("pasteNextPageFromTimer") + unwarn();
    }
    void scripts()
    {
        QFETCH(Entry, entry);
        QFETCH(int, start);
        QFETCH(KeyScript, expected);
        QCOMPARE(loginScript(entry, LoginStart(start), LoginSettings{3}), expected);
    }

    void addresses_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("opened");
        QTest::addRow("no scheme") << "example.org/login" << "http://example.org/login";
        QTest::addRow("http") << "http://a.test" << "http://a.test";
        QTest::addRow("https") << "https://a.test" << "https://a.test";
        QTest::addRow("file") << "file:///tmp/x.html" << "file:///tmp/x.html";
        QTest::addRow("capitals are not a scheme") << "HTTPS://a.test" << "http://HTTPS://a.test";
        QTest::addRow("none") << "" << "";
    }
    void addresses()
    {
        QFETCH(QString, url);
        QFETCH(QString, opened);
        QCOMPARE(urlToOpen(entry({{EntryKey::URL, url}})), opened);
    }

    // Each pause announces the characters of the typing step after it, before any of them is
    // typed: Tabs and Return carry none, a pasted field types none.
    void pausesAnnounceTheNextStepsCharacters()
    {
        RecordingKeySink sink;
        KeyScriptPlayer player(&sink);
        qint64 speed = 100;
        player.setTypeSpeedSource([&] { return speed; });
        QSignalSpy done(&player, &KeyScriptPlayer::finished);
        const QString unusual = QString::fromUtf8("é😀");
        QVERIFY(player.play(pause(1000) + field("ab") + tabs(1) + field(unusual) + pause(1000) + nextPage() + pause(0) +
                            field("cd")));
        QVERIFY(done.wait(3000));
        using Seen = QPair<QString, QString>;
        QCOMPARE(sink.preparedAhead, (QList<Seen>{{"", "ab" + unusual}}));
        speed = 0;
        QVERIFY(player.play(pause(1000) + field(unusual)));
        QVERIFY(done.wait(3000));
        QCOMPARE(sink.preparedAhead.size(), 1);
        QCOMPARE(sink.clipboard, QStringList{unusual});
    }

    // A step that waits for the user to let go of the hot key announces its characters once,
    // so that their keys are ready by the time it may type.
    void waitingForReleasedKeysAnnouncesTheStep()
    {
        struct HeldSink : RecordingKeySink {
            int held = 3;
            QString notReadyReason() override { return held-- > 0 ? QStringLiteral("Ctrl is still held down") : QString(); }
        } sink;
        KeyScriptPlayer player(&sink);
        player.setTypeSpeedSource([] { return qint64(100); });
        QSignalSpy done(&player, &KeyScriptPlayer::finished);
        const QString text = QString::fromUtf8("aé");
        QVERIFY(player.play(field(text)));
        QVERIFY(done.wait(3000));
        QCOMPARE(sink.preparedAhead, (QList<QPair<QString, QString>>{{"", text}}));
        QCOMPARE(sink.typedText(), text);
    }

    // The speed is read when the player reaches each field, not when the script is made.
    void speedIsReadAtTheField()
    {
        RecordingKeySink sink;
        KeyScriptPlayer player(&sink);
        qint64 speed = 100;
        player.setTypeSpeedSource([&] { return speed; });
        QSignalSpy done(&player, &KeyScriptPlayer::finished);
        QVERIFY(player.play(field("ab") + pause(50000) + field("cd")));
        speed = 0; // changed while the first field is typed and the pause runs
        QVERIFY(done.wait(3000));
        QCOMPARE(sink.typedText(), QString("ab"));
        QCOMPARE(sink.clipboard, QStringList{"cd"});
    }

    void secondScriptIsRefused()
    {
        RecordingKeySink sink;
        KeyScriptPlayer player(&sink);
        player.setTypeSpeedSource([] { return qint64(100); });
        QSignalSpy done(&player, &KeyScriptPlayer::finished);
        QVERIFY(player.play(pause(100000) + field("first")));
        QString why;
        QVERIFY(!player.play(field("second"), &why));
        QCOMPARE(why, KeyScriptPlayer::kBusy);
        QVERIFY(done.wait(3000));
        QCOMPARE(sink.typedText(), QString("first"));
        QCOMPARE(done.size(), 1);
    }

    void cancelSendsNothingMore()
    {
        TimedSink sink;
        KeyScriptPlayer player(&sink);
        player.setTypeSpeedSource([] { return qint64(60); }); // 100 ms a character
        QSignalSpy cancelled(&player, &KeyScriptPlayer::cancelled);
        QSignalSpy done(&player, &KeyScriptPlayer::finished);
        QVERIFY(player.play(field("abcdefgh")));
        QTRY_VERIFY(sink.times.size() >= 2);
        player.cancel();
        QCOMPARE(cancelled.size(), 1);
        QCOMPARE(sink.cancels, 1);
        const qsizetype typed = sink.events.size();
        QTest::qWait(400);
        QCOMPARE(sink.events.size(), typed);
        QVERIFY(!player.isPlaying());
        QVERIFY(done.isEmpty());
        QVERIFY(player.play(field("z")));
        QVERIFY(done.wait(2000));
    }

    // After a stall the characters keep their gap instead of catching up back to back.
    void perCharacterDelayIsAMinimumGap()
    {
        TimedSink sink;
        sink.clock.start();
        sink.stallAfter = 2;
        KeyScriptPlayer player(&sink);
        player.setTypeSpeedSource([] { return qint64(80); }); // 50 ms
        QSignalSpy done(&player, &KeyScriptPlayer::finished);
        QVERIFY(player.play(field("abcdef")));
        QVERIFY(done.wait(5000));
        QCOMPARE(sink.times.size(), 6);
        for (int i = 1; i < sink.times.size(); ++i)
            QVERIFY2(sink.times[i] - sink.times[i - 1] >= 50000, qPrintable(QString::number(sink.times[i] - sink.times[i - 1])));
    }

    void goToOpensTheEntrysBrowser_data()
    {
        QTest::addColumn<QString>("desktopID");
        QTest::addColumn<bool>("broken");
        QTest::addColumn<QStringList>("opened");
        QTest::addColumn<QString>("refusal");
        QTest::addRow("the entry's browser") << "chromium.desktop" << false
                                             << QStringList{"chromium.desktop http://example.org"} << "";
        QTest::addRow("no browser chosen") << "" << false << QStringList{"default http://example.org"} << "";
        QTest::addRow("uninstalled: the default browser")
            << "gone.desktop" << false << QStringList{"gone.desktop http://example.org", "default http://example.org"} << "";
        QTest::addRow("installed but does not start: said by name")
            << "chromium.desktop" << true << QStringList{"chromium.desktop http://example.org"}
            << "The browser \u201cchromium\u201d could not be started: exec failed";
    }
    void goToOpensTheEntrysBrowser()
    {
        QFETCH(QString, desktopID);
        QFETCH(bool, broken);
        QFETCH(QStringList, opened);
        QFETCH(QString, refusal);
        RecordingKeySink sink;
        FakeWorkspace workspace;
        workspace.broken = broken;
        LoginRunner runner(&sink, &workspace);
        runner.setSettingsSource([] { return LoginSettings{0}; });
        runner.setTypeSpeedSource([] { return qint64(100); });
        QSignalSpy done(&runner, &LoginRunner::finished);
        QSignalSpy warned(&runner, &LoginRunner::showFloatingWarning);
        QString why;
        const bool started = runner.goTo(entry({{EntryKey::BrowserBundleID, desktopID}, {EntryKey::PasswordTabSwitch, true}}), &why);
        QCOMPARE(workspace.opened, opened);
        QCOMPARE(why, refusal);
        QCOMPARE(started, refusal.isEmpty());
        if (!started) {
            QVERIFY(!runner.isRunning());
            QVERIFY(warned.isEmpty());
            QVERIFY(sink.events.isEmpty());
            return;
        }
        QVERIFY(done.wait(5000));
        QCOMPARE(warned.size(), 1);
        QCOMPARE(sink.typedText(), QString("mepw"));
    }

    // The page-load delay runs from the request to open the page, a slow browser start included:
    // the browser loads the page while it starts. Later pauses are not shortened.
    void pageLoadDelayCountsFromTheRequest()
    {
        TimedSink sink;
        FakeWorkspace workspace;
        workspace.startMs = 2500;
        LoginRunner runner(&sink, &workspace);
        runner.setSettingsSource([] { return LoginSettings{2}; });
        runner.setTypeSpeedSource([] { return qint64(100); });
        QSignalSpy done(&runner, &LoginRunner::finished);
        sink.clock.start();
        QVERIFY(runner.goTo(entry({{EntryKey::BrowserBundleID, "chromium.desktop"}, {EntryKey::UserID2, "second"}})));
        QVERIFY(done.wait(10000));
        QCOMPARE(sink.typedText(), QString("mesecondpw"));
        QVERIFY2(sink.times.first() >= 2000000 && sink.times.first() < 3500000, QByteArray::number(sink.times.first()));
        // The second user ID follows the first after a pause of its own, whole.
        QVERIFY(sink.times[2] - sink.times[1] >= 1000000);
    }

    void goToWithoutLoginOnlyOpens()
    {
        RecordingKeySink sink;
        FakeWorkspace workspace;
        LoginRunner runner(&sink, &workspace);
        QSignalSpy warned(&runner, &LoginRunner::showFloatingWarning);
        QVERIFY(runner.goTo(entry({{EntryKey::NewUserIDOptions, 0}})));
        QCOMPARE(workspace.opened, QStringList{"default http://example.org"});
        QVERIFY(!runner.isRunning());
        QVERIFY(warned.isEmpty());
        QVERIFY(sink.events.isEmpty());
        QVERIFY(!runner.goTo(entry({{EntryKey::URL, QVariant()}})));
        QCOMPARE(workspace.opened.size(), 1);
    }

    void builtInBrowserIsAskedFor()
    {
        RecordingKeySink sink;
        FakeWorkspace workspace;
        LoginRunner runner(&sink, &workspace);
        QSignalSpy open(&runner, &LoginRunner::openBuiltInBrowser);
        QVERIFY(runner.goTo(entry({{EntryKey::UseDVBrowser, true}, {EntryKey::BrowserBundleID, "chromium.desktop"}})));
        QCOMPARE(open.size(), 1);
        QCOMPARE(open.first(), (QVariantList{"http://example.org", true}));
        QVERIFY(workspace.opened.isEmpty());
    }

    void aBrowserThatDiesStopsTheLogin()
    {
        RecordingKeySink sink;
        FakeWorkspace workspace;
        workspace.diesLater = true;
        LoginRunner runner(&sink, &workspace);
        runner.setSettingsSource([] { return LoginSettings{1}; });
        QSignalSpy failed(&runner, &LoginRunner::failed);
        QSignalSpy hidden(&runner, &LoginRunner::hideFloatingWarning);
        QVERIFY(runner.goTo(entry({{EntryKey::BrowserBundleID, "chromium.desktop"}})));
        QVERIFY(failed.wait(3000));
        QCOMPARE(failed.first().first().toString(), QString("The browser \u201cchromium\u201d could not be started: exit status 1"));
        QVERIFY(!hidden.isEmpty());
        QVERIFY(sink.events.isEmpty());
        QVERIFY(!runner.isRunning());
    }

    void secondLoginIsRefusedAndCancelStops()
    {
        RecordingKeySink sink;
        FakeWorkspace workspace;
        LoginRunner runner(&sink, &workspace);
        runner.setSettingsSource([] { return LoginSettings{1}; });
        QSignalSpy cancelled(&runner, &LoginRunner::cancelled);
        QSignalSpy hidden(&runner, &LoginRunner::hideFloatingWarning);
        QVERIFY(runner.goTo(entry({})));
        QVERIFY(runner.isRunning());
        QString why;
        QVERIFY(!runner.pastePasswordFromHotkey(entry({}), true, &why));
        QCOMPARE(why, LoginRunner::kBusy);
        QVERIFY(!runner.goTo(entry({}), &why));
        QCOMPARE(workspace.opened.size(), 1);
        runner.cancel();
        QCOMPARE(cancelled.size(), 1);
        QCOMPARE(hidden.size(), 1);
        QVERIFY(!runner.isRunning());
        QTest::qWait(1200);
        QVERIFY(sink.events.isEmpty());
    }

    void floatingPasswordInsteadOfTyping()
    {
        RecordingKeySink sink;
        FakeWorkspace workspace;
        LoginRunner runner(&sink, &workspace);
        QSignalSpy shown(&runner, &LoginRunner::showFloatingPassword);
        QSignalSpy done(&runner, &LoginRunner::finished);
        QVERIFY(runner.pastePasswordFromHotkey(entry({{EntryKey::PasswordOptions, 3}}), true));
        QVERIFY(!done.isEmpty() || done.wait(1000));
        QCOMPARE(shown.size(), 1);
        QCOMPARE(shown.first().first().toString(), QString("pw"));
        QVERIFY(sink.events.isEmpty());
        QVERIFY(sink.clipboard.isEmpty());
    }
};

QTEST_MAIN(TestLogin)
#include "tst_login.moc"
