#include "service/FieldCode.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

Q_DECLARE_METATYPE(QVariantMap)

namespace {

QVariantMap readByQt(const QByteArray& json)
{
    return QJsonDocument::fromJson(json).object().toVariantMap();
}

} // namespace

class tst_FieldCode : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void writesCluster_data();
    void writesCluster();
    void readsCluster_data();
    void readsCluster();
    void returnsEmptyMapWithoutCluster_data();
    void returnsEmptyMapWithoutCluster();
    void readsWhatItWrote_data();
    void readsWhatItWrote();
};

void tst_FieldCode::writesCluster_data()
{
    QTest::addColumn<QVariantMap>("response");
    QTest::addColumn<QString>("expected");

    const auto cluster = [](const QVariant& value) {
        return QVariantMap{{QStringLiteral("citationCluster"), value}};
    };
    const auto fieldCode = [](const char* json) {
        return QStringLiteral("ADDIN CSL_CITATION ") + QString::fromUtf8(json);
    };
    const auto map = [](const char* key, const QVariant& value) {
        return QVariantMap{{QString::fromUtf8(key), value}};
    };
    const auto text = [](const char* utf8) { return QVariant(QString::fromUtf8(utf8)); };

    QTest::newRow("object") << cluster(map("id", text("x"))) << fieldCode(R"({"id":"x"})");
    QTest::newRow("empty object") << cluster(QVariantMap()) << fieldCode("{}");
    QTest::newRow("keys in ascending order")
        << cluster(readByQt(R"({"b":"2","tessaron":{"y":"1","x":"0"},"a":"1","B":"0"})"))
        << fieldCode(R"({"B":"0","a":"1","b":"2","tessaron":{"x":"0","y":"1"}})");
    QTest::newRow("list inside") << cluster(
        map("citationItems", QVariantList{QVariantMap(), map("id", text("i"))}))
                                 << fieldCode(R"({"citationItems":[{},{"id":"i"}]})");
    QTest::newRow("placeholders are text")
        << cluster(map("%1", text("%1 %2 %L1 %%"))) << fieldCode(R"({"%1":"%1 %2 %L1 %%"})");
    QTest::newRow("other scripts") << cluster(map("title", text("Ünï 東京 \U0001F600")))
                                   << fieldCode(R"({"title":"Ünï 東京 😀"})");
    QTest::newRow("quotes, backslash and line break")
        << cluster(map("t", text("a\"b\\c\nd"))) << fieldCode(R"({"t":"a\"b\\c\nd"})");
    QTest::newRow("only the cluster of the response") << QVariantMap{
        {QStringLiteral("citationCluster"), map("id", text("x"))},
        {QStringLiteral("formattedText"), text("(X 2001)")},
        {QStringLiteral("bibliography"), text("X.")}} << fieldCode(R"({"id":"x"})");

    // Values that are not a cluster are written as they are.
    QTest::newRow("empty response") << QVariantMap() << fieldCode("null");
    QTest::newRow("key in another case")
        << map("CitationCluster", QVariantMap()) << fieldCode("null");
    QTest::newRow("cluster one level deeper")
        << map("result", cluster(map("id", text("x")))) << fieldCode("null");
    QTest::newRow("null") << cluster(QVariant::fromValue(nullptr)) << fieldCode("null");
    QTest::newRow("invalid value") << cluster(QVariant()) << fieldCode("null");
    QTest::newRow("text") << cluster(text("x")) << fieldCode(R"("x")");
    QTest::newRow("number") << cluster(qlonglong(-5)) << fieldCode("-5");
    QTest::newRow("true") << cluster(true) << fieldCode("true");
    QTest::newRow("list") << cluster(QVariantList{qlonglong(1), text("b")})
                          << fieldCode(R"([1,"b"])");
}

void tst_FieldCode::writesCluster()
{
    QFETCH(QVariantMap, response);
    QFETCH(QString, expected);
    QCOMPARE(clusterToFieldCode(response), expected);
}

