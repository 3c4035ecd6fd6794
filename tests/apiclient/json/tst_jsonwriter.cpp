#include "apiclient/json/JsonUtils.h"
#include "tests/apiclient/json/Described.h"
#include "tests/support/Memory.h"
#include "tests/support/Texts.h"

#include <QDate>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QUrl>
#include <QtTest>

#include <cmath>
#include <cstring>
#include <limits>

namespace {

/// A type that converts to no other type.
struct Opaque {
    int number = 1;
};

} // namespace

Q_DECLARE_METATYPE(Opaque)

// JsonUtils::serialize and serializeToText.
class tst_JsonWriter : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void writesEveryType_data();
    void writesEveryType();
    void writesNullForValueWithoutJsonForm_data();
    void writesNullForValueWithoutJsonForm();
    void keepsDoubles_data();
    void keepsDoubles();
    void keepsRandomDoubles();
    void writesEveryCharacter();
    void escapesAtEveryPosition_data();
    void escapesAtEveryPosition();
    void startsWithPrefix_data();
    void startsWithPrefix();
    void writesLongTexts();
    void keepsNoSpareMemoryInShortText();
    void failsIfTextIsTooLong();
};

namespace {

template <typename Integer> QVariant limit(bool highest)
{
    return QVariant::fromValue(
        highest ? std::numeric_limits<Integer>::max() : std::numeric_limits<Integer>::min());
}

/// Returns the double that `json` represents. Returns NaN if it is not a JSON number or would be
/// read as an integer.
double asDouble(const QByteArray& json)
{
    static const QRegularExpression jsonNumber(
        QStringLiteral("\\A-?(0|[1-9][0-9]*)(\\.[0-9]+)?([eE][-+]?[0-9]+)?\\z"));
    const bool hasFraction = json.contains('.') || json.toLower().contains('e');
    double number = std::numeric_limits<double>::quiet_NaN();
    if (hasFraction && jsonNumber.match(QString::fromLatin1(json)).hasMatch()) {
        number = json.toDouble();
    }
    return number;
}

quint64 bitsOf(double number)
{
    quint64 bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return bits;
}

} // namespace

void tst_JsonWriter::writesEveryType_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("expected");
    const auto row = [](const char* name, const QVariant& value, const char* expected) {
        QTest::newRow(name) << value << QByteArray(expected);
    };
    row("true", true, "true");
    row("false", false, "false");
    row("int", 42, "42");
    row("negative int", -42, "-42");
    row("zero", 0, "0");
    row("smallest int", limit<int>(false), "-2147483648");
    row("largest int", limit<int>(true), "2147483647");
    row("largest uint", limit<uint>(true), "4294967295");
    row("smallest short", limit<short>(false), "-32768");
    row("largest ushort", limit<ushort>(true), "65535");
    row("smallest long", QVariant::fromValue(-2147483648L), "-2147483648");
    row("largest unsigned long of 32 bits", QVariant::fromValue(4294967295UL), "4294967295");
    row("smallest qlonglong", limit<qlonglong>(false), "-9223372036854775808");
    row("largest qlonglong", limit<qlonglong>(true), "9223372036854775807");
    row("2^53 + 1", 9007199254740993LL, "9007199254740993");
    row("2^63", 9223372036854775808ULL, "9223372036854775808");
    row("largest qulonglong", limit<qulonglong>(true), "18446744073709551615");
    row("text", text("text"), "\"text\"");
    row("empty text", text(""), "\"\"");
    row("null string", QString(), "\"\"");
    row("text that looks like a number", text("42"), "\"42\"");
    row("text that looks like null", text("null"), "\"null\"");
    row("text with percent signs", text("%1 %2"), "\"%1 %2\"");
    row("short escapes", text("\"\\\b\f\n\r\t"), R"("\"\\\b\f\n\r\t")");
    row("slash", text("</a>"), R"("</a>")");
    row("U+0000", QString(QChar(0)), R"("\u0000")");
    row("control characters", text("\x01\x0B\x1F"), R"("\u0001\u000b\u001f")");
    row("delete", text("\x7F"), "\"\x7F\"");
    row("characters of two, three and four bytes", text("é€𝄞"), "\"é€𝄞\"");
    row("U+FEFF", QString(QChar(0xFEFF)), "\"\xEF\xBB\xBF\"");
    row("unpaired high surrogate", QString(QChar(0xD83D)), R"("\ud83d")");
    row("unpaired low surrogate", QString(QChar(0xDE00)), R"("\ude00")");
    row("surrogates in the wrong order", QString(QChar(0xDE00)) + QChar(0xD83D),
        R"("\ude00\ud83d")");
    // The string does not own its characters. The other half of the pair follows its end.
    static const QChar pair[] = {QChar(0xD83D), QChar(0xDE00)};
    row("string that ends within a pair", QString::fromRawData(pair, 1), R"("\ud83d")");
    row("high surrogate before a pair", QChar(0xD83D) + text("\U0001D11E"), "\"\\ud83d𝄞\"");
    row("empty map", QVariantMap(), "{}");
    row("map", QVariantMap{{text("b"), 1}, {text("a"), text("x")}}, R"({"a":"x","b":1})");
    row("key with escapes", QVariantMap{{text("a\"\n"), 1}}, R"({"a\"\n":1})");
    row("key with a dot", QVariantMap{{text("a.b"), 1}}, R"({"a.b":1})");
    row("empty key", QVariantMap{{text(""), 1}}, R"({"":1})");
    row("hash", QVariantHash{{text("a"), QVariantList{1}}}, R"({"a":[1]})");
    row("empty hash", QVariantHash(), "{}");
    row("empty list", QVariantList(), "[]");
    row("list", QVariantList{1, text("x"), false}, R"([1,"x",false])");
    row("empty list of texts", QStringList(), "[]");
    row("list of texts", QStringList{text("a"), text("\"")}, R"(["a","\""])");
    row("nested", QVariantList{QVariantMap{{text("a"), QVariantList{QVariantMap()}}}},
        R"([{"a":[{}]}])");
    row("bytes", QByteArray("bytes"), "\"bytes\"");
    row("character", QChar(0x20AC), "\"€\"");
    row("URL", QUrl(text("http://127.0.0.1/a")), "\"http://127.0.0.1/a\"");
    row("date", QDate(2026, 2, 28), "\"2026-02-28\"");
}

