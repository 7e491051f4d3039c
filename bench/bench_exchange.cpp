// Importing and exporting 10,000 records: the parser and mapping the import dialog runs, the
// whole tessaline-cli import (open, parse, map, save), the export, and the generator.

#include "BenchHome.h"
#include "core/exchange/Export.h"
#include "core/exchange/Import.h"
#include "core/generator/GeneratePassword.h"
#include "support/FileSupport.h"
#include "support/TestSupport.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDir>
#include <QProcess>

using namespace tess;

namespace {

// Records as a browser exports them, with quotes, non-ASCII text and a header line.
QByteArray csvOf(int n)
{
    QByteArray csv = "name,url,username,password,note\n";
    for (int i = 0; i < n; ++i)
        csv += "\"Site " + QByteArray::number(i) + "\",https://site" + QByteArray::number(i)
             + ".example/login,user" + QByteArray::number(i) + "@example.com,\"p\"\"w\xE2\x82\xAC" + QByteArray::number(i)
             + "\",\"caf\xC3\xA9, notes\"\n";
    return csv;
}

ImportColumns usualColumns()
{
    ImportColumns c = ImportColumns::initial(
        {ImportField::Name, ImportField::URL, ImportField::UserID1, ImportField::Password, ImportField::Notes});
    for (int i = 1; i < 5; ++i)
        c.ticked[i] = true;
    return c;
}

void BM_ImportDialogPath(benchmark::State &state)
{
    const QByteArray bytes = csvOf(int(state.range(0)));
    const EntryList existing = testsupport::sampleEntries(1000);
    for (auto _ : state) {
        QString text;
        decodeImportFile(bytes, &text);
        ImportParseOptions o;
        o.mode = SeparatorComma;
        o.skipFirstLine = true;
        o.standardQuotes = true;
        QList<ImportRecord> records = parseImportRecords(text, o);
        EntryList list = existing;
        qsizetype shown = 0;
        importRecords(list, records, usualColumns(), [&](qsizetype done, qsizetype) { shown = done; });
        benchmark::DoNotOptimize(shown);
    }
}
BENCHMARK(BM_ImportDialogPath)->Arg(10000)->Unit(benchmark::kMillisecond);

// The whole command, from a fresh copy of a 1,000-entry package each time.
void BM_ImportCli(benchmark::State &state)
{
    const QString csv = bench::benchHome() + "/in.csv";
    testsupport::writeBytes(csv, csvOf(int(state.range(0))));
    const QString original = bench::benchHome() + "/original.qvm";
    testsupport::makePackage(original, "password", testsupport::sampleEntries(1000));
    const QString cli = QCoreApplication::applicationDirPath() + "/../tessaline-cli";
    int round = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const QString pkg = bench::benchHome() + QStringLiteral("/import-%1.qvm").arg(round++);
        QDir().mkpath(pkg);
        for (const QString &f : QDir(original).entryList(QDir::Files))
            QFile::copy(original + "/" + f, pkg + "/" + f);
        state.ResumeTiming();
        QProcess p;
        p.start(cli, {"import", pkg, csv, "--skip-first-line", "--quotes", "standard", "--password-stdin", "--no-keychain"});
        p.write("password\n");
        p.closeWriteChannel();
        p.waitForFinished(-1);
        if (p.exitCode() != 0)
            state.SkipWithError(p.readAllStandardError().constData());
    }
}
BENCHMARK(BM_ImportCli)->Arg(10000)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_Export(benchmark::State &state)
{
    const EntryList list = testsupport::sampleEntries(int(state.range(0)));
    QList<qsizetype> rows;
    for (qsizetype i = 0; i < list.size(); ++i)
        rows.append(i);
    for (auto _ : state)
        benchmark::DoNotOptimize(exportCsv(list, rows).toUtf8());
}
BENCHMARK(BM_Export)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_GeneratePassword(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(GeneratePassword(std::uint32_t(state.range(0)), true));
}
BENCHMARK(BM_GeneratePassword)->Arg(16)->Arg(47);

} // namespace

int main(int argc, char **argv)
{
    return bench::runInScratchHome(argc, argv);
}
