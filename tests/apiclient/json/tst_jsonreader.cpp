#include "apiclient/json/JsonUtils.h"
#include "tests/apiclient/json/JsonForms.h"
#include "tests/support/Texts.h"

#include <QtTest>

#include <limits>

// JsonUtils::parse and parseText: the values of well-formed texts, UTF-16, the nesting limit, and
// replaced elements.
class tst_JsonReader : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void readsWellFormedText_data();
    void readsWellFormedText();
    void readsNumber_data();
    void readsNumber();
    void readsEveryCharacter();
    void readsUtf16_data();
    void readsUtf16();
    void limitsNesting_data();
    void limitsNesting();
    void readsSpecialUnitsAtEveryPosition_data();
    void readsSpecialUnitsAtEveryPosition();
    void revivesElements_data();
    void revivesElements();
};

namespace {

QVariant null()
{
    return QVariant::fromValue(nullptr);
}

} // namespace

void tst_JsonReader::readsWellFormedText_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QVariant>("expected");
    const auto row = [](const char* name, const QByteArray& json, const QVariant& expected) {
        QTest::newRow(name) << json << expected;
    };
    row("null", "null", null());
    row("true", "true", true);
    row("false", "false", false);
    row("text", "\"text\"", text("text"));
    row("empty text", "\"\"", text(""));
    row("empty object", "{}", QVariantMap());
    row("empty array", "[]", QVariantList());
    row("whitespace in empty object", "{ \t\r\n}", QVariantMap());
    row("whitespace in empty array", "[ \t\r\n]", QVariantList());
    row("whitespace everywhere", "\t\n\r { \"a\" : [ 1 , 2 ] , \"b\" : 3 } \t\n\r",
        QVariantMap{{text("a"), QVariantList{1LL, 2LL}}, {text("b"), 3LL}});
    row("no whitespace", R"({"a":[1,2],"b":3})",
        QVariantMap{{text("a"), QVariantList{1LL, 2LL}}, {text("b"), 3LL}});
    row("array of everything", R"([null,true,false,1,1.5,"x",{},[]])",
        QVariantList{null(), true, false, 1LL, 1.5, text("x"), QVariantMap(), QVariantList()});
    row("all short escapes", R"("\"\\\/\b\f\n\r\t")", text("\"\\/\b\f\n\r\t"));
    row("escapes in hexadecimal", R"("\u0041\u00e9\u20AC\uabcd\uABCD")", text("Aé€\uABCD\uABCD"));
    row("digits after an escape", R"("\u00411")", text("A1"));
    row("escaped surrogate pair", R"("\ud834\uDD1E")", text("\U0001D11E"));
    row("escaped unpaired high surrogate", R"("\ud83d")", QString(QChar(0xD83D)));
    row("escaped unpaired low surrogate", R"("\ude00")", QString(QChar(0xDE00)));
    row("escaped surrogates in the wrong order", R"("\ude00\ud83d")",
        QString(QChar(0xDE00)) + QChar(0xD83D));
    row("escaped high surrogate before a letter", R"("\ud83dx")", QChar(0xD83D) + text("x"));
    row("escaped high surrogate before another escape", R"("\ud83d\n")",
        QChar(0xD83D) + text("\n"));
    row("escaped U+0000", R"("\u0000")", QString(QChar(0)));
    row("escaped U+FEFF at the start", R"("\ufeffx")", QChar(0xFEFF) + text("x"));
    row("U+FEFF at the start of a text", "\"\xEF\xBB\xBFx\"", QChar(0xFEFF) + text("x"));
    row("U+FEFF at the start of a text with escapes", "\"\xEF\xBB\xBF\\n\"",
        QChar(0xFEFF) + text("\n"));
    row("U+FEFF at the start of a key", "{\"\xEF\xBB\xBFk\":1}",
        QVariantMap{{QChar(0xFEFF) + text("k"), 1LL}});
    row("byte order mark", "\xEF\xBB\xBF{\"a\":1}", QVariantMap{{text("a"), 1LL}});
    row("byte order mark and whitespace", "\xEF\xBB\xBF [1]", QVariantList{1LL});
    row("raw U+0000 in a text", QByteArray("\"a\0b\"", 5), text("a") + QChar(0) + text("b"));
    row("raw control characters in a text", "\"\x01\b\t\n\x1F\x7F\"", text("\x01\b\t\n\x1F\x7F"));
    row("noncharacters", "\"\xEF\xBF\xBE\xEF\xBF\xBF\"", text("\uFFFE\uFFFF"));
    row("U+10FFFF", "\"\xF4\x8F\xBF\xBF\"", text("\U0010FFFF"));
    row("text that looks like JSON", R"("{\"a\":[1,}")", text("{\"a\":[1,}"));
    row("key twice", R"({"a":1,"b":2,"a":3})", QVariantMap{{text("a"), 3LL}, {text("b"), 2LL}});
    row("key twice, values of different types", R"({"a":{"x":1},"a":[],"a":null})",
        QVariantMap{{text("a"), null()}});
    row("key twice, once escaped", R"({"a":1,"\u0061":2})", QVariantMap{{text("a"), 2LL}});
    row("equal keys in different objects", R"([{"a":1},{"a":2}])",
        QVariantList{QVariantMap{{text("a"), 1LL}}, QVariantMap{{text("a"), 2LL}}});
    row("keys in descending order", R"({"c":1,"b":2,"a":3})",
        QVariantMap{{text("a"), 3LL}, {text("b"), 2LL}, {text("c"), 1LL}});
    row("keys with dots", R"({"a.b":1,"a":{"b":2},".":3})",
        QVariantMap{
            {text("a.b"), 1LL}, {text("a"), QVariantMap{{text("b"), 2LL}}}, {text("."), 3LL}});
    row("empty key", R"({"":1})", QVariantMap{{text(""), 1LL}});
    row("key with U+0000", R"({"\u0000":1})", QVariantMap{{QString(QChar(0)), 1LL}});
    row("key with an unpaired surrogate", R"({"\ud83d":1})",
        QVariantMap{{QString(QChar(0xD83D)), 1LL}});
}

