// Keyed-archive encode/decode and typedstream decode of typical entry lists.

#include "core/archive/KeyedArchive.h"
#include "core/archive/TypedStream.h"
#include "support/TestSupport.h"
#include "support/TypedStreamWriter.h"

#include <benchmark/benchmark.h>

using namespace tess;

static void BM_KeyedEncode(benchmark::State &state)
{
    const QVariant list = testsupport::sampleEntries(int(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(archive::encodeKeyedArchive(list));
    state.SetComplexityN(state.range(0));
}

static void BM_KeyedDecode(benchmark::State &state)
{
    const QByteArray bytes = archive::encodeKeyedArchive(testsupport::sampleEntries(int(state.range(0))));
    for (auto _ : state)
        benchmark::DoNotOptimize(archive::decodeKeyedArchive(bytes));
    state.SetComplexityN(state.range(0));
}

static void BM_TypedStreamDecode(benchmark::State &state)
{
    const QByteArray bytes = testsupport::encodeTypedStream(testsupport::sampleEntries(int(state.range(0))));
    for (auto _ : state)
        benchmark::DoNotOptimize(archive::decodeTypedStream(bytes));
    state.SetComplexityN(state.range(0));
}

BENCHMARK(BM_KeyedEncode)->Arg(100)->Arg(300)->Arg(1000)->Arg(4000)->Arg(10000)->Arg(100000)
    ->Unit(benchmark::kMillisecond)->Complexity();
BENCHMARK(BM_KeyedDecode)->Arg(100)->Arg(300)->Arg(1000)->Arg(4000)->Arg(10000)->Arg(100000)
    ->Unit(benchmark::kMillisecond)->Complexity();
BENCHMARK(BM_TypedStreamDecode)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Complexity();

BENCHMARK_MAIN();
