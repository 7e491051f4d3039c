// Logins into a real Chromium, on the login pages of tests/login_server.py: characters per
// second typed at speed 100 (10,000 characters, with more distinct characters without a key
// than the server has places to bind them), checked against what the form posted; and a whole
// login through the runner, timed beyond the pauses its script prescribes. Needs the session
// of scripts/test-env.sh (make bench) and Chromium.
//
// Chromium runs with the flags of the end-to-end tests (software rendering among them). Its
// CPU time per process kind is reported beside each rate: it is what bounds the rates on this
// machine, with characters without a key too (the engine waits for Chromium's report that it
// has handled the keys before rebinding a keycode, and sends its part well before the renderer
// is through; "sent_s" says when). Trying other set-ups goes through TESSALINE_BENCH_CHROMIUM_FLAGS (extra flags);
// a smaller window, renderer accessibility off, no vsync or frame-rate limit (and NO_AT_BRIDGE
// in the environment) changed its CPU per character by less than the noise of a shared machine.

#include "support/LoginSite.h"

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

void spin(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

// The pages, Chromium (started once, on the first page) and the typing engine.
struct Session {
    LoginSite site;
    GioWorkspace workspace;
    std::unique_ptr<XkbKeyboardLayout> layout;
    std::unique_ptr<XTestKeySink> sink;
    QString failure;

    explicit Session(const QStringList &chromiumFlags) : site(chromiumFlags)
    {
        auto *x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
        layout = std::make_unique<XkbKeyboardLayout>(x11->connection());
        qGuiApp->installNativeEventFilter(layout.get());
        sink = std::make_unique<XTestKeySink>(x11->connection(), layout.get());
        failure = site.start(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + "/applications");
        if (failure.isEmpty() && !site.startBrowser())
            failure = "Chromium did not start";
    }
};

Session *gSession = nullptr;

// Random printable ASCII; with `distinct` > 0, every fifth character is one of `distinct`
// characters no US key has (Greek, Cyrillic, then CJK) or an emoji.
QString sampleText(int n, int distinct)
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
        if (distinct > 0 && i % 5 == 0) {
            const char32_t c = others.at(rng.bounded(int(others.size())));
            if (s.size() + QChar::requiresSurrogates(c) + 1 <= n)
                s += QString::fromUcs4(&c, 1);
        } else {
            s += ascii.at(rng.bounded(int(ascii.size())));
        }
    }
    return s;
}

// The text cut into fields of at most `length` UTF-16 units, never inside a character.
QStringList fieldTexts(const QString &text, qsizetype length)
{
    QStringList parts;
    for (qsizetype i = 0; i < text.size();) {
        qsizetype n = std::min(length, text.size() - i);
        if (i + n < text.size() && QChar::isLowSurrogate(text.at(i + n).unicode()))
            --n;
        parts.append(text.mid(i, n));
        i += n;
    }
    return parts;
}