void tst_JsonReader::readsWellFormedText()
{
    QFETCH(QByteArray, json);
    QFETCH(QVariant, expected);
    QCOMPARE(describedFromBothForms(json), described(expected));
}

void tst_JsonReader::readsNumber_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QVariant>("expected");
    const auto row = [](const QByteArray& json, const QVariant& expected) {
        QTest::newRow(json.left(40).constData()) << json << expected;
    };
    const auto named = [](const char* name, const QByteArray& json, const QVariant& expected) {
        QTest::newRow(name) << json << expected;
    };
    row("0", 0LL);
    row("7", 7LL);
    row("-7", -7LL);
    row("10", 10LL);
    row("2147483648", 2147483648LL);
    row("-2147483649", -2147483649LL);
    row("9007199254740993", 9007199254740993LL);
    row("9223372036854775807", std::numeric_limits<qlonglong>::max());
    row("9223372036854775808", 9223372036854775808ULL);
    row("18446744073709551609", 18446744073709551609ULL);
    row("18446744073709551615", std::numeric_limits<qulonglong>::max());
    row("18446744073709551616", 18446744073709551616.0);
    row("18446744073709551620", 18446744073709551620.0);
    row("99999999999999999999", 1e20);
    row("-9223372036854775807", -9223372036854775807LL);
    row("-9223372036854775808", std::numeric_limits<qlonglong>::min());
    row("-9223372036854775809", -9223372036854775809.0);
    row("-18446744073709551615", -18446744073709551615.0);
    row("-18446744073709551616", -18446744073709551616.0);

    row("-0", -0.0);
    row("0.0", 0.0);
    row("-0.0", -0.0);
    row("0e0", 0.0);
    row("0e999999999999", 0.0);
    row("-0e-5", -0.0);
    row("1.0", 1.0);
    row("0.1", 0.1);
    row("-0.1", -0.1);
    row("1.5", 1.5);
    row("1e2", 100.0);
    row("1E2", 100.0);
    row("1e+2", 100.0);
    row("1E+2", 100.0);
    row("1e-2", 0.01);
    row("1E-2", 0.01);
    row("1.25e2", 125.0);
    row("1e02", 100.0);
    row("1e-002", 0.01);
    row("123456789.123456789", 123456789.123456789);
    row("1e300", 1e300);
    row("9007199254740993.0", 9007199254740992.0);
    row("1.7976931348623157e308", std::numeric_limits<double>::max());
    row("-1.7976931348623157e308", std::numeric_limits<double>::lowest());
    row("1.79769313486231580e308", std::numeric_limits<double>::max());
    row("2.2250738585072014e-308", std::numeric_limits<double>::min());
    row("2.2250738585072011e-308", 2.2250738585072011e-308);
    row("4.9e-324", std::numeric_limits<double>::denorm_min());
    row("1e-324", 0.0);
    row("1e-400", 0.0);
    row("-1e-400", -0.0);
    row("1e-99999999999999999999", 0.0);

    const QByteArray zeros(100000, '0');
    named("100,000 digits after the point", "0." + zeros + '1', 0.0);
    named("zeros after the point", "1." + zeros, 1.0);
    named("many digits, small exponent", '1' + zeros.left(1000) + "e-1000", 1.0);
    named("many zeros, large exponent", "0." + zeros.left(999) + "1e1000", 1.0);
    named("zeros in the exponent", "1e" + zeros + '2', 100.0);
    named("308 zeros", '1' + zeros.left(308), 1e308);
    named("800 digits", "0." + QByteArray(800, '3'), 1.0 / 3.0);
}

