// Opening and saving password files of 1,000 to 100,000 entries, one key derivation, and one
// search step over 100,000 entries.

#include "BenchHome.h"
#include "core/entries/EntryList.h"
#include "core/entries/Search.h"
#include "core/storage/PasswordFile.h"
#include "core/storage/QWCrypt.h"
#include "support/FileSupport.h"
#include "support/TestSupport.h"

#include <benchmark/benchmark.h>

#include <QDir>

using namespace tess;

namespace {

QString packageWith(int n)
{
    const QString path = bench::benchHome() + QStringLiteral("/bench-%1.qvm").arg(n);
    if (!QFileInfo::exists(path))
        testsupport::makePackage(path, QStringLiteral("password"), testsupport::sampleEntries(n), {QStringLiteral("Site 00001")});
    return path;
}

} // namespace

static void BM_KeyDerivation(benchmark::State &state)
{
    QWCrypt crypt(QStringLiteral("Tessaline"), QStringLiteral("bench"), nullptr);
    crypt.setCurrentParameters();
    for (auto _ : state)
        crypt.setKeyFrom(QStringLiteral("correct horse battery staple"), true);
}
BENCHMARK(BM_KeyDerivation)->Unit(benchmark::kMillisecond);

// The whole opening: two key derivations, decrypt, unarchive, build the list, and the write of
// the recent-websites file that opening does.
static void BM_OpenFile(benchmark::State &state)
{
    const QString path = packageWith(int(state.range(0)));
    for (auto _ : state) {
        testsupport::ScriptedDelegate d;
        d.passwords = {QStringLiteral("password")};
        PasswordFile file(path, nullptr, &d);
        if (file.open(PasswordFile::KeychainUse::Never) != PasswordFile::OpenResult::Opened)
            state.SkipWithError("open failed");
        benchmark::DoNotOptimize(file.passwordArray().size());
        state.PauseTiming();
        file.close();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_OpenFile)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// Sort, archive, encrypt, write (with fsync) after a one-entry change.
static void BM_SaveFile(benchmark::State &state)
{
    const QString path = packageWith(int(state.range(0)));
    testsupport::ScriptedDelegate d;
    d.passwords = {QStringLiteral("password")};
    PasswordFile file(path, nullptr, &d);
    file.open(PasswordFile::KeychainUse::Never);
    int i = 0;
    for (auto _ : state) {
        state.PauseTiming();
        file.passwordArray().append(Entry{{EntryKey::Path, QStringLiteral("Added %1").arg(i++)}});
        state.ResumeTiming();
        if (!file.save())
            state.SkipWithError("save failed");
    }
}
BENCHMARK(BM_SaveFile)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// The same save when another program saved an entry since the last read: the file is read,
// decrypted and merged three ways first.
static void BM_SaveMergingOutsideChange(benchmark::State &state)
{
    const QString path = packageWith(int(state.range(0)));
    testsupport::ScriptedDelegate d;
    d.passwords = {QStringLiteral("password"), QStringLiteral("password")};
    PasswordFile mine(path, nullptr, &d), theirs(path, nullptr, &d);
    mine.open(PasswordFile::KeychainUse::Never);
    theirs.open(PasswordFile::KeychainUse::Never);
    int i = 0;
    for (auto _ : state) {
        state.PauseTiming();
        theirs.passwordArray().append(Entry{{EntryKey::Path, QStringLiteral("Theirs %1").arg(i)}});
        theirs.save();
        mine.passwordArray().append(Entry{{EntryKey::Path, QStringLiteral("Mine %1").arg(i++)}});
        state.ResumeTiming();
        if (!mine.save())
            state.SkipWithError("save failed");
    }
}
BENCHMARK(BM_SaveMergingOutsideChange)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// One search step that has to look at every entry before it finds the last one.
static void BM_SearchStep(benchmark::State &state)
{
    EntryList list = testsupport::sampleEntries(int(state.range(0)));
    const QString needle = QStringLiteral("Site %1").arg(state.range(0) - 2, 5, 10, QLatin1Char('0'));
    for (auto _ : state)
        benchmark::DoNotOptimize(searchStep(list, 0, needle.mid(1), true));
}
BENCHMARK(BM_SearchStep)->Arg(100000)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    return bench::runInScratchHome(argc, argv);
}
