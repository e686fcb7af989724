// JSON read into a QVariant and written from one, beside Qt's own. Bytes per second tell the texts apart.
#include "jsonlexer.h"
#include "jsonreader.h"
#include "jsonwriter.h"
#include "samples.h"

#include <QtCore/QJsonDocument>
#include <benchmark/benchmark.h>

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

const QByteArray announcement = sampleAnnouncement(7);
const QByteArray announcements = listOf(1000, [](int i) { return sampleAnnouncement(i); });
const QByteArray numbers = listOf(10000, number);
const QByteArray texts = listOf(1000, longText);
const QByteArray escaped = listOf(2000, escapes);
const QByteArray deep = listOf(20, nested);

void countBytes(benchmark::State &state, int size)
{
    state.SetBytesProcessed(state.iterations() * size);
}

QVariant valueOf(const QByteArray &text)
{
    return QJsonDocument::fromJson(text).toVariant();
}

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

void readerOfQt(benchmark::State &state, const QByteArray &json)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(valueOf(json));
    countBytes(state, json.size());
}

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

void writerOfQt(benchmark::State &state, const QByteArray &json)
{
    const QVariant value = valueOf(json);
    int size = 0;
    for (auto _ : state)
        size = QJsonDocument::fromVariant(value).toJson(QJsonDocument::Compact).size();
    countBytes(state, size);
}

#define FOR_EVERY_TEXT(function)                               \
    BENCHMARK_CAPTURE(function, announcement, announcement);   \
    BENCHMARK_CAPTURE(function, announcements, announcements); \
    BENCHMARK_CAPTURE(function, numbers, numbers);             \
    BENCHMARK_CAPTURE(function, texts, texts);                 \
    BENCHMARK_CAPTURE(function, escapes, escaped);             \
    BENCHMARK_CAPTURE(function, nested, deep)

FOR_EVERY_TEXT(lexer);
FOR_EVERY_TEXT(reader);
FOR_EVERY_TEXT(readerOfQt);
FOR_EVERY_TEXT(writer);
FOR_EVERY_TEXT(writerOfQt);

} // namespace

BENCHMARK_MAIN();