void tst_JsonReader::readsNumber()
{
    QFETCH(QByteArray, json);
    QFETCH(QVariant, expected);
    QCOMPARE(describedFromBothForms(json), described(expected));
    QCOMPARE(describedFromBothForms('[' + json + ']'), described(QVariantList{expected}));
    QCOMPARE(describedFromBothForms("{\"n\": " + json + " }"),
        described(QVariantMap{{text("n"), expected}}));
}

void tst_JsonReader::readsEveryCharacter()
{
    const QString all = everyCharacterFrom(0);
    // QVERIFY, because the texts are too long to print.
    QVERIFY(JsonUtils::parse('"' + all.toUtf8() + '"') == QVariant(all));
    QVERIFY(JsonUtils::parseText(QLatin1Char('"') + all + QLatin1Char('"')) == QVariant(all));
}

void tst_JsonReader::readsUtf16_data()
{
    QTest::addColumn<QString>("json");
    QTest::addColumn<QVariant>("expected");
    const auto row = [](const char* name, const QString& json, const QVariant& expected = {}) {
        QTest::newRow(name) << json << expected;
    };
    const QString high(QChar(0xD83D));
    const QString low(QChar(0xDE00));
    const QString mark(QChar(0xFEFF));
    const QString quote = text("\"");
    row("unpaired high surrogate", quote + high + quote, high);
    row("unpaired low surrogate", quote + low + quote, low);
    row("surrogates in the wrong order", quote + low + high + quote, low + high);
    row("surrogate pair", quote + high + low + quote, high + low);
    row("raw high surrogate, escaped low one", quote + high + text("\\ude00\""), high + low);
    row("escaped high surrogate, raw low one", text("\"\\ud83d") + low + quote, high + low);
    row("high surrogate in a key", text("{\"") + high + text("\":1}"), QVariantMap{{high, 1LL}});
    row("byte order mark", mark + text("[]"), QVariantList());
    row("U+FEFF at the start of a text", quote + mark + text("a\""), mark + text("a"));
    row("U+0000 in a text", quote + QChar(0) + quote, QString(QChar(0)));
    row("units whose low byte is a quote or a backslash", text("\"\u0122\u015C\u2022\u5C5C\""),
        text("\u0122\u015C\u2022\u5C5C"));

    row("two byte order marks", mark + mark + text("[]"));
    row("only a byte order mark", mark);
    row("swapped byte order mark", QChar(0xFFFE) + text("[]"));
    row("byte order mark at the end", text("[]") + mark);
    row("surrogate pair outside a text", high + low);
    row("high surrogate outside a text", text("[1,") + high + text("]"));
    row("high surrogate at the end", text("{}") + high);
    row("high surrogate after a backslash", text("\"\\") + high + quote);
    row("high surrogate in hexadecimal digits", text("\"\\u00") + high + text("0\""));
    row("units whose low byte is a bracket", text("\u015B\u015D"));
    row("units whose low byte is a digit", text("[\u0131]"));
    row("unit whose low byte is a quote, as closing quote", text("\"a\u0122"));
    row("unit whose low byte is n", text("\u016Eull"));
    row("unit whose low byte is a space", text("\u0120{}"));
    row("escape whose low byte is n", text("\"\\\u016E\""));
    row("hexadecimal digits in other scripts", text("\"\\u\u0660\u0660\u0664\u0661\""));
    row("unit whose low byte is a hexadecimal digit", text("\"\\u004\u0131\""));
    row("full-width digits", text("[\uFF11]"));
}