void tst_JsonWriter::writesEveryType()
{
    QFETCH(QVariant, value);
    QFETCH(QByteArray, expected);
    QCOMPARE(JsonUtils::serialize(value), expected);
    QCOMPARE(JsonUtils::serializeToText(value).toUtf8(), expected);
    // The same inside a list or a map.
    QCOMPARE(
        JsonUtils::serialize(QVariantList{value, value}), '[' + expected + ',' + expected + ']');
    QCOMPARE(JsonUtils::serialize(QVariantMap{{text("k"), value}}), "{\"k\":" + expected + '}');
}

void tst_JsonWriter::writesNullForValueWithoutJsonForm_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::newRow("invalid") << QVariant();
    QTest::newRow("null") << QVariant::fromValue(nullptr);
    QTest::newRow("not a number") << QVariant(std::numeric_limits<double>::quiet_NaN());
    QTest::newRow("negative not a number") << QVariant(-std::numeric_limits<double>::quiet_NaN());
    QTest::newRow("infinity") << QVariant(std::numeric_limits<double>::infinity());
    QTest::newRow("negative infinity") << QVariant(-std::numeric_limits<double>::infinity());
    QTest::newRow("float infinity") << QVariant(std::numeric_limits<float>::infinity());
    QTest::newRow("float not a number") << QVariant(std::numeric_limits<float>::quiet_NaN());
    QTest::newRow("type without a text") << QVariant::fromValue(Opaque());
    QTest::newRow("null object pointer") << QVariant::fromValue<QObject*>(nullptr);
    QTest::newRow("object pointer") << QVariant::fromValue<QObject*>(this);
}

void tst_JsonWriter::writesNullForValueWithoutJsonForm()
{
    QFETCH(QVariant, value);
    QCOMPARE(JsonUtils::serialize(value), QByteArray("null"));
    QCOMPARE(JsonUtils::serializeToText(value), text("null"));
    QCOMPARE(JsonUtils::serialize(QVariantList{1, value, 2}), QByteArray("[1,null,2]"));
    QCOMPARE(JsonUtils::serialize(QVariantMap{{text("k"), value}}), QByteArray("{\"k\":null}"));
}

