#include "apiclient/json/JsonUtils.h"
#include "tests/apiclient/json/Described.h"
#include "tests/support/Texts.h"

#include <QRandomGenerator>
#include <QtTest>

#include <limits>

// A value stays the same when it is written and read again. Also tests getValueAtPath(). The tests
// of reading alone and of writing alone are in tst_jsonreader*.cpp and tst_jsonwriter.cpp.
class tst_JsonUtils : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void keepsValue_data();
    void keepsValue();
    void keepsRandomTexts();
    void keepsDeepValue();
    void findsValueAtPath_data();
    void findsValueAtPath();
};

namespace {

const QChar highSurrogate(0xD83D);
const QChar lowSurrogate(0xDE00);

} // namespace

void tst_JsonUtils::keepsValue_data()
{
    QTest::addColumn<QVariant>("value");
    const auto row = [](const char* name, const QVariant& value) { QTest::newRow(name) << value; };

    row("2^53 + 1", 9007199254740993LL);
    row("smallest signed integer", std::numeric_limits<qlonglong>::min());
    row("2^63", 9223372036854775808ULL);
    row("2^64 - 1", std::numeric_limits<qulonglong>::max());
    row("0.1", 0.1);
    row("integral double", 2.0);
    row("integral double beyond 2^53", 1e17);
    row("negative zero", -0.0);
    row("largest double", std::numeric_limits<double>::max());
    row("smallest double", std::numeric_limits<double>::denorm_min());
    row("null, booleans, empty text, object and array",
        QVariantList{QVariant::fromValue(nullptr), true, false, QString(QLatin1String("")),
            QVariantMap(), QVariantList()});
    row("control characters", QString(QChar(0)) + QChar(1) + QChar(0x1F) + QChar(0x7F));
    row("surrogates in the wrong order", QString(lowSurrogate) + highSurrogate);
    row("two high surrogates, then a low one",
        QString(highSurrogate) + highSurrogate + lowSurrogate);
    row("U+FEFF twice at the start of a text", QString(2, QChar(0xFEFF)) + text("a"));
    row("noncharacters", QString(QChar(0xFFFE)) + QChar(0xFFFF));
    row("keys",
        QVariantMap{{QLatin1String(""), 1LL}, {text("a.b"), 2LL}, {text("a"), 3LL},
            {QString(QChar(0)), 4LL}, {QString(highSurrogate), 5LL},
            {QChar(0xFEFF) + text("k"), 6LL}});
}

void tst_JsonUtils::keepsValue()
{
    QFETCH(QVariant, value);
    // As the whole text, in an object and in an array.
    const QVariantMap inObject{{text("key"), value}};
    const QVariantList inArray{1LL, value, value};
    for (const QVariant& whole : {value, QVariant(inObject), QVariant(inArray)}) {
        QCOMPARE(described(JsonUtils::parse(JsonUtils::serialize(whole))), described(whole));
        QCOMPARE(
            described(JsonUtils::parseText(JsonUtils::serializeToText(whole))), described(whole));
        QCOMPARE(JsonUtils::serializeToText(whole).toUtf8(), JsonUtils::serialize(whole));
    }
}

void tst_JsonUtils::keepsRandomTexts()
{
    // Surrogates, control characters, quotes and letters in any order.
    QRandomGenerator random(8259);
    for (int i = 0; i < 5000; ++i) {
        QString units;
        for (int length = random.bounded(80); length > 0; --length) {
            const quint32 kind = random.bounded(4);
            units += QChar(kind == 0 ? 0xD800 + random.bounded(0x800)
                    : kind == 1      ? random.bounded(0x80)
                    : kind == 2      ? random.bounded(0x10000)
                                     : 'a');
        }
        QCOMPARE(described(JsonUtils::parse(JsonUtils::serialize(units))), described(units));
        const QString written = JsonUtils::serializeToText(units);
        QCOMPARE(described(JsonUtils::parseText(written)), described(units));
        QCOMPARE(written.toUtf8(), JsonUtils::serialize(units));
    }
}