void tst_FieldCode::readsCluster_data()
{
    QTest::addColumn<QString>("fieldCode");
    QTest::addColumn<QByteArray>("clusterJson");

    const auto row = [](const char* name, const char* fieldCode, const QByteArray& clusterJson) {
        QTest::newRow(name) << QString::fromUtf8(fieldCode) << clusterJson;
    };
    const QByteArray simple = R"({"a":"1"})";
    row("as it is written", R"(ADDIN CSL_CITATION {"a":"1"})", simple);
    row("no text before", R"({"a":"1"})", simple);
    row("no space before", R"(ADDIN CSL_CITATION{"a":"1"})", simple);
    row("another field type", R"(HYPERLINK {"a":"1"})", simple);
    row("more whitespace", "  \t ADDIN   CSL_CITATION  \n  {\"a\":\"1\"}", simple);
    row("other scripts before", R"(Zitat – 引用 😀 {"a":"1"})", simple);
    row("text after", R"(ADDIN CSL_CITATION {"a":"1"} \* MERGEFORMAT)", simple);
    row("whitespace after", "ADDIN CSL_CITATION {\"a\":\"1\"} \r\n", simple);
    row("closing brace before", R"(} ADDIN } CSL_CITATION {"a":"1"})", simple);
    row("whitespace inside", "ADDIN CSL_CITATION { \"a\" :\n\t\"1\" }", simple);
    row("inside a list of one", R"([{"a":"1"}])", simple);
    row("braces in a value", R"(X {"a":"}{ {{ }} \"}"} Y)", R"({"a":"}{ {{ }} \"}"})");
    row("braces in a key", R"(X {"}{":{"{":"}"}})", R"({"}{":{"{":"}"}})");
    row("nested objects", R"(X {"tessaron":{"manualFormatting":{"x":{}}}})",
        R"({"tessaron":{"manualFormatting":{"x":{}}}})");
    row("placeholders", R"(%1 {"%1":"%2 %1"} %2)", R"({"%1":"%2 %1"})");
    row("all kinds of values", R"(X {"l":[1,"b",null,true,{}],"n":null,"t":false})",
        R"({"l":[1,"b",null,true,{}],"n":null,"t":false})");
}

void tst_FieldCode::readsCluster()
{
    QFETCH(QString, fieldCode);
    QFETCH(QByteArray, clusterJson);
    const QVariantMap expected = readByQt(clusterJson);
    QVERIFY(!expected.isEmpty());
    QCOMPARE(jsonFromFieldCode(fieldCode), expected);
}

void tst_FieldCode::returnsEmptyMapWithoutCluster_data()
{
    QTest::addColumn<QString>("fieldCode");

    const auto row = [](const char* name, const char* fieldCode) {
        QTest::newRow(name) << QString::fromUtf8(fieldCode);
    };
    QTest::newRow("null text") << QString();
    row("empty text", "");
    row("whitespace", "   \n");
    row("no braces", "ADDIN CSL_CITATION");
    row("scalar", "ADDIN CSL_CITATION null");
    row("list without braces", "ADDIN CSL_CITATION [1,2]");
    row("opening brace only", "ADDIN CSL_CITATION {");
    row("closing brace only", "ADDIN CSL_CITATION }");
    row("object without its closing brace", R"(ADDIN CSL_CITATION {"a":"1")");
    row("object without its opening brace", R"(ADDIN CSL_CITATION "a":"1"})");
    row("closing brace directly before", R"(}{"a":"1")");
    row("braces in the wrong order", "}{");
    row("closing brace further before", R"(} ADDIN {"a":"1")");
    row("closing brace before a list", R"(} [{"a":"1"])");
    row("empty object", "ADDIN CSL_CITATION {}");
    row("unbalanced", R"(X {"a":{"b":"1"})");
    row("one brace too many", R"(X {"a":"1"}})");
    row("braces in the text before", R"(X {y} {"a":"1"})");
    row("braces in the text after", R"(X {"a":"1"} {y})");
    row("two objects", R"({"a":"1"}{"b":"2"})");
    row("list of two objects", R"([{"a":"1"},{"b":"2"}])");
    row("no quotes", "{a:1}");
    row("closing brace only in a string", R"({"a":"}")");
    row("not JSON", "{\\rtf1 hello}");
}

void tst_FieldCode::returnsEmptyMapWithoutCluster()
{
    QFETCH(QString, fieldCode);
    QCOMPARE(jsonFromFieldCode(fieldCode), QVariantMap());
}

void tst_FieldCode::readsWhatItWrote_data()
{
    QTest::addColumn<QVariantMap>("cluster");

    const auto row = [](const char* name, const QVariant& value) {
        QTest::newRow(name) << QVariantMap{{QStringLiteral("value"), value}};
    };
    row("text", QStringLiteral("text"));
    row("largest signed integer", qlonglong(9223372036854775807));
    row("smallest signed integer", qlonglong(-9223372036854775807 - 1));
    row("largest unsigned integer", qulonglong(18446744073709551615U));
    row("double", 123456789.123456789);
    row("integral double", 2.0);
    row("U+0000", QString(QChar(0)));
    row("U+FEFF", QString(QChar(0xFEFF)));
    row("first half of an emoji", QString(QChar(0xD83D)));
    row("second half of an emoji", QString(QChar(0xDE00)));
    row("braces and placeholders", QStringLiteral("}{%1%2"));
    row("nested", QVariantMap{{QStringLiteral("l"), QVariantList{QVariantMap(), QVariantList()}}});
}

void tst_FieldCode::readsWhatItWrote()
{
    QFETCH(QVariantMap, cluster);
    const QString fieldCode = clusterToFieldCode({{QStringLiteral("citationCluster"), cluster}});
    const QVariantMap back = jsonFromFieldCode(fieldCode);
    QCOMPARE(back, cluster);
    // QVariant compares 2 and 2.0 as equal.
    QCOMPARE(back.first().userType(), cluster.first().userType());
}

QTEST_GUILESS_MAIN(tst_FieldCode)
#include "tst_fieldcode.moc"
