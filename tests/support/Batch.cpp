#include "tests/support/Batch.h"

#include "tests/support/Utf8.h"

namespace {

const QString prefix = QStringLiteral("ADDIN CSL_CITATION ");

/// U+0001 separates the strings of a list file and so cannot occur in one.
QString withoutSeparator(QString text)
{
    return text.remove(QChar(1));
}

QString textAt(const JsonValue& cluster, const char* key)
{
    const auto& object = std::get<JsonValue::Object>(cluster.content);
    const auto& own = std::get<JsonValue::Object>(object.at(QStringLiteral("tessaron")).content);
    return std::get<QString>(own.at(QString::fromLatin1(key)).content);
}

JsonValue textOf(const QString& text)
{
    return {text};
}

QString atCluster(const char* what, std::size_t index)
{
    return QString::fromLatin1(what) + QStringLiteral(" of citation ") + QString::number(index);
}

} // namespace

Batch Batch::random(Generator* generator, int clusterCount, int size)
{
    constexpr int deepest = 1000;
    Batch batch;
    // Starts with a letter: a byte order mark at the start of the arguments file would be dropped.
    batch.style = QLatin1Char('s') + withoutSeparator(randomText(generator));
    batch.bibliography = QLatin1Char('b') + withoutSeparator(randomText(generator));
    for (int i = 0; i < clusterCount; ++i) {
        const int depth = (*generator)() % 50 == 0 ? int(1 + (*generator)() % deepest) : 1;
        JsonValue cluster = randomCluster(generator, size, depth);
        auto& own = std::get<JsonValue::Object>(
            std::get<JsonValue::Object>(cluster.content).at(QStringLiteral("tessaron")).content);
        for (auto& entry : own) {
            entry.second = textOf(withoutSeparator(std::get<QString>(entry.second.content)));
        }
        batch.fieldCodes << prefix + writeRandomForm(cluster, generator, Encoding::Utf16);
        batch.texts << withoutSeparator(randomText(generator));
        batch.clusters.push_back(std::move(cluster));
    }
    return batch;
}

int Batch::valueCount() const
{
    int count = 0;
    for (const JsonValue& cluster : clusters) {
        count += ::valueCount(cluster);
    }
    return count;
}

QStringList Batch::arguments() const
{
    QStringList list{style};
    for (int i = 0; i < fieldCodes.size(); ++i) {
        list << fieldCodes.at(i) << texts.at(i);
    }
    return list;
}

QByteArray Batch::reply(Generator* generator) const
{
    JsonValue::List list;
    for (std::size_t i = 0; i < clusters.size(); ++i) {
        list.push_back({JsonValue::Object{{QStringLiteral("citationCluster"), clusters[i]},
            {QStringLiteral("formattedText"), textOf(texts.at(int(i)))}}});
    }
    const JsonValue reply{JsonValue::Object{{QStringLiteral("citationClusters"), {std::move(list)}},
        {QStringLiteral("citationStyleUrl"), textOf(style)},
        {QStringLiteral("bibliography"), textOf(bibliography)}}};
    return writeRandomForm(reply, generator, Encoding::Utf8).toUtf8();
}

QString Batch::requestProblem(const QByteArray& body, const QString& folder) const
{
    const std::optional<QString> json = textFromUtf8(body);
    if (!json) {
        return QStringLiteral("the request is not UTF-8");
    }
    bool ok = false;
    const JsonValue request = readJson(*json, &ok);
    if (!ok) {
        return QStringLiteral("the request is not JSON");
    }
    JsonValue::List list;
    for (int i = 0; i < fieldCodes.size(); ++i) {
        list.push_back({JsonValue::Object{{QStringLiteral("fieldCode"), textOf(fieldCodes.at(i))},
            {QStringLiteral("formattedText"), textOf(texts.at(i))}}});
    }
    const JsonValue expected{JsonValue::Object{{QStringLiteral("citationClusters"), {list}},
        {QStringLiteral("citationStyleUrl"), textOf(style)},
        {QStringLiteral("tempDirectory"), textOf(folder)}}};
    return request == expected ? QString() : QStringLiteral("wrong values in the request");
}

QString Batch::resultsProblem(const QStringList& results) const
{
    if (results.size() != 3 + 4 * int(clusters.size())) {
        return QStringLiteral("wrong number of results: %1").arg(results.size());
    }
    if (results.mid(0, 3) != QStringList{QStringLiteral("true"), style, bibliography}) {
        return QStringLiteral("wrong results before the citations");
    }
    for (std::size_t i = 0; i < clusters.size(); ++i) {
        const QStringList lines = results.mid(3 + 4 * int(i), 4);
        bool ok = false;
        if (!lines.at(0).startsWith(prefix)
            || !(readJson(lines.at(0).mid(prefix.size()), &ok) == clusters[i]) || !ok) {
            return atCluster("wrong field code", i) + QStringLiteral(": ") + lines.at(0)
                + QStringLiteral(" instead of ") + fieldCodes.at(int(i));
        }
        if (lines.at(1) != texts.at(int(i))) {
            return atCluster("wrong text", i);
        }
        if (lines.at(2) != textAt(clusters[i], "previouslyFormattedCitation")
            || lines.at(3) != textAt(clusters[i], "plainTextFormattedCitation")) {
            return atCluster("wrong recorded text", i);
        }
    }
    return {};
}
