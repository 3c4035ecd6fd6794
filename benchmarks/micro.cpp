// Measures the slowest functions of the bridge one by one: reading and writing JSON, building field
// codes, reading and writing the exchange files. Bytes per second refer to the external encoding:
// UTF-8 for JSON, UTF-16 for files.

#include "apiclient/json/JsonUtils.h"
#include "frontend/ArgsFile.h"
#include "service/FieldCode.h"

#include <QDir>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <cstdlib>

namespace {

constexpr int citationCount = 1000;

const char* const abstractSentence =
    "Spatial variability of the measured response differs between populations (p < 0.05); "
    "the \\\"null\\\" model of Poincaré at 25 °C explains most of it. ";

/// One citation of about 1.9 KB as the application returns it, with unsorted keys.
QByteArray citationJson()
{
    return QByteArray(R"json({"citationCluster":{"citationItems":[{"id":"ITEM-1","itemData":{
"id":"ITEM-1","type":"article-journal","title":"Regional interactions of membrane proteins",
"author":[{"family":"García","given":"Lucía","dropping-particle":"","non-dropping-particle":""},
{"family":"Tanaka","given":"Hiroshi","dropping-particle":"","non-dropping-particle":""}],
"container-title":"Structure and dynamics","DOI":"10.1234/j.5678","ISSN":"1932-6203",
"issued":{"date-parts":[[2014,3]]},"volume":"74","issue":"3","page":"182-194","abstract":")json")
        + QByteArray(abstractSentence).repeated(7) + R"json("},
"uris":["http://documents.tessaron.example/?uuid=7a0f90a7716f28af160a43c3defdc4ca"]}],
"tessaron":{"previouslyFormattedCitation":"(García, 2014)","plainTextFormattedCitation":
"(García, 2014)","manualFormatting":""},"properties":{"noteIndex":0}},
"formattedText":"<i>(García, 2014)</i>"})json";
}

QByteArray replyJson()
{
    QByteArray json = "{\"citationClusters\":[" + citationJson();
    for (int i = 1; i < citationCount; ++i) {
        json += "," + citationJson();
    }
    return json + "],\"bibliography\":\"García. Regional interactions.\"}";
}

/// Aborts if the JSON is malformed: the benchmark would only measure how fast it is rejected.
QVariantMap parsedOrAbort(const QByteArray& json)
{
    const QVariantMap map = JsonUtils::parse(json).toMap();
    if (map.isEmpty()) {
        std::abort();
    }
    return map;
}

QStringList fieldCodes()
{
    const QString fieldCode = clusterToFieldCode(parsedOrAbort(citationJson()));
    QStringList lines;
    for (int i = 0; i < citationCount; ++i) {
        lines << fieldCode + QString::number(i) << QStringLiteral("(García, 2014)");
    }
    return lines;
}

void setBytes(benchmark::State& state, qint64 bytesPerIteration)
{
    state.SetBytesProcessed(state.iterations() * bytesPerIteration);
}

void parseAnswer(benchmark::State& state)
{
    const QByteArray json = replyJson();
    for (auto _ : state) {
        benchmark::DoNotOptimize(parsedOrAbort(json));
    }
    setBytes(state, json.size());
}
BENCHMARK(parseAnswer)->Unit(benchmark::kMillisecond);

void serializeRequest(benchmark::State& state)
{
    QVariantList clusters;
    for (const QString& line : fieldCodes()) {
        clusters << QVariantMap{{QStringLiteral("fieldCode"), line}};
    }
    const QVariant request = QVariantMap{{QStringLiteral("citationClusters"), clusters}};
    int size = 0;
    for (auto _ : state) {
        const QByteArray json = JsonUtils::serialize(request);
        size = json.size();
        benchmark::DoNotOptimize(json.constData());
    }
    setBytes(state, size);
}
BENCHMARK(serializeRequest)->Unit(benchmark::kMillisecond);

void buildFieldCode(benchmark::State& state)
{
    const QVariantMap reply = parsedOrAbort(citationJson());
    for (auto _ : state) {
        benchmark::DoNotOptimize(clusterToFieldCode(reply));
    }
    setBytes(state, citationJson().size());
}
BENCHMARK(buildFieldCode);

void readFieldCode(benchmark::State& state)
{
    const QString fieldCode = clusterToFieldCode(parsedOrAbort(citationJson()));
    for (auto _ : state) {
        benchmark::DoNotOptimize(jsonFromFieldCode(fieldCode));
    }
    setBytes(state, citationJson().size());
}
BENCHMARK(readFieldCode);

void writeFile(benchmark::State& state)
{
    const QTemporaryDir folder;
    const QStringList lines = fieldCodes();
    const QString path = folder.filePath(QStringLiteral("results.txt"));
    int size = 0;
    for (auto _ : state) {
        bool success = false;
        size = writeArgsFile(path, lines, &success);
        if (!success) {
            return state.SkipWithError("The file cannot be written.");
        }
    }
    setBytes(state, size);
}
BENCHMARK(writeFile)->Name("writeArgsFile")->Unit(benchmark::kMillisecond);

void readFile(benchmark::State& state)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("arguments.txt"));
    bool success = false;
    const int size = writeArgsFile(path, fieldCodes(), &success);
    for (auto _ : state) {
        benchmark::DoNotOptimize(readArgsFile(path, &success));
        if (!success) {
            return state.SkipWithError("The file cannot be read.");
        }
    }
    setBytes(state, size);
}
BENCHMARK(readFile)->Name("readArgsFile")->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
