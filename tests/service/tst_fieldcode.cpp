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

class FieldCodeTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void fieldCodeOfCluster_data();
    void fieldCodeOfCluster();
    void clusterInFieldCode_data();
    void clusterInFieldCode();
    void noClusterInFieldCode_data();
    void noClusterInFieldCode();
    void roundTrip_data();
    void roundTrip();
    void responseIsLeftAlone();
};

void FieldCodeTest::fieldCodeOfCluster_data()
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

    // What is no cluster is written all the same.
    QTest::newRow("nothing in the response") << QVariantMap() << fieldCode("null");
    QTest::newRow("no cluster") << map("error", text("no cluster")) << fieldCode("null");
    QTest::newRow("key in another case")
        << map("CitationCluster", QVariantMap()) << fieldCode("null");
    QTest::newRow("cluster one level deeper")
        << map("result", cluster(map("id", text("x")))) << fieldCode("null");
    QTest::newRow("null") << cluster(QVariant::fromValue(nullptr)) << fieldCode("null");
    QTest::newRow("invalid value") << cluster(QVariant()) << fieldCode("null");
    QTest::newRow("text") << cluster(text("x")) << fieldCode(R"("x")");
    QTest::newRow("text with a placeholder") << cluster(text("%1")) << fieldCode(R"("%1")");
    QTest::newRow("number") << cluster(qlonglong(-5)) << fieldCode("-5");
    QTest::newRow("true") << cluster(true) << fieldCode("true");
    QTest::newRow("list") << cluster(QVariantList{qlonglong(1), text("b")})
                          << fieldCode(R"([1,"b"])");
    QTest::newRow("empty list") << cluster(QVariantList()) << fieldCode("[]");
}

void FieldCodeTest::fieldCodeOfCluster()
{
    QFETCH(QVariantMap, response);
    QFETCH(QString, expected);
    QCOMPARE(clusterToFieldCode(response), expected);
}

void FieldCodeTest::clusterInFieldCode_data()
{
    QTest::addColumn<QString>("fieldCode");
    QTest::addColumn<QByteArray>("clusterJson");

    const auto row = [](const char* name, const char* fieldCode, const QByteArray& clusterJson) {
        QTest::newRow(name) << QString::fromUtf8(fieldCode) << clusterJson;
    };
    const QByteArray simple = R"({"a":"1"})";
    row("as it is written", R"(ADDIN CSL_CITATION {"a":"1"})", simple);
    row("no words in front", R"({"a":"1"})", simple);
    row("no blank in front", R"(ADDIN CSL_CITATION{"a":"1"})", simple);
    row("another field type", R"(HYPERLINK {"a":"1"})", simple);
    row("more blanks", "  \t ADDIN   CSL_CITATION  \n  {\"a\":\"1\"}", simple);
    row("other scripts in front", R"(Zitat – 引用 😀 {"a":"1"})", simple);
    row("words behind", R"(ADDIN CSL_CITATION {"a":"1"} \* MERGEFORMAT)", simple);
    row("blanks behind", "ADDIN CSL_CITATION {\"a\":\"1\"} \r\n", simple);
    row("closing brace in front", R"(} ADDIN } CSL_CITATION {"a":"1"})", simple);
    row("blanks inside", "ADDIN CSL_CITATION { \"a\" :\n\t\"1\" }", simple);
    row("inside a list of one", R"([{"a":"1"}])", simple);
    row("braces in a value", R"(X {"a":"}{ {{ }} \"}"} Y)", R"({"a":"}{ {{ }} \"}"})");
    row("braces in a key", R"(X {"}{":{"{":"}"}})", R"({"}{":{"{":"}"}})");
    row("nested objects", R"(X {"tessaron":{"manualFormatting":{"x":{}}}})",
        R"({"tessaron":{"manualFormatting":{"x":{}}}})");
    row("value in other scripts", R"(X {"a":"Ünï 東京 😀"})", R"({"a":"Ünï 東京 😀"})");
    row("placeholders", R"(%1 {"%1":"%2 %1"} %2)", R"({"%1":"%2 %1"})");
    row("all kinds of values", R"(X {"l":[1,"b",null,true,{}],"n":null,"t":false})",
        R"({"l":[1,"b",null,true,{}],"n":null,"t":false})");
}

void FieldCodeTest::clusterInFieldCode()
{
    QFETCH(QString, fieldCode);
    QFETCH(QByteArray, clusterJson);
    const QVariantMap expected = readByQt(clusterJson);
    QVERIFY(!expected.isEmpty());
    QCOMPARE(jsonFromFieldCode(fieldCode), expected);
}

void FieldCodeTest::noClusterInFieldCode_data()
{
    QTest::addColumn<QString>("fieldCode");

    const auto row = [](const char* name, const char* fieldCode) {
        QTest::newRow(name) << QString::fromUtf8(fieldCode);
    };
    QTest::newRow("null text") << QString();
    row("empty text", "");
    row("blanks", "   \n");
    row("no braces", "ADDIN CSL_CITATION");
    row("scalar", "ADDIN CSL_CITATION null");
    row("list without braces", "ADDIN CSL_CITATION [1,2]");
    row("opening brace only", "ADDIN CSL_CITATION {");
    row("closing brace only", "ADDIN CSL_CITATION }");
    row("object that does not end", R"(ADDIN CSL_CITATION {"a":"1")");
    row("object that does not begin", R"(ADDIN CSL_CITATION "a":"1"})");
    row("closing brace directly in front", R"(}{"a":"1")");
    row("braces the wrong way round", "}{");
    row("closing brace further in front", R"(} ADDIN {"a":"1")");
    row("closing brace first, list behind", R"(} [{"a":"1"])");
    row("empty object", "ADDIN CSL_CITATION {}");
    row("unbalanced", R"(X {"a":{"b":"1"})");
    row("one brace too many", R"(X {"a":"1"}})");
    row("brace of the words in front", R"(X {y} {"a":"1"})");
    row("brace of the words behind", R"(X {"a":"1"} {y})");
    row("two objects", R"({"a":"1"}{"b":"2"})");
    row("list of two objects", R"([{"a":"1"},{"b":"2"}])");
    row("no quotes", "{a:1}");
    row("single quotes", "{'a':'1'}");
    row("typographic quotes", "{“a”:“1”}");
    row("missing value", R"({"a":})");
    row("missing colon", R"({"a" "1"})");
    row("trailing comma", R"({"a":"1",})");
    row("comment", R"({"a":"1" /* x */})");
    row("closing brace inside a text only", R"({"a":"}")");
    row("not JSON at all", "{\\rtf1 hello}");
}

void FieldCodeTest::noClusterInFieldCode()
{
    QFETCH(QString, fieldCode);
    QCOMPARE(jsonFromFieldCode(fieldCode), QVariantMap());
}

void FieldCodeTest::roundTrip_data()
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

void FieldCodeTest::roundTrip()
{
    QFETCH(QVariantMap, cluster);
    const QString fieldCode = clusterToFieldCode({{QStringLiteral("citationCluster"), cluster}});
    const QVariantMap back = jsonFromFieldCode(fieldCode);
    QCOMPARE(back, cluster);
    // QVariant calls 2 and 2.0 equal.
    QCOMPARE(back.first().userType(), cluster.first().userType());
}

void FieldCodeTest::responseIsLeftAlone()
{
    const QVariantMap response{{QStringLiteral("error"), QStringLiteral("x")}};
    const QVariantMap before = response;
    clusterToFieldCode(response);
    QCOMPARE(response, before);
}

QTEST_GUILESS_MAIN(FieldCodeTest)
#include "tst_fieldcode.moc"
