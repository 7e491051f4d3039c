// Logins into a real Chromium, on the login pages of tests/login_server.py: characters per
// second typed at speed 100 (10,000 characters, with more distinct characters without a key
// than the server has spare keycodes), checked against what the form posted; and a whole login
// through the runner, timed beyond the pauses its script prescribes. Needs the session of
// scripts/test-env.sh (make bench) and Chromium.

#include "support/LoginSupport.h"

#include "core/login/LoginRunner.h"
#include "platform/linux/Browsers.h"
#include "platform/x11/XTestKeySink.h"
#include "platform/x11/XkbKeyboardLayout.h"

#include <benchmark/benchmark.h>

#include <QElapsedTimer>
#include <QEventLoop>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>
#include <memory>

using namespace tess;
using namespace tess::testsupport;

namespace {

const QString kBrowserID = QStringLiteral("tessaline-bench-chromium.desktop");

void spin(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

// The pages, Chromium (started once, on the first page) and the typing engine.
struct Session {
    QTemporaryDir dir;
    LoginPages pages;
    GioWorkspace workspace;
    std::unique_ptr<XkbKeyboardLayout> layout;
    std::unique_ptr<XTestKeySink> sink;
    QString failure;

    Session()
    {
        auto *x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
        layout = std::make_unique<XkbKeyboardLayout>(x11->connection());
        qGuiApp->installNativeEventFilter(layout.get());
        sink = std::make_unique<XTestKeySink>(x11->connection(), layout.get());
        if (!pages.start(dir.filePath("posted.jsonl"))) {
            failure = "the login pages did not start";
            return;
        }
        if (!installBrowserDesktopFile(kBrowserID, "Bench Chromium", chromiumCommand(dir.filePath("profile")))) {
            failure = "the browser's desktop file could not be installed";
            return;
        }
        if (!startChromium(dir.filePath("profile"), pages))
            failure = "Chromium did not start";
    }
    ~Session() { stopChromium(dir.filePath("profile")); }
};

Session *gSession = nullptr;

// Random printable ASCII; with `distinct` > 0, every fifth character is one of `distinct`
// characters no US key has (Greek, Cyrillic, then CJK) or an emoji; with lineLength > 0, a line
// break after that many characters.
QString sampleText(int n, int distinct, int lineLength)
{
    static const QString ascii = QStringLiteral(
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789!\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~ ");
    QList<char32_t> others;
    for (char32_t c = 0x3b1; c <= 0x3c9 && others.size() < distinct; ++c)
        others.append(c);
    for (char32_t c = 0x430; c <= 0x44f && others.size() < distinct; ++c)
        others.append(c);
    for (char32_t c = 0x4e00; others.size() < distinct; ++c)
        others.append(c);
    others.append(0x1f600);
    QRandomGenerator rng(7);
    QString s;
    for (int i = 1; s.size() < n; ++i) {
        if (lineLength > 0 && i % lineLength == 0) {
            s += u'\n';
        } else if (distinct > 0 && i % 5 == 0) {
            const char32_t c = others.at(rng.bounded(int(others.size())));
            if (s.size() + QChar::requiresSurrogates(c) + 1 <= n)
                s += QString::fromUcs4(&c, 1);
        } else {
            s += ascii.at(rng.bounded(int(ascii.size())));
        }
    }
    return s;
}

// Arguments: the number of characters; 1 for characters without a key, more distinct ones than
// spare keycodes, 0 for ASCII only; 1 for a text area with lines of 80 characters, 0 for the
// user-ID field (one line).
void BM_TypingIntoChromium(benchmark::State &state)
{
    if (!gSession->failure.isEmpty()) {
        state.SkipWithError(gSession->failure.toUtf8().constData());
        return;
    }
    const int spare = gSession->sink->spareKeycodeCount();
    const int distinct = state.range(1) ? spare + 40 : 0;
    const bool textArea = state.range(2) != 0;
    const QString text = sampleText(int(state.range(0)), distinct, textArea ? 80 : 0);
    // A new tab with the page, its field focused (typed earlier, the text would go to the
    // address bar: on a loaded machine a new tab takes seconds).
    gSession->workspace.openURLWithApplication(gSession->pages.url(textArea ? "long" : "one"), kBrowserID);
    spin(8000);
    KeyScriptPlayer player(gSession->sink.get());
    double wrong = 0, typedSeconds = 0;
    for (auto _ : state) {
        qint64 typedNanos = 0;
        QElapsedTimer clock;
        QObject::connect(&player, &KeyScriptPlayer::finished, [&] { typedNanos = clock.nsecsElapsed(); });
        QObject::connect(&player, &KeyScriptPlayer::failed, [&](const QString &why) {
            state.SkipWithError(why.toUtf8().constData());
        });
        KeyScript script = typeString(text, 100);
        if (textArea)
            script += tab(); // to the submit button: Return in a text area is a line break
        script += nextPage();
        clock.start();
        player.play(script);
        // The form's post: Chromium has handled every key.
        const QList<QJsonObject> forms = gSession->pages.posted(1, 600000);
        const qint64 nanos = clock.nsecsElapsed();
        player.disconnect();
        QString got = forms.isEmpty() ? QString() : forms[0].value(textArea ? "text" : "user").toString();
        got.replace(QStringLiteral("\r\n"), QStringLiteral("\n")); // a form posts line breaks as CR LF
        // The span that differs, between the common beginning and the common end.
        qsizetype same = 0, sameEnd = 0;
        while (same < std::min(got.size(), text.size()) && got[same] == text[same])
            ++same;
        while (sameEnd < std::min(got.size(), text.size()) - same && got[got.size() - 1 - sameEnd] == text[text.size() - 1 - sameEnd])
            ++sameEnd;
        wrong += double(std::max(got.size(), text.size()) - same - sameEnd);
        if (got != text)
            std::fprintf(stderr, "differs from character %lld: sent \"%s\", posted \"%s\"\n", qlonglong(same),
                         text.mid(same, 20).toUtf8().constData(), got.mid(same, 20).toUtf8().constData());
        typedSeconds += double(typedNanos) / 1e9;
        state.SetIterationTime(double(nanos) / 1e9);
        // The answer page comes with its field focused again.
        spin(1500);
    }
    state.counters["chars_per_s"] = benchmark::Counter(double(text.size()) * double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["spare_keycodes"] = spare;
    state.counters["distinct_without_key"] = distinct ? distinct + 1 : 0;
    state.counters["sent_s"] = typedSeconds / double(state.iterations());
    state.counters["differing_chars"] = wrong; // 0: the page got exactly what was typed
}

// A whole login through the runner (Go To URL: a new tab of the running Chromium, the page-load
// delay, user ID, Tab, password, Return), from goTo to the post, less the prescribed pauses.
void BM_LoginOverheadInChromium(benchmark::State &state)
{
    if (!gSession->failure.isEmpty()) {
        state.SkipWithError(gSession->failure.toUtf8().constData());
        return;
    }
    const QString password = QString::fromUtf8("p@ss w0rd é€😀");
    const Entry entry{{EntryKey::URL, gSession->pages.url("one")}, {EntryKey::NewUserIDOptions, 1},
                      {EntryKey::BrowserBundleID, kBrowserID}, {EntryKey::UserID, "someone@example.org"},
                      {EntryKey::Password, password}, {EntryKey::PasswordTabSwitch, true},
                      {EntryKey::PasswordEnter, true}};
    const LoginSettings settings{6}; // the page-load delay, in seconds: ample on a loaded machine
    qint64 prescribed = 0;
    for (const KeyAction &a : loginScript(entry, LoginStart::GoTo, settings))
        if (a.type == KeyAction::Pause)
            prescribed += a.micros;
    LoginRunner runner(gSession->sink.get(), &gSession->workspace);
    runner.setSettingsSource([&] { return settings; });
    runner.setTypeSpeedSource([] { return qint64(100); });
    double overheadMs = 0, wrong = 0;
    for (auto _ : state) {
        QElapsedTimer clock;
        clock.start();
        QString why;
        if (!runner.goTo(entry, &why)) {
            state.SkipWithError(why.toUtf8().constData());
            return;
        }
        const QList<QJsonObject> forms = gSession->pages.posted(1, 60000);
        const qint64 micros = clock.nsecsElapsed() / 1000 - prescribed;
        const bool exact = forms.size() == 1 && forms[0].value("user") == "someone@example.org" && forms[0].value("password") == password;
        if (!exact) {
            wrong += 1;
            std::fprintf(stderr, "posted: %s\n", forms.isEmpty() ? "nothing" : QJsonDocument(forms[0]).toJson(QJsonDocument::Compact).constData());
        }
        overheadMs += double(micros) / 1000.0;
        state.SetIterationTime(double(micros) / 1e6);
        spin(500);
    }
    state.counters["overhead_ms"] = overheadMs / double(state.iterations());
    state.counters["wrong_posts"] = wrong;
}
BENCHMARK(BM_LoginOverheadInChromium)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);

BENCHMARK(BM_TypingIntoChromium)
    ->Args({10000, 1, 1})
    ->Args({10000, 0, 1})
    ->Args({10000, 1, 0})
    ->Args({10000, 0, 0})
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    if (!app.nativeInterface<QNativeInterface::QX11Application>() || QStandardPaths::findExecutable("chromium").isEmpty()) {
        std::fprintf(stderr, "bench_login_chromium: needs an X display and chromium (make bench)\n");
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    Session session;
    gSession = &session;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    gSession = nullptr;
    return 0;
}
