#include "jsonbenchmark.h"
#include "jsonreader.h"
#include "samples.h"

#include <string>
#include <vector>

namespace
{

QByteArray listOf(int count, QByteArray (*element)(int))
{
    QByteArray text = "[";
    for (int i = 0; i < count; ++i)
        text += (i > 0 ? "," : "") + element(i);
    return text + "]";
}

QByteArray number(int i)
{
    const double fraction = i * 7919 % 100003 / 977.0;
    return i % 2 == 0 ? QByteArray::number(i * 7919) : QByteArray::number(fraction, i % 4 == 1 ? 'f' : 'e', 9);
}

QByteArray longText(int i)
{
    return '"' + QByteArray(300, char('a' + i % 26)) + " \xC3\xA4\xE2\x82\xAC\"";
}

QByteArray escapes(int)
{
    return "\"abc\\nabc\\tabc\\\"abc\\\\abc\\/abc\\u00e9abc\\u20acabc\\r\"";
}

QByteArray nested(int)
{
    return QByteArray(200, '[') + "{\"key\":1}" + QByteArray(200, ']');
}

struct Text
{
    const char *name;
    QByteArray json;
};

const std::vector<Text> &texts()
{
    static const std::vector<Text> all = {
        { "announcement", sampleAnnouncement(7) },
        { "announcements", listOf(1000, [](int i) { return sampleAnnouncement(i); }) },
        { "numbers", listOf(10000, number) },
        { "texts", listOf(1000, longText) },
        { "escapes", listOf(2000, escapes) },
        { "nested", listOf(20, nested) },
    };
    return all;
}

std::vector<benchmark::internal::Benchmark *> &registered()
{
    static std::vector<benchmark::internal::Benchmark *> all;
    return all;
}

} // namespace

JsonBenchmark::JsonBenchmark(const char *name, Function function)
{
    for (const Text &text : texts()) {
        const std::string fullName = std::string(name) + '/' + text.name;
        registered().push_back(benchmark::RegisterBenchmark(fullName.c_str(), function, text.json));
    }
}

void JsonBenchmark::setIterations(int count)
{
    for (benchmark::internal::Benchmark *one : registered())
        one->Iterations(count);
}

QVariant valueOf(const QByteArray &json)
{
    JsonReader reader;
    reader.parse(json);
    return reader.result();
}

void countBytes(benchmark::State &state, int size)
{
    state.SetBytesProcessed(state.iterations() * size);
}