void tst_JsonUtils::keepsDeepValue()
{
    QVariant deep = 1LL;
    for (int i = 0; i < 512; ++i) {
        deep = QVariantMap{{text("a"), QVariantList{deep}}};
    }
    QCOMPARE(described(JsonUtils::parse(JsonUtils::serialize(deep))), described(deep));
    QCOMPARE(described(JsonUtils::parseText(JsonUtils::serializeToText(deep))), described(deep));
}

void tst_JsonUtils::findsValueAtPath_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QVariant>("expected");
    const auto row = [](const char* name, const char* json, const char* path,
                         const QVariant& expected = {}) {
        QTest::newRow(name) << QByteArray(json) << text(path) << expected;
    };
    const QVariant null = QVariant::fromValue(nullptr);

    row("one key", R"({"a":1})", "a", 1LL);
    row("three keys",
        R"({"citationCluster":{"tessaron":{"previouslyFormattedCitation":"Knuth 1968"}}})",
        "citationCluster.tessaron.previouslyFormattedCitation", text("Knuth 1968"));
    row("among other keys", R"({"a":{"x":0,"b":2,"z":3},"b":4})", "a.b", 2LL);
    row("value that is an object", R"({"a":{"b":1}})", "a", QVariantMap{{text("b"), 1LL}});
    row("value that is an array", R"({"a":{"b":[1]}})", "a.b", QVariantList{1LL});
    row("value that is null", R"({"a":{"b":null}})", "a.b", null);
    row("value that is an empty text", R"({"a":""})", "a", text(""));
    row("value that is false", R"({"a":false})", "a", false);
    row("non-ASCII keys", R"({"Ж":{"𝄞":1}})", "Ж.𝄞", 1LL);
    row("empty key", R"({"":1})", "", 1LL);
    row("empty last key", R"({"a":{"":1}})", "a.", 1LL);
    row("empty first key", R"({"":{"a":1}})", ".a", 1LL);
    row("empty middle key", R"({"a":{"":{"b":1}}})", "a..b", 1LL);

    row("empty object", "{}", "a");
    row("empty object, several keys", "{}", "a.b.c");
    row("empty object, empty path", "{}", "");
    row("empty path", R"({"a":1})", "");
    row("only dots", R"({"a":{"b":1}})", "..");
    row("missing first key", R"({"b":{"b":1}})", "a.b");
    row("missing middle key", R"({"a":{"x":{"c":1}}})", "a.b.c");
    row("missing last key", R"({"a":{"b":{"x":1}}})", "a.b.c");
    row("last key in an outer object", R"({"a":{"b":{}},"c":1})", "a.b.c");
    row("key in another case", R"({"a":{"B":1}})", "a.b");
    row("extra space", R"({"a":{"b":1}})", "a .b");
    row("extra dot at the end", R"({"a":{"b":1}})", "a.b.");
    row("extra dot at the start", R"({"a":{"b":1}})", ".a.b");
    row("extra dot in the middle", R"({"a":{"b":1}})", "a..b");
    row("key with a dot, as path", R"({"a.b":1})", "a.b");
    row("inner key with a dot", R"({"x":{"a.b":1}})", "x.a.b");
    row("prefix of a key", R"({"abc":1})", "ab");
    row("longer than a key", R"({"ab":1})", "abc");
    row("text in place of a map", R"({"a":"{\"b\":1}"})", "a.b");
    row("number in place of a map", R"({"a":1})", "a.b");
    row("double in place of a map", R"({"a":1.5})", "a.b");
    row("boolean in place of a map", R"({"a":true})", "a.b");
    row("null in place of a map", R"({"a":null})", "a.b");
    row("array in place of a map", R"({"a":[{"b":1}]})", "a.b");
    row("index of an array", R"({"a":[1]})", "a.0");
    row("text in place of an inner map", R"({"a":{"b":"x"}})", "a.b.c");
}

void tst_JsonUtils::findsValueAtPath()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, path);
    QFETCH(QVariant, expected);
    const QVariant whole = JsonUtils::parse(json);
    QCOMPARE(whole.userType(), int(QMetaType::QVariantMap));
    QCOMPARE(described(JsonUtils::getValueAtPath(whole.toMap(), path)), described(expected));
}

QTEST_GUILESS_MAIN(tst_JsonUtils)
#include "tst_jsonutils.moc"
