// Characters per second typed through XTest into a Qt line edit at speed 100, checked for
// exactness, beside `xdotool type --delay 0` on the same text. Needs an X display (make bench
// provides Xvfb).

#include "core/login/Typing.h"
#include "core/shortcuts/KeyNames.h"
#include "platform/x11/XTestKeySink.h"
#include "platform/x11/XkbKeyboardLayout.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QProcess>
#include <QRandomGenerator>
#include <QTest>

using namespace tess;

namespace {

QString sampleText(int n)
{
    static const QString alphabet = QStringLiteral(
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789!#$%&()*+,-./:;<=>?@[]^_{|}~");
    QRandomGenerator rng(42);
    QString s;
    for (int i = 0; i < n; ++i)
        s += alphabet.at(rng.bounded(int(alphabet.size())));
    return s;
}

// Waits until the field holds as many characters as were sent, or nothing arrives for 3 s.
qint64 waitForText(QLineEdit &edit, qsizetype expected, QElapsedTimer &clock)
{
    qsizetype last = -1;
    QElapsedTimer quiet;
    quiet.start();
    qint64 done = clock.nsecsElapsed();
    while (edit.text().size() < expected && quiet.elapsed() < 3000) {
        QTest::qWait(5);
        if (edit.text().size() != last) {
            last = edit.text().size();
            quiet.restart();
            done = clock.nsecsElapsed();
        }
    }
    return edit.text().size() >= expected ? clock.nsecsElapsed() : done;
}

void report(benchmark::State &state, const QString &sent, const QString &got, qint64 nanos)
{
    qsizetype wrong = std::abs(sent.size() - got.size());
    for (qsizetype i = 0; i < std::min(sent.size(), got.size()); ++i)
        wrong += sent[i] != got[i];
    state.SetIterationTime(double(nanos) / 1e9);
    state.counters["chars_per_s"] = double(got.size()) / (double(nanos) / 1e9);
    state.counters["lost_or_misplaced"] = double(wrong);
}

struct Target {
    QLineEdit edit;
    Target()
    {
        edit.setMaxLength(100000);
        edit.resize(800, 40);
        edit.show();
        (void)QTest::qWaitForWindowActive(&edit);
        edit.activateWindow();
        edit.setFocus();
        QTest::qWait(100);
    }
};

} // namespace

static void BM_TessalineTyping(benchmark::State &state)
{
    auto *x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    XkbKeyboardLayout layout(x11->connection());
    XTestKeySink sink(x11->connection(), &layout);
    KeyScriptPlayer player(&sink);
    const QString text = sampleText(int(state.range(0)));
    for (auto _ : state) {
        Target target;
        QElapsedTimer clock;
        clock.start();
        player.play(typeString(text, 100));
        const qint64 nanos = waitForText(target.edit, text.size(), clock);
        report(state, text, target.edit.text(), nanos);
    }
}
BENCHMARK(BM_TessalineTyping)->Arg(10000)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

static void BM_XdotoolType(benchmark::State &state)
{
    const QString text = sampleText(int(state.range(0)));
    for (auto _ : state) {
        Target target;
        QElapsedTimer clock;
        clock.start();
        QProcess xdotool;
        xdotool.start(QStringLiteral("xdotool"), {QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("0"), text});
        const qint64 nanos = waitForText(target.edit, text.size(), clock);
        xdotool.waitForFinished(60000);
        report(state, text, target.edit.text(), nanos);
    }
}
BENCHMARK(BM_XdotoolType)->Arg(10000)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    if (!app.nativeInterface<QNativeInterface::QX11Application>()) {
        std::fprintf(stderr, "bench_typing: needs an X display\n");
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