void tst_JsonReader::readsUtf16()
{
    QFETCH(QString, json);
    QFETCH(QVariant, expected);
    QCOMPARE(described(JsonUtils::parseText(json)), described(expected));
}

void tst_JsonReader::limitsNesting_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<bool>("valid");
    const auto row = [](const char* name, const QByteArray& json, bool valid) {
        QTest::newRow(name) << json << valid;
    };
    const auto arrays = [](int depth, const QByteArray& inside = {}) {
        return QByteArray(depth, '[') + inside + QByteArray(depth, ']');
    };
    const auto objects = [](int depth, const QByteArray& inside) {
        return QByteArray("{\"a\":").repeated(depth) + inside + QByteArray(depth, '}');
    };
    row("1 array", arrays(1), true);
    row("1024 arrays", arrays(1024), true);
    row("1024 arrays around a number", arrays(1024, "1"), true);
    row("1024 objects", objects(1024, "1"), true);
    row("1023 objects around an empty one", objects(1023, "{}"), true);
    row("512 arrays in 512 objects", objects(512, arrays(512)), true);
    row("1024 arrays in one array", '[' + arrays(1).append(',').repeated(1023) + arrays(1) + ']',
        true);
    row("5000 empty arrays in one array", '[' + QByteArray("[],").repeated(5000) + "[]]", true);
    row("5000 empty objects in one array", '[' + QByteArray("{},").repeated(5000) + "{}]", true);
    row("5000 full arrays in one array", '[' + QByteArray("[1],").repeated(5000) + "1]", true);
    row("5000 full objects in one array", '[' + QByteArray("{\"a\":1},").repeated(5000) + "1]",
        true);
    row("200,000 brackets in a text", '"' + QByteArray(200000, '[') + '"', true);

    row("1025 arrays", arrays(1025), false);
    row("1025 arrays around a number", arrays(1025, "1"), false);
    row("1025 objects", objects(1025, "1"), false);
    row("1024 objects around an empty one", objects(1024, "{}"), false);
    row("513 arrays in 512 objects", objects(512, arrays(513)), false);
    row("512 arrays in 513 objects", objects(513, arrays(512)), false);
    row("200,000 arrays", arrays(200000), false);
    row("200,000 objects", objects(200000, "1"), false);
    row("200,000 open arrays", QByteArray(200000, '['), false);
    row("200,000 open objects", QByteArray("{\"a\":").repeated(200000), false);
    row("200,000 open arrays and objects", QByteArray("[{\"a\":").repeated(100000), false);
    row("200,000 closing brackets", QByteArray(200000, ']'), false);
    row("200,000 open braces", QByteArray(200000, '{'), false);
    row("1024 open arrays", QByteArray(1024, '['), false);
    row("missing closing bracket", arrays(1024).chopped(1), false);
    row("extra closing bracket", arrays(1023) + ']', false);
}

void tst_JsonReader::limitsNesting()
{
    QFETCH(QByteArray, json);
    QFETCH(bool, valid);
    QCOMPARE(parseExactly(json).isValid(), valid);
    QCOMPARE(JsonUtils::parseText(inUtf16(json)).isValid(), valid);
}

void tst_JsonReader::readsSpecialUnitsAtEveryPosition_data()
{
    QTest::addColumn<QByteArray>("written");
    QTest::addColumn<QString>("read");
    const auto row = [](const QByteArray& written, const QString& read) {
        QTest::newRow(written.toPercentEncoding("\\\"").constData()) << written << read;
    };
    row("\\\"", text("\""));
    row("\\\\", text("\\"));
    row("\\/", text("/"));
    row("\\n", text("\n"));
    row("\\u0041", text("A"));
    row("\\u0000", QString(QChar(0)));
    row("\\ud83d", QString(QChar(0xD83D)));
    row("\\ud834\\udd1e", text("\U0001D11E"));
    row("\x01", text("\x01"));
    row("\x7F", text("\x7F"));
    row("\xC2\x80", text("\u0080"));
    row("\xC3\xA9", text("\u00E9"));
    row("\xE2\x82\xAC", text("\u20AC"));
    row("\xEF\xBB\xBF", QString(QChar(0xFEFF)));
    row("\xF0\x9D\x84\x9E", text("\U0001D11E"));
}

