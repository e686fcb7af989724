#ifndef JSONBENCHMARK_H
#define JSONBENCHMARK_H

#include <QtCore/QByteArray>
#include <QtCore/QVariant>
#include <benchmark/benchmark.h>

// A benchmark of bench_json, for each of several texts: "<name>/<text>". Made as a static object, so that a source file that
// is left out leaves out its benchmarks.
class JsonBenchmark
{
public:
    typedef void (*Function)(benchmark::State &state, const QByteArray &json);

    JsonBenchmark(const char *name, Function function);

    // How many times all of them run; without it, as long as Google Benchmark takes to be sure of their time. Runs of different
    // lengths tell the instructions of one pass: all that is done before the first drops out.
    static void setIterations(int count);
};

// The text as a value
QVariant valueOf(const QByteArray &json);

// For the bytes per second, which tell the texts apart
void countBytes(benchmark::State &state, int size);

#endif
