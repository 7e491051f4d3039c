// The time a login takes beyond the pauses its script prescribes (page-load delay, the 1-second
// pauses), played by the runner's player through a recording sink: the engine's own overhead,
// without a browser.

#include "core/login/LoginScript.h"
#include "platform/fake/RecordingKeySink.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>

using namespace tess;

namespace {

void BM_LoginOverheadBeyondPauses(benchmark::State &state)
{
    const Entry entry{{EntryKey::NewUserIDOptions, 1}, {EntryKey::UserID, "someone@example.org"},
                      {EntryKey::Password, QString::fromUtf8("p@ss w0rd é€😀")}, {EntryKey::PasswordTabSwitch, true},
                      {EntryKey::PasswordEnter, true}};
    const KeyScript script = loginScript(entry, LoginStart::GoTo, LoginSettings{0});
    qint64 prescribed = 0;
    for (const KeyAction &a : script)
        if (a.type == KeyAction::Pause)
            prescribed += a.micros;
    RecordingKeySink sink;
    KeyScriptPlayer player(&sink);
    player.setTypeSpeedSource([] { return qint64(100); });
    double overheadMs = 0;
    for (auto _ : state) {
        QEventLoop loop;
        QObject::connect(&player, &KeyScriptPlayer::finished, &loop, &QEventLoop::quit);
        QElapsedTimer t;
        t.start();
        player.play(script);
        loop.exec();
        const qint64 micros = t.nsecsElapsed() / 1000 - prescribed;
        overheadMs += double(micros) / 1000.0;
        state.SetIterationTime(double(micros) / 1e6);
        sink.events.clear();
    }
    state.counters["overhead_ms"] = benchmark::Counter(overheadMs / double(state.iterations()));
}
BENCHMARK(BM_LoginOverheadBeyondPauses)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