// Arguments: the number of characters; 1 for characters without a key (more distinct ones
// than spare keycodes), 0 for ASCII only; how many characters go into one field.
//
// Why the text is spread over fields: Chromium's cost per key grows with the length of the
// field it goes into (it lays the whole field's text out again at every key). Measured on this
// set-up (Debian's Chromium, software rendering, 2 cores): its CPU per character, browser plus
// renderer, is about 2.7 ms in a field of 1,000 characters and 5 ms on average over a field
// filled to 10,000, so one field of 10,000 measures Chromium's text layout more than typing.
// Logins type short fields; fields of 100 or 1,000, with a Tab from one to the next, keep the
// field short while every one of the 10,000 characters still goes through our engine, the X
// server and Chromium's input path, and is compared with what the form posted. Text mixing
// scripts and emoji costs the renderer much more per key in the longer fields (font fallback
// over the whole field). The one-field case stays registered for comparison. The rate counts the time until the form's post arrived
// (looked for every 5 ms), not until our engine had sent the last key.
void BM_TypingIntoChromium(benchmark::State &state)
{
    if (!gSession->failure.isEmpty()) {
        state.SkipWithError(gSession->failure.toUtf8().constData());
        return;
    }
    const int spare = gSession->sink->spareKeycodeCount();
    const int distinct = state.range(1) ? spare + 40 : 0;
    const QString text = sampleText(int(state.range(0)), distinct);
    const QStringList parts = fieldTexts(text, state.range(2));
    const QString page = QStringLiteral("fields%1").arg(parts.size());
    // A new tab with the page, its first field focused (typed earlier, the text would go to
    // the address bar: on a loaded machine a new tab takes seconds).
    gSession->workspace.openURLWithApplication(gSession->site.url(page.toLatin1().constData()), LoginSite::kBrowserID);
    spin(8000);
    KeyScriptPlayer player(gSession->sink.get());
    double wrong = 0, typedSeconds = 0;
    QMap<QString, double> cpu; // Chromium's CPU seconds while it took the text in, per process kind
    for (auto _ : state) {
        qint64 typedNanos = 0;
        QElapsedTimer clock;
        QObject::connect(&player, &KeyScriptPlayer::finished, [&] { typedNanos = clock.nsecsElapsed(); });
        QObject::connect(&player, &KeyScriptPlayer::failed, [&](const QString &why) {
            state.SkipWithError(why.toUtf8().constData());
        });
        KeyScript script;
        for (qsizetype i = 0; i < parts.size(); ++i) {
            if (i > 0)
                script += tab();
            script += typeString(parts[i], 100);
        }
        script += nextPage();
        const QMap<QString, double> cpuBefore = gSession->site.browserCpuSeconds();
        clock.start();
        player.play(script);
        // The form's post: Chromium has handled every key.
        const QList<QJsonObject> forms = gSession->site.posted(1, 600000);
        const qint64 nanos = clock.nsecsElapsed();
        player.disconnect();
        const QMap<QString, double> cpuAfter = gSession->site.browserCpuSeconds();
        for (auto it = cpuAfter.cbegin(); it != cpuAfter.cend(); ++it)
            cpu[it.key()] += it.value() - cpuBefore.value(it.key());
        QString got;
        for (qsizetype i = 0; i < parts.size() && !forms.isEmpty(); ++i)
            got += forms[0].value(QStringLiteral("f%1").arg(i + 1)).toString();
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
        // The answer page comes with its first field focused again.
        spin(1500);
    }
    state.counters["chars_per_s"] = benchmark::Counter(double(text.size()) * double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["spare_keycodes"] = spare;
    state.counters["distinct_without_key"] = distinct ? distinct + 1 : 0;
    state.counters["sent_s"] = typedSeconds / double(state.iterations());
    state.counters["differing_chars"] = wrong; // 0: the page got exactly what was typed
    for (auto it = cpu.cbegin(); it != cpu.cend(); ++it)
        state.counters["cpu_s_" + it.key().toStdString()] = it.value() / double(state.iterations());
}

// Forwards to the X sink and notes when each part of a login's typing happened, so that the
// overhead can be broken down; the engine itself carries no timing code.
class TimingKeySink : public KeySink {
public:
    explicit TimingKeySink(KeySink *sink) : m_sink(sink) { m_clock.start(); }

    // Microseconds, summed over a login.
    struct Parts {
        qint64 releaseWait = 0; // from a step's first check until no key was held
        qint64 prepare = 0;     // prepare() itself (keymap reads, Caps Lock, binding)
        qint64 settle = 0;      // the settle prepare() asked for
        qint64 typing = 0;      // a step's first key to its last
        qint64 lastKey = -1;    // when the last key went out
        qint64 betweenSteps = 0; // from the end of a step (or the launch) to the next one's first check
    };
    Parts parts;
    // A login starts: its first pause begins now.
    void reset()
    {
        parts = {};
        m_firstCheck = m_firstKey = -1;
        m_stepEnded = now();
    }
    qint64 now() const { return m_clock.nsecsElapsed() / 1000; }

    void keyEvent(int keyCode, quint64 flags, bool down, const QString &unicode) override
    {
        m_sink->keyEvent(keyCode, flags, down, unicode);
        const qint64 t = now();
        if (m_firstKey < 0)
            m_firstKey = t;
        parts.lastKey = t;
    }
    void setClipboard(const QString &text) override { m_sink->setClipboard(text); }
    QString notReadyReason() override
    {
        if (m_firstCheck < 0) {
            m_firstCheck = now();
            parts.betweenSteps += m_firstCheck - m_stepEnded;
        }
        const QString reason = m_sink->notReadyReason();
        if (reason.isEmpty()) {
            parts.releaseWait += now() - m_firstCheck;
            m_firstCheck = -1;
        }
        return reason;
    }
    qint64 prepare(QStringView characters) override
    {
        const qint64 t = now();
        const qint64 settle = m_sink->prepare(characters);
        parts.prepare += now() - t;
        parts.settle += std::max<qint64>(0, settle);
        return settle;
    }
    // Off: every step binds its keys itself, at its start, as it did before they were bound
    // during the pause before it.
    bool aheadOn = true;
    void prepareAhead(QStringView characters) override
    {
        if (aheadOn)
            m_sink->prepareAhead(characters);
    }
    qint64 readyFor(QStringView upcoming) override { return m_sink->readyFor(upcoming); }
    void finish() override
    {
        if (m_firstKey >= 0)
            parts.typing += parts.lastKey - m_firstKey;
        m_firstKey = -1;
        m_sink->finish();
        m_stepEnded = now();
    }
    void cancel() override { m_sink->cancel(); }
    QString failureReason() const override { return m_sink->failureReason(); }

private:
    KeySink *m_sink;
    QElapsedTimer m_clock;
    qint64 m_firstCheck = -1;
    qint64 m_firstKey = -1;
    qint64 m_stepEnded = 0;
};

// A whole login through the runner (Go To URL: a new tab of the running Chromium, the page-load
// delay, user ID, Tab, password, Return), from goTo to the post, less the prescribed pauses.
// Argument: whether keys for characters without one are bound during the pause before a step.
void BM_LoginOverheadInChromium(benchmark::State &state)
{
    if (!gSession->failure.isEmpty()) {
        state.SkipWithError(gSession->failure.toUtf8().constData());
        return;
    }
    const QString password = QString::fromUtf8("p@ss w0rd é€😀");
    const Entry entry{{EntryKey::URL, gSession->site.url("one")}, {EntryKey::NewUserIDOptions, 1},
                      {EntryKey::BrowserBundleID, LoginSite::kBrowserID}, {EntryKey::UserID, "someone@example.org"},
                      {EntryKey::Password, password}, {EntryKey::PasswordTabSwitch, true},
                      {EntryKey::PasswordEnter, true}};
    const LoginSettings settings{6}; // the page-load delay, in seconds: ample on a loaded machine
    qint64 prescribed = 0;
    for (const KeyAction &a : loginScript(entry, LoginStart::GoTo, settings))
        if (a.type == KeyAction::Pause)
            prescribed += a.micros;
    TimingKeySink timing(gSession->sink.get());
    timing.aheadOn = state.range(0) != 0;
    LoginRunner runner(&timing, &gSession->workspace);
    runner.setSettingsSource([&] { return settings; });
    runner.setTypeSpeedSource([] { return qint64(100); });
    double overheadMs = 0, wrong = 0;
    double launchMs = 0, pauseLateMs = 0, releaseMs = 0, prepareMs = 0, settleMs = 0, typingMs = 0, postMs = 0;
    for (auto _ : state) {
        timing.reset();
        const qint64 start = timing.now();
        QString why;
        if (!runner.goTo(entry, &why)) {
            state.SkipWithError(why.toUtf8().constData());
            return;
        }
        const qint64 launched = timing.now();
        const QList<QJsonObject> forms = gSession->site.posted(1, 60000);
        const qint64 end = timing.now();
        const qint64 micros = end - start - prescribed;
        launchMs += double(launched - start) / 1000.0;
        releaseMs += double(timing.parts.releaseWait) / 1000.0;
        prepareMs += double(timing.parts.prepare) / 1000.0;
        settleMs += double(timing.parts.settle) / 1000.0;
        typingMs += double(timing.parts.typing) / 1000.0;
        postMs += double(end - timing.parts.lastKey) / 1000.0;
        // The pauses ran from the start of goTo (the page-load delay counts from the request
        // to open the page) to each step's first check.
        pauseLateMs += double(timing.parts.betweenSteps - prescribed) / 1000.0;
        const bool exact = forms.size() == 1 && forms[0].value("user") == "someone@example.org" && forms[0].value("password") == password;
        if (!exact) {
            wrong += 1;
            std::fprintf(stderr, "posted: %s\n", forms.isEmpty() ? "nothing" : QJsonDocument(forms[0]).toJson(QJsonDocument::Compact).constData());
        }
        overheadMs += double(micros) / 1000.0;
        state.SetIterationTime(double(micros) / 1e6);
        spin(500);
    }
    const double n = double(state.iterations());
    state.counters["overhead_ms"] = overheadMs / n;
    // Where it goes: waiting for keys to be let go,
    // preparing each step and the settle it asked for, typing (first to last key of each
    // step), and from the last key (Return) to the form's post (Chromium, the page's server,
    // polled every 5 ms), and how late the steps began after their pauses. The rest: ending the
    // steps (Caps Lock check) and the player's own work. Starting the browser (goTo itself)
    // happens within the page-load delay, and is shown apart.
    state.counters["launch_ms"] = launchMs / n;
    state.counters["pause_late_ms"] = pauseLateMs / n;
    state.counters["release_wait_ms"] = releaseMs / n;
    state.counters["prepare_ms"] = prepareMs / n;
    state.counters["settle_ms"] = settleMs / n;
    state.counters["typing_ms"] = typingMs / n;
    state.counters["post_ms"] = postMs / n;
    state.counters["rest_ms"] = (overheadMs - pauseLateMs - releaseMs - prepareMs - settleMs - typingMs - postMs) / n;
    state.counters["wrong_posts"] = wrong;
}
BENCHMARK(BM_LoginOverheadInChromium)->ArgName("ahead")->Arg(0)->Arg(1)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);

BENCHMARK(BM_TypingIntoChromium)
    ->Args({10000, 1, 1000})
    ->Args({10000, 1, 100})
    ->Args({10000, 0, 100})
    ->Args({10000, 0, 1000})
    ->Args({10000, 0, 10000})
    ->Args({2000, 1, 1000})
    ->Args({2000, 0, 1000})
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
    // Extra Chromium flags, for trying how the browser's set-up changes its rate.
    Session session(qEnvironmentVariable("TESSALINE_BENCH_CHROMIUM_FLAGS").split(u' ', Qt::SkipEmptyParts));
    gSession = &session;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    gSession = nullptr;
    return 0;
}
