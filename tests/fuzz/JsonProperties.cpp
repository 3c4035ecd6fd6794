#include "tests/fuzz/JsonProperties.h"

#include "apiclient/json/JsonUtils.h"
#include "tests/fuzz/Check.h"
#include "tests/support/Utf8.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QSet>

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

bool isSameDouble(double left, double right)
{
    return std::memcmp(&left, &right, sizeof left) == 0;
}

bool isSameMap(const QVariantMap& left, const QVariantMap& right)
{
    return left.keys() == right.keys()
        && std::equal(left.begin(), left.end(), right.begin(), isSameValue);
}

bool isSameList(const QVariantList& left, const QVariantList& right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), isSameValue);
}

bool agrees(const QVariant& ours, const QJsonValue& theirs);

bool mapAgrees(const QVariantMap& ours, const QJsonObject& theirs)
{
    for (auto entry = ours.begin(); entry != ours.end(); ++entry) {
        const auto found = theirs.constFind(entry.key());
        if (found == theirs.constEnd() || !agrees(entry.value(), *found)) {
            return false;
        }
    }
    return ours.size() == theirs.size();
}

bool agrees(const QVariant& ours, const QJsonValue& theirs)
{
    switch (ours.userType()) {
    case QMetaType::QVariantMap:
        return theirs.isObject() && mapAgrees(ours.toMap(), theirs.toObject());
    case QMetaType::QVariantList: {
        const QVariantList list = ours.toList();
        const QJsonArray array = theirs.toArray();
        return theirs.isArray()
            && std::equal(list.begin(), list.end(), array.begin(), array.end(), agrees);
    }
    case QMetaType::QString:
        return theirs.isString() && ours.toString() == theirs.toString();
    case QMetaType::Bool:
        return theirs.isBool() && ours.toBool() == theirs.toBool();
    case QMetaType::Nullptr:
        return theirs.isNull();
    default:
        // As doubles, because Qt rounds large integers.
        return theirs.isDouble() && ours.toDouble() == theirs.toDouble();
    }
}

/// Whether a key occurs twice anywhere in `json`, which has no escape sequences.
bool repeatsKey(const QByteArray& json)
{
    const QList<QByteArray> parts = json.split('"');
    QSet<QByteArray> keys;
    for (int i = 1; i + 1 < parts.size(); i += 2) {
        if (parts.at(i + 1).trimmed().startsWith(':')) {
            if (keys.contains(parts.at(i))) {
                return true;
            }
            keys.insert(parts.at(i));
        }
    }
    return false;
}

bool isDigitAt(const QByteArray& json, int index)
{
    return index >= 0 && index < json.size() && json.at(index) >= '0' && json.at(index) <= '9';
}

/// Whether a decimal point has no digit before or after it.
bool hasBarePoint(const QByteArray& json)
{
    for (int i = json.indexOf('.'); i >= 0; i = json.indexOf('.', i + 1)) {
        if (!isDigitAt(json, i - 1) || !isDigitAt(json, i + 1)) {
            return true;
        }
    }
    return false;
}

void checkAgainstQt(const QByteArray& json, const QVariant& value)
{
    const auto document = readByQt(json);
    if (!document) {
        return;
    }
    const bool isRead =
        value.userType() == QMetaType::QVariantMap || value.userType() == QMetaType::QVariantList;
    check(isRead == !document->isNull(), "accepts exactly the texts that Qt's reader accepts");
    if (isRead) {
        const QJsonValue root =
            document->isObject() ? QJsonValue(document->object()) : QJsonValue(document->array());
        check(agrees(value, root), "reads the same value as Qt's reader");
    }
}

} // namespace

bool isSameValue(const QVariant& left, const QVariant& right)
{
    if (left.userType() != right.userType()) {
        return false;
    }
    switch (left.userType()) {
    case QMetaType::QVariantMap:
        return isSameMap(left.toMap(), right.toMap());
    case QMetaType::QVariantList:
        return isSameList(left.toList(), right.toList());
    case QMetaType::Double:
        return isSameDouble(left.toDouble(), right.toDouble());
    default:
        return left == right;
    }
}

void checkSurvivesWriting(const QVariant& value)
{
    const QByteArray bytes = JsonUtils::serialize(value);
    const QString text = JsonUtils::serializeToText(value);
    check(bytes == text.toUtf8(), "writes the same JSON in UTF-8 and in UTF-16");
    check(isSameValue(JsonUtils::parse(bytes), value),
        "keeps a value that is written and read in UTF-8");
    check(isSameValue(JsonUtils::parseText(text), value),
        "keeps a value that is written and read in UTF-16");
}

void checkJsonProperties(const QByteArray& json)
{
    const QVariant value = JsonUtils::parse(json);
    const auto text = textFromUtf8(json);
    if (!text) {
        check(!value.isValid(), "rejects invalid UTF-8");
        return;
    }
    // Without QString's terminating zero, so that the sanitizer reports a read past the end.
    const std::vector<ushort> units(text->utf16(), text->utf16() + text->size());
    const auto raw =
        QString::fromRawData(reinterpret_cast<const QChar*>(units.data()), text->size());
    check(isSameValue(JsonUtils::parseText(raw), value), "reads UTF-8 and UTF-16 alike");
    checkAgainstQt(json, value);
    if (value.isValid()) {
        checkSurvivesWriting(value);
    }
}

std::optional<QJsonDocument> readByQt(const QByteArray& json)
{
    // Qt's reader accepts any escaped character, and "1." and ".1" as numbers. It treats keys that
    // differ only after U+0000 as equal, rejects a number too small for a double, and drops a
    // U+FEFF at the start of a text. It leaks the first value of a repeated key.
    if (json.contains('\\') || json.contains('\0') || json.contains("e-") || json.contains("E-")
        || json.contains("\xEF\xBB\xBF") || hasBarePoint(json) || repeatsKey(json)) {
        return {};
    }
    return QJsonDocument::fromJson(json);
}
