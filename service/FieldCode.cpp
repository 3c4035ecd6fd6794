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
    const int first = fieldCode.indexOf(QLatin1Char('{'));
    const int last = fieldCode.lastIndexOf(QLatin1Char('}'));
    if (first < 0 || last < 0) {
        return {};
    }
    // Where the only "}" stands before the "{", the length is 0 or less. mid() takes 0 as
    // nothing and a negative length as "to the end"; neither is an object then.
    return JsonUtils::parseText(fieldCode.mid(first, last - first + 1)).toMap();
}
