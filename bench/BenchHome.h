#pragma once
// For the benchmarks that write password files: they run in a throw-away home folder (the
// scratch directories and settings go there, not into the user's), named by benchHome().

#include "support/TestSupport.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>

namespace tess::bench {

inline testsupport::ScopedHome *gBenchHome = nullptr;

inline QString benchHome()
{
    return gBenchHome->path();
}

// The whole main of such a benchmark: a Qt application (some start tessaline-cli), the home,
// then the benchmarks the command line asks for.
inline int runInScratchHome(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    testsupport::ScopedHome home;
    gBenchHome = &home;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    gBenchHome = nullptr;
    return 0;
}

} // namespace tess::bench