void tst_JsonWriter::keepsDoubles_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<double>("expected");
    const auto row = [](const char* name, const QVariant& value) {
        QTest::newRow(name) << value << value.toDouble();
    };
    row("0.1", 0.1);
    row("-0.1", -0.1);
    row("0.1 + 0.2", 0.1 + 0.2);
    row("1/3", 1.0 / 3.0);
    row("123456789.123456789", 123456789.123456789);
    row("1e300", 1e300);
    row("1e-300", 1e-300);
    row("0", 0.0);
    row("-0", -0.0);
    row("1", 1.0);
    row("2026", 2026.0);
    row("-2026", -2026.0);
    row("100000", 100000.0);
    row("1e15", 1e15);
    row("1e16", 1e16);
    row("1e17", 1e17);
    row("1e21", 1e21);
    row("1e22", 1e22);
    row("2^53", 9007199254740992.0);
    row("2^53 + 2", 9007199254740994.0);
    row("2^63", 9223372036854775808.0);
    row("2^64", 18446744073709551616.0);
    row("largest", std::numeric_limits<double>::max());
    row("lowest", std::numeric_limits<double>::lowest());
    row("smallest normal", std::numeric_limits<double>::min());
    row("largest subnormal", 2.2250738585072009e-308);
    row("smallest", std::numeric_limits<double>::denorm_min());
    row("next to 1", std::nextafter(1.0, 2.0));
    row("just below 1", std::nextafter(1.0, 0.0));
    row("seventeen digits", 0.30000000000000004);
    row("float 0.1", QVariant(0.1F));
    row("float 2", QVariant(2.0F));
    row("largest float", QVariant(std::numeric_limits<float>::max()));
}

void tst_JsonWriter::keepsDoubles()
{
    QFETCH(QVariant, value);
    QFETCH(double, expected);
    const QByteArray json = JsonUtils::serialize(value);
    QVERIFY2(bitsOf(asDouble(json)) == bitsOf(expected), json.constData());
    QCOMPARE(JsonUtils::serializeToText(value), QString::fromLatin1(json));
}

void tst_JsonWriter::keepsRandomDoubles()
{
    QRandomGenerator random(754);
    for (int i = 0; i < 20000; ++i) {
        double number = 0;
        const quint64 bits = random.generate64();
        std::memcpy(&number, &bits, sizeof number);
        if (std::isfinite(number)) {
            const QByteArray json = JsonUtils::serialize(number);
            QVERIFY2(bitsOf(asDouble(json)) == bits, json.constData());
            QCOMPARE(described(JsonUtils::parse(json)), described(QVariant(number)));
        }
    }
}

void tst_JsonWriter::writesEveryCharacter()
{
    const QString all = everyCharacterFrom(0x20);
    // QVERIFY, because the texts are too long to print.
    QVERIFY(JsonUtils::serialize(all) == '"' + all.toUtf8() + '"');
    QVERIFY(JsonUtils::serializeToText(all) == QLatin1Char('"') + all + QLatin1Char('"'));
}

void tst_JsonWriter::escapesAtEveryPosition_data()
{
    QTest::addColumn<QString>("special");
    QTest::addColumn<QByteArray>("written");
    const auto row = [](const QString& special, const QByteArray& written) {
        QTest::newRow(written.toPercentEncoding("\\\"").constData()) << special << written;
    };
    row(text("\""), "\\\"");
    row(text("\\"), "\\\\");
    row(text("\n"), "\\n");
    row(QString(QChar(0)), "\\u0000");
    row(text("\x1F"), "\\u001f");
    row(text("\x7F"), "\x7F");
    row(text("\u0080"), "\xC2\x80");
    row(text("\u07FF"), "\xDF\xBF");
    row(text("\u0800"), "\xE0\xA0\x80");
    row(text("\uD7FF"), "\xED\x9F\xBF");
    row(text("\uE000"), "\xEE\x80\x80");
    row(QString(QChar(0xFEFF)), "\xEF\xBB\xBF");
    row(text("\uFFFF"), "\xEF\xBF\xBF");
    row(text("\U00010000"), "\xF0\x90\x80\x80");
    row(text("\U0010FFFF"), "\xF4\x8F\xBF\xBF");
    row(QString(QChar(0xD800)), "\\ud800");
    row(QString(QChar(0xDBFF)), "\\udbff");
    row(QString(QChar(0xDC00)), "\\udc00");
    row(QString(QChar(0xDFFF)), "\\udfff");
}