void tst_JsonReader::readsSpecialUnitsAtEveryPosition()
{
    QFETCH(QByteArray, written);
    QFETCH(QString, read);
    const QByteArray letters(
        "abcdefghijklmnopqrstuvwxyz0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ{}[]:,.-");
    for (int length = 0; length <= letters.size(); ++length) {
        for (int position = 0; position <= length; ++position) {
            const QByteArray before = letters.left(position);
            const QByteArray after = letters.mid(position, length - position);
            const QString expected = QString::fromUtf8(before) + read + QString::fromUtf8(after);
            const QByteArray json = '"' + before + written + after + '"';
            QCOMPARE(described(parseExactly(json)), described(expected));
            QCOMPARE(described(JsonUtils::parseText(inUtf16(json))), described(expected));
            const QVariant map = JsonUtils::parse('{' + json + ":1}");
            QCOMPARE(described(map), described(QVariantMap{{expected, 1LL}}));
        }
        const QByteArray full = written.repeated(length);
        QCOMPARE(described(parseExactly('"' + full + '"')), described(read.repeated(length)));
    }
}

void tst_JsonReader::revivesElements_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QByteArray>("expected"); // JSON, or empty if `json` is malformed
    QTest::addColumn<QByteArrayList>("elements"); // as JSON, in the order of the calls
    const auto row = [](const char* name, const char* json, const char* expected,
                         const QByteArrayList& elements) {
        QTest::newRow(name) << QByteArray(json) << QByteArray(expected) << elements;
    };
    row("elements of every type", R"({"k":[1,"x",null,{"a":2},[3]]})", R"({"k":[0,1,2,3,4]})",
        {"1", "\"x\"", "null", R"({"a":2})", "[3]"});
    row("other keys", R"({"a":[1],"k":[2],"kk":[3],"K":[4]})",
        R"({"a":[1],"k":[0],"kk":[3],"K":[4]})", {"2"});
    row("escaped key", R"({"\u006b":[1]})", R"({"k":[0]})", {"1"});
    row("whitespace", " { \"k\" : [ 1 , 2 ] } ", R"({"k":[0,1]})", {"1", "2"});
    row("empty array", R"({"k":[]})", R"({"k":[]})", {});
    row("arrays in the array", R"({"k":[[1,2],{"k":[3]}]})", R"({"k":[0,1]})",
        {"[1,2]", R"({"k":[3]})"});
    row("key in an inner object", R"({"a":{"k":[1]}})", R"({"a":{"k":[1]}})", {});
    row("value is an object", R"({"k":{"k":[1]}})", R"({"k":{"k":[1]}})", {});
    row("value is a string", R"({"k":"x"})", R"({"k":"x"})", {});
    row("object in an array", R"([{"k":[1]}])", R"([{"k":[1]}])", {});
    row("key twice", R"({"k":[1,2],"k":[3]})", R"({"k":[2]})", {"1", "2", "3"});
    row("array and later a number", R"({"k":[1],"k":5})", R"({"k":5})", {"1"});
    row("malformed element", R"({"k":[1,x]})", "", {"1"});
    row("malformed after the array", R"({"k":[1]]})", "", {"1"});
}

void tst_JsonReader::revivesElements()
{
    QFETCH(QByteArray, json);
    QFETCH(QByteArray, expected);
    QFETCH(QByteArrayList, elements);
    QByteArrayList calls;
    const auto revive = [&calls](const QVariant& element) {
        calls << JsonUtils::serialize(element);
        return QVariant(qlonglong(calls.size() - 1));
    };
    const QVariant value = JsonUtils::parse(json, {text("k"), revive});
    QCOMPARE(value.isValid(), !expected.isEmpty());
    QCOMPARE(described(value), described(JsonUtils::parse(expected)));
    QCOMPARE(calls, elements);
}

QTEST_GUILESS_MAIN(tst_JsonReader)
#include "tst_jsonreader.moc"
