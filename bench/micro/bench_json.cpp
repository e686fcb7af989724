// JSON read into a QVariant and written from one; beside Qt's own, where it has one (jsonofqt.cpp).
//     bench_json --iterations=10 --benchmark_filter=^reader/numbers/    # a pass ten times, for callgrind
#include "jsonbenchmark.h"
#include "jsonlexer.h"
#include "jsonreader.h"
#include "jsonwriter.h"

#include <cstdlib>
#include <cstring>

namespace
{

void lexer(benchmark::State &state, const QByteArray &json)
{
    const QString text = QString::fromUtf8(json);
    for (auto _ : state) {
        JsonLexer lexer(text);
        int token = lexer.lex();
        while (token != 0 && token != 12)
            token = lexer.lex();
        if (token != 0)
            state.SkipWithError("no JSON");
    }
    countBytes(state, json.size());
}
const JsonBenchmark lexerBenchmark("lexer", lexer);

void reader(benchmark::State &state, const QByteArray &json)
{
    for (auto _ : state) {
        JsonReader reader;
        if (!reader.parse(json))
            state.SkipWithError("no JSON");
        benchmark::DoNotOptimize(reader.result());
    }
    countBytes(state, json.size());
}
const JsonBenchmark readerBenchmark("reader", reader);

void writer(benchmark::State &state, const QByteArray &json)
{
    const QVariant value = valueOf(json);
    int size = 0;
    for (auto _ : state) {
        JsonWriter writer;
        writer.stringify(value);
        size = writer.result().size();
    }
    countBytes(state, size);
}
const JsonBenchmark writerBenchmark("writer", writer);

// What Google Benchmark has left of the arguments
bool takeIterations(int *argc, char **argv)
{
    static const char option[] = "--iterations=";
    const std::size_t length = sizeof option - 1;
    if (*argc != 2 || std::strncmp(argv[1], option, length) != 0)
        return false;
    JsonBenchmark::setIterations(std::atoi(argv[1] + length));
    *argc = 1;
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (!takeIterations(&argc, argv) && benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