void tst_JsonWriter::escapesAtEveryPosition()
{
    QFETCH(QString, special);
    QFETCH(QByteArray, written);
    const QByteArray letters(
        "abcdefghijklmnopqrstuvwxyz0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ{}[]:,.-");
    for (int length = 0; length <= letters.size(); ++length) {
        for (int position = 0; position <= length; ++position) {
            const QByteArray before = letters.left(position);
            const QByteArray after = letters.mid(position, length - position);
            const QString value = QString::fromUtf8(before) + special + QString::fromUtf8(after);
            const QByteArray expected = '"' + before + written + after + '"';
            QCOMPARE(JsonUtils::serialize(value), expected);
            QCOMPARE(JsonUtils::serializeToText(value).toUtf8(), expected);
            QCOMPARE(
                JsonUtils::serialize(QVariantMap{{value, 1}}), '{' + expected + QByteArray(":1}"));
        }
        const QByteArray full = '"' + written.repeated(length) + '"';
        QCOMPARE(JsonUtils::serialize(special.repeated(length)), full);
        QCOMPARE(JsonUtils::serializeToText(special.repeated(length)).toUtf8(), full);
    }
}

void tst_JsonWriter::startsWithPrefix_data()
{
    QTest::addColumn<QString>("prefix");
    QTest::newRow("no prefix") << QString();
    QTest::newRow("field code") << text("ADDIN CSL_CITATION ");
    QTest::newRow("percent sign") << text("%1");
    QTest::newRow("quotes") << text("\"\\");
    QTest::newRow("U+FEFF") << QString(QChar(0xFEFF));
    QTest::newRow("U+0000") << QString(QChar(0));
    QTest::newRow("unpaired surrogate") << QString(QChar(0xD83D));
    QTest::newRow("long") << QString(100000, QLatin1Char('p'));
}

void tst_JsonWriter::startsWithPrefix()
{
    QFETCH(QString, prefix);
    const QVariantMap map{{text("a"), text("é")}};
    QCOMPARE(JsonUtils::serializeToText(map, prefix), prefix + text("{\"a\":\"é\"}"));
    QCOMPARE(JsonUtils::serializeToText(QVariant(), prefix), prefix + text("null"));
    // A surrogate of the prefix and one of the value do not become a pair.
    QCOMPARE(
        JsonUtils::serializeToText(QString(QChar(0xDE00)), prefix), prefix + text("\"\\ude00\""));
}

void tst_JsonWriter::writesLongTexts()
{
    const int length = 3000001;
    const QString plain(length, QLatin1Char('a'));
    const QString escaped(length, QChar(1));
    const QString threeBytes(length, QChar(0x4E2D));
    // QVERIFY, because the texts are too long to print.
    QVERIFY(JsonUtils::serialize(plain) == '"' + QByteArray(length, 'a') + '"');
    QVERIFY(JsonUtils::serialize(escaped) == '"' + QByteArray("\\u0001").repeated(length) + '"');
    QVERIFY(JsonUtils::serialize(threeBytes) == '"' + threeBytes.toUtf8() + '"');
    QVERIFY(JsonUtils::serializeToText(escaped)
        == QLatin1Char('"') + text("\\u0001").repeated(length) + QLatin1Char('"'));
}

void tst_JsonWriter::keepsNoSpareMemoryInShortText()
{
    // A long document keeps thousands of field codes.
    QVERIFY(JsonUtils::serialize(text("short")).capacity() < 100);
    QVERIFY(JsonUtils::serializeToText(text("short"), text("prefix ")).capacity() < 100);
}

void tst_JsonWriter::failsIfTextIsTooLong()
{
    if (availableGigabytes() < 4) {
        QSKIP("Needs 4 GB of memory.");
    }
    // Each control character takes six code units as JSON. The elements share the text's memory.
    const QString million(1000 * 1000, QChar(0x02));
    const QStringList texts = QVector<QString>(200, million).toList();
    QVERIFY(JsonUtils::serializeToText(texts, text("ADDIN CSL_CITATION ")).isNull());
}

QTEST_GUILESS_MAIN(tst_JsonWriter)
#include "tst_jsonwriter.moc"
