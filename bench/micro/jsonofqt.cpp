// Qt's own JSON, beside which the daemon's is measured
#include "jsonbenchmark.h"

#include <QtCore/QJsonDocument>

namespace
{

void readerOfQt(benchmark::State &state, const QByteArray &json)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(QJsonDocument::fromJson(json).toVariant());
    countBytes(state, json.size());
}
const JsonBenchmark readerOfQtBenchmark("readerOfQt", readerOfQt);

void writerOfQt(benchmark::State &state, const QByteArray &json)
{
    const QVariant value = valueOf(json);
    int size = 0;
    for (auto _ : state)
        size = QJsonDocument::fromVariant(value).toJson(QJsonDocument::Compact).size();
    countBytes(state, size);
}
const JsonBenchmark writerOfQtBenchmark("writerOfQt", writerOfQt);

} // namespace
