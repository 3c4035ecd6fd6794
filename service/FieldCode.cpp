#include "service/FieldCode.h"

#include "apiclient/json/JsonUtils.h"

QString clusterToFieldCode(const QVariantMap& response)
{
    const QString prefix = QStringLiteral("ADDIN CSL_CITATION ");
    const QString fieldCode =
        JsonUtils::serializeToText(response.value(QStringLiteral("citationCluster")), prefix);
    return fieldCode.isNull() ? prefix + QStringLiteral("null") : fieldCode;
}

QVariantMap jsonFromFieldCode(const QString& fieldCode)
{
    const auto first = fieldCode.indexOf(QLatin1Char('{'));
    const auto last = fieldCode.lastIndexOf(QLatin1Char('}'));
    if (first < 0 || last < 0) {
        return {};
    }
    // If the last "}" comes before the first "{", the length is 0 or negative. mid() then returns
    // an empty string or the rest of the string. Neither is a JSON object.
    return JsonUtils::parseText(fieldCode.mid(first, last - first + 1)).toMap();
}
