#include "apiclient/json/JsonUtils.h"
#include "tests/apiclient/json/JsonForms.h"
#include "tests/support/Texts.h"

#include <QtTest>

#include <algorithm>

// JsonUtils::parse and parseText: malformed texts.
class tst_JsonReaderMalformed : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void rejectsMalformedText_data();
    void rejectsMalformedText();
    void rejectsMalformedUtf8_data();
    void rejectsMalformedUtf8();
    void acceptsOnlyWellFormedUtf8_data();
    void acceptsOnlyWellFormedUtf8();
    void rejectsTextTruncatedAtEveryUnit();
    void readsUtf8AndUtf16AlikeWithEveryByteReplaced();
    void rejectsBadUnitsAtEveryPosition_data();
    void rejectsBadUnitsAtEveryPosition();
    void distinguishesEmptyInputFromNull();
};

namespace {

/// A text with every construct of JSON, including whitespace.
const char* const richJson =
    " {\"a\" : [ null,true , false, -0, 12, -1.5e+10, 2E-3, 18446744073709551615 ],\r\n"
    "\t\"b\\n\\u00e9\\uD83D\\uDE00\": {\"\": \"\\\"\\\\\\/\\b\\f\\n\\r\\t\", \"x\": {} },"
    " \"\u00E9\u20AC\U0001D11E\": [[], [{}], \"sixteen letters and more, quite plain\"] }";

/// Whether `bytes` are one character of well-formed UTF-8. The byte ranges are those of table 3-7
/// of the Unicode standard.
bool isWellFormedCharacter(const QByteArray& bytes)
{
    struct Form {
        uchar lead[2];
        uchar second[2];
        int length;
    };
    static constexpr Form forms[] = {{{0x00, 0x7F}, {}, 1}, {{0xC2, 0xDF}, {0x80, 0xBF}, 2},
        {{0xE0, 0xE0}, {0xA0, 0xBF}, 3}, {{0xE1, 0xEC}, {0x80, 0xBF}, 3},
        {{0xED, 0xED}, {0x80, 0x9F}, 3}, {{0xEE, 0xEF}, {0x80, 0xBF}, 3},
        {{0xF0, 0xF0}, {0x90, 0xBF}, 4}, {{0xF1, 0xF3}, {0x80, 0xBF}, 4},
        {{0xF4, 0xF4}, {0x80, 0x8F}, 4}};
    const auto within = [&](int index, uchar low, uchar high) {
        return uchar(bytes.at(index)) >= low && uchar(bytes.at(index)) <= high;
    };
    return std::any_of(std::begin(forms), std::end(forms), [&](const Form& form) {
        return bytes.size() == form.length && within(0, form.lead[0], form.lead[1])
            && (form.length < 2 || within(1, form.second[0], form.second[1]))
            && (form.length < 3 || within(2, 0x80, 0xBF))
            && (form.length < 4 || within(3, 0x80, 0xBF));
    });
}

} // namespace

void tst_JsonReaderMalformed::rejectsMalformedText_data()
{
    QTest::addColumn<QByteArray>("json");
    const QByteArrayList texts{// No value.
        " ", "\t\r\n", "\xEF\xBB\xBF", "\xEF\xBB\xBF ", "\xEF\xBB\xBF\xEF\xBB\xBF{}",
        " \xEF\xBB\xBF{}", "{}\xEF\xBB\xBF", "[\xEF\xBB\xBF]", "{\xEF\xBB\xBF\"a\":1}",
        // More than one value, or other text after it.
        "{}{}", "{} {}", "1 2", "null null", "[1] x", "{},", "{};", "\"a\"\"b\"", "[1]]", "{}}",
        "nullnull", "{\"a\":1}\"",
        // Literals.
        "n", "nul", "nulL", "NULL", "Null", "nulll", "None", "nil", "undefined", "t", "tru", "True",
        "TRUE", "truee", "f", "fals", "False", "falsee", "yes", "NaN", "nan", "Infinity",
        "-Infinity", "inf", "-inf", "a", "[nul]", "[tru,1]", "{\"a\":fals}",
        // Numbers.
        "-", "+", "+1", "--1", "-+1", "- 1", "01", "00", "-01", "-00", "0123", "1.", "-1.", ".5",
        "-.5", ".", "1.e5", "1..5", "1.5.5", "1e", "1E", "1e+", "1e-", "1e+-5", "1e--5", "1e1.5",
        "1e5e5", "e5", "-e5", "0x10", "0b1", "1f", "1L", "1_000", "1,000", "1 000", "1/2", "0e",
        "0.e1", "1.5e", "1e 5", "1 e5", "1e400", "-1e400", "1.7976931348623159e308",
        "1e99999999999999999999", "-1e99999999999999999999", "\u0661", "\uFF11", "1\u0661",
        "1.\u0661",
        // Arrays.
        "[", "]", "[1", "[1,", "[,", "[,]", "[,1]", "[1,]", "[1,,2]", "[1 2]", "[1;2]", "[1:2]",
        "[[]", "[]]", "[}", "[1}", "[\"a\"", "[\"a\":1]", "[ ,]", "[1, ]", "(1)", "[...]", "[1,2",
        "[{}", "[{]", "[-]", "[/**/]", "[1 // one\n]", "[#]", "[']']",
        // Objects.
        "{", "}", "{,}", "{\"a\"", "{\"a\"}", "{\"a\":", "{\"a\":}", "{\"a\":1", "{\"a\":1,",
        "{\"a\":1,}", "{,\"a\":1}", "{\"a\":1,,\"b\":2}", "{\"a\":1 \"b\":2}", "{\"a\" 1}",
        "{\"a\"::1}", "{\"a\"=1}", "{\"a\",1}", "{\"a\":1;\"b\":2}", "{a:1}", "{'a':1}", "{1:1}",
        "{null:1}", "{true:1}", "{[]:1}", "{{}:1}", "{\"a\":1]", "{\"a\":1}}", "{\"a\":{}",
        "{\"a\":[}", "{\"a\":1, }", "{ \"a\" }", "{\"a\":1:2}", "{\"a\" \"b\":1}", "{1}", "{:}",
        "{:1}", "{\"a\":,}", "{/**/}", "{\"a\"/**/:1}", "{\"a\":\"b\",\"c\"}",
        // Strings.
        "\"", "\"a", "a\"", "'a'", "\"a'", "\"\\\"", "\"\\", "\"\\a\"", "\"\\x41\"", "\"\\0\"",
        "\"\\ \"", "\"\\'\"", "\"\\v\"", "\"\\e\"", "\"\\N\"", "\"\\U0041\"", "\"\\u\"", "\"\\u0\"",
        "\"\\u00\"", "\"\\u004\"", "\"\\u004", "\"\\u004g\"", "\"\\ug041\"", "\"\\u 041\"",
        "\"\\u+041\"", "\"\\u-041\"", "\"\\u0x41\"", "\"\\u{41}\"", "\"\\u00:0\"", "\"\\u00/0\"",
        "\"\\u00@0\"", "\"\\u00G0\"", "\"\\u00`0\"", "\"\\u00g0\"", "\"\\\n\"", "\"\\u0041",
        "\"\\\u00E9\"", "\"\\u00\u00E9\"", "\"\\u\uFF10\uFF10\uFF14\uFF11\"", "\"\\ud83d\\\"",
        "\"\\ud83d\\u\"", "\u201Ca\u201D", "`a`", "\"a\" \"b\"",
        // Whitespace that JSON does not allow.
        "\x0B{}", "{\x0C}", "\u00A0{}", "{}\u00A0", "[1,\u20281]", "\u3000[]", "[1,\u00851]",
        "{\"a\"\u00A0:1}", "\x1A", "{}\x1A", "\x7F{}",
        // Other formats.
        "<html></html>", "<?xml version=\"1.0\"?>", "HTTP/1.1 200 OK", "a=1&b=2", "%7B%7D",
        ")]}',\n{}", "callback({})", "---\na: 1", "// {}", "/* */ {}", "{} // end", "\\u007b}",
        "\\{\\}"};
    for (const QByteArray& json : texts) {
        QTest::newRow(json.toPercentEncoding("{}[]\"\\:,;'()/+&=<>").constData()) << json;
    }
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("only U+0000") << QByteArray(1, '\0');
    QTest::newRow("U+0000 at the start") << QByteArray("\0{}", 3);
    QTest::newRow("U+0000 at the end") << QByteArray("{}\0", 3);
    QTest::newRow("U+0000 between values") << QByteArray("[1,\0 2]", 7);
    QTest::newRow("U+0000 after a number") << QByteArray("1\0", 2);
    QTest::newRow("U+0000 within a literal") << QByteArray("nu\0ll", 5);
    QTest::newRow("U+0000 after a backslash") << QByteArray("\"\\\0\"", 4);
    QTest::newRow("U+0000 in hexadecimal digits") << QByteArray("\"\\u00\0\0\"", 8);
    QTest::newRow("400 digits") << QByteArray(400, '9');
    QTest::newRow("100,000 digits") << QByteArray(100000, '1');
    QTest::newRow("minus and 400 digits") << '-' + QByteArray(400, '9');
    QTest::newRow("400 digits and a letter") << QByteArray(400, '9') + 'x';
    QTest::newRow("a million leading zeros") << QByteArray(1000000, '0') + '1';
}

void tst_JsonReaderMalformed::rejectsMalformedText()
{
    QFETCH(QByteArray, json);
    QCOMPARE(describedFromBothForms(json), QByteArray("invalid"));
    // The text is malformed inside an array, too.
    QCOMPARE(describedFromBothForms("[1," + json + ']'), QByteArray("invalid"));
}

void tst_JsonReaderMalformed::rejectsMalformedUtf8_data()
{
    QTest::addColumn<QByteArray>("bytes");
    const auto row = [](const char* name, const char* bytes) {
        QTest::newRow(name) << QByteArray(bytes);
    };
    row("lone first continuation byte", "\x80");
    row("lone last continuation byte", "\xBF");
    row("continuation after ASCII", "a\x80");
    row("continuation after a whole character", "\xC3\xA9\xA9");
    row("lone two-byte lead", "\xC3");
    row("two-byte lead, then ASCII", "\xC3(");
    row("two-byte lead twice", "\xC3\xC3\xA9");
    row("lone three-byte lead", "\xE2");
    row("three-byte lead and one byte", "\xE2\x82");
    row("three-byte lead, one byte, ASCII", "\xE2\x82(");
    row("three-byte lead, ASCII, one byte", "\xE2(\xAC");
    row("lone four-byte lead", "\xF0");
    row("four-byte lead and one byte", "\xF0\x9D");
    row("four-byte lead and two bytes", "\xF0\x9D\x84");
    row("four-byte lead, two bytes, ASCII", "\xF0\x9D\x84(");
    row("overlong slash, two bytes", "\xC0\xAF");
    row("overlong U+0000, two bytes", "\xC0\x80");
    row("overlong U+007F, two bytes", "\xC1\xBF");
    row("overlong slash, three bytes", "\xE0\x80\xAF");
    row("overlong U+0000, three bytes", "\xE0\x80\x80");
    row("overlong U+07FF, three bytes", "\xE0\x9F\xBF");
    row("overlong slash, four bytes", "\xF0\x80\x80\xAF");
    row("overlong U+FFFF, four bytes", "\xF0\x8F\xBF\xBF");
    row("five-byte form", "\xF8\x88\x80\x80\x80");
    row("six-byte form", "\xFC\x84\x80\x80\x80\x80");
    row("first surrogate", "\xED\xA0\x80");
    row("last high surrogate", "\xED\xAF\xBF");
    row("first low surrogate", "\xED\xB0\x80");
    row("last surrogate", "\xED\xBF\xBF");
    row("surrogate pair, three bytes each", "\xED\xA0\xB4\xED\xB4\x9E");
    row("U+110000", "\xF4\x90\x80\x80");
    row("U+1FFFFF", "\xF7\xBF\xBF\xBF");
    row("lead F5", "\xF5\x80\x80\x80");
    row("byte FE", "\xFE");
    row("byte FF", "\xFF");
    row("UTF-16 byte order mark", "\xFF\xFE");
    row("Latin-1", "caf\xE9");
    row("incomplete byte order mark", "\xEF\xBB");
    row("after 16 letters", "abcdefghijklmnop\xFF");
    row("after 31 letters", "abcdefghijklmnopqrstuvwxyz01234\xC3");
    row("after an escape", "\\n\xA9");
}

void tst_JsonReaderMalformed::rejectsMalformedUtf8()
{
    QFETCH(QByteArray, bytes);
    const QByteArray invalid("invalid");
    QCOMPARE(described(parseExactly(bytes)), invalid);
    QCOMPARE(described(parseExactly('"' + bytes + '"')), invalid);
    QCOMPARE(described(parseExactly('"' + bytes)), invalid);
    QCOMPARE(described(parseExactly('"' + bytes + "and more text after it\"")), invalid);
    QCOMPARE(described(parseExactly("{\"" + bytes + "\":1}")), invalid);
    QCOMPARE(described(parseExactly("[1" + bytes + ']')), invalid);
    QCOMPARE(described(parseExactly("[1]" + bytes)), invalid);
}

void tst_JsonReaderMalformed::acceptsOnlyWellFormedUtf8_data()
{
    QTest::addColumn<int>("length");
    QTest::addColumn<QByteArray>("bytesToTry");
    QByteArray all;
    for (int byte = 0x80; byte <= 0xFF; ++byte) {
        all += char(byte);
    }
    const QByteArray borders = "\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xC1\xC2\xDF\xE0\xE1\xEC\xED\xEE"
                               "\xEF\xF0\xF1\xF3\xF4\xF5\xF7\xF8\xFF";
    QTest::newRow("one byte") << 1 << all;
    QTest::newRow("two bytes") << 2 << all + "A\x7F";
    QTest::newRow("three bytes") << 3 << borders;
    QTest::newRow("four bytes") << 4 << borders;
}

void tst_JsonReaderMalformed::acceptsOnlyWellFormedUtf8()
{
    QFETCH(int, length);
    QFETCH(QByteArray, bytesToTry);
    // Tries every sequence of `length` bytes whose first byte is at least 0x80.
    QVector<int> digits(length, 0);
    int wellFormed = 0;
    for (;;) {
        QByteArray bytes;
        for (const int digit : digits) {
            bytes += bytesToTry.at(digit);
        }
        if (uchar(bytes.at(0)) >= 0x80) {
            const QVariant read = JsonUtils::parse('"' + bytes + '"');
            const bool isCharacter = isWellFormedCharacter(bytes);
            // Skips sequences that start with a shorter character. Another row tests that one.
            bool startsWithShorter = false;
            for (int cut = 1; cut < length; ++cut) {
                startsWithShorter = startsWithShorter || isWellFormedCharacter(bytes.left(cut));
            }
            if (!startsWithShorter) {
                wellFormed += isCharacter ? 1 : 0;
                QVERIFY2(read.isValid() == isCharacter, bytes.toHex().constData());
                QVERIFY2(
                    !isCharacter || read.toString().toUtf8() == bytes, bytes.toHex().constData());
            }
        }
        int position = length - 1;
        while (position >= 0 && ++digits[position] == bytesToTry.size()) {
            digits[position--] = 0;
        }
        if (position < 0) {
            break;
        }
    }
    // No single byte from 0x80 on is well-formed; some of the longer sequences are.
    QCOMPARE(wellFormed > 0, length > 1);
}

void tst_JsonReaderMalformed::rejectsTextTruncatedAtEveryUnit()
{
    const QByteArray whole(richJson);
    QCOMPARE(JsonUtils::parse(whole).toMap().size(), 3);
    for (int length = 0; length < whole.size(); ++length) {
        QVERIFY2(!parseExactly(whole.left(length)).isValid(), whole.left(length).constData());
    }
    const QString text = QString::fromUtf8(whole);
    QCOMPARE(described(JsonUtils::parseText(text)), described(JsonUtils::parse(whole)));
    for (int length = 0; length < text.size(); ++length) {
        QVERIFY2(!JsonUtils::parseText(text.left(length)).isValid(),
            qPrintable(QString::number(length)));
    }
}

void tst_JsonReaderMalformed::readsUtf8AndUtf16AlikeWithEveryByteReplaced()
{
    // With one byte changed, UTF-8 and UTF-16 still give the same value.
    const QByteArray whole(richJson);
    int malformed = 0;
    for (int position = 0; position < whole.size(); ++position) {
        for (const char byte : QByteArray(" \"\\{}[]:,0-.eu\x01\x80\xC3\xFF", 18)) {
            QByteArray changed = whole;
            changed[position] = byte;
            const QVariant read = parseExactly(changed);
            malformed += read.isValid() ? 0 : 1;
            if (QString::fromUtf8(changed).toUtf8() == changed) {
                QCOMPARE(
                    described(JsonUtils::parseText(QString::fromUtf8(changed))), described(read));
            } else {
                QCOMPARE(described(read), QByteArray("invalid"));
            }
        }
    }
    QVERIFY(malformed > 2000);
}

void tst_JsonReaderMalformed::rejectsBadUnitsAtEveryPosition_data()
{
    QTest::addColumn<QByteArray>("bad");
    for (const char* bad :
        {"\"", "\\", "\\x", "\\u12", "\\u12g4", "\x80", "\xC3", "\xED\xA0\x80", "\xFF"}) {
        QTest::newRow(QByteArray(bad).toPercentEncoding("\\\"").constData()) << QByteArray(bad);
    }
}

void tst_JsonReaderMalformed::rejectsBadUnitsAtEveryPosition()
{
    QFETCH(QByteArray, bad);
    const QByteArray letters(
        "ghijklmnopqrstuvwxyzghijklmnopqrstuvwxyzghijklmnopqrstuvwxyzghijklmnop");
    for (int length = 0; length <= letters.size(); ++length) {
        QCOMPARE(described(parseExactly('"' + letters.left(length))), QByteArray("invalid"));
        for (int position = 0; position <= length; ++position) {
            const QByteArray json =
                '"' + letters.left(position) + bad + letters.mid(position, length - position) + '"';
            // The backslash and the letter after it may be an escape sequence.
            const bool isEscape = bad == "\\" && position < length
                && QByteArray("nrt").contains(letters.at(position));
            QCOMPARE(parseExactly(json).isValid(), isEscape);
            if (uchar(bad.at(0)) < 0x80) {
                QCOMPARE(JsonUtils::parseText(inUtf16(json)).isValid(), isEscape);
            }
        }
    }
}

void tst_JsonReaderMalformed::distinguishesEmptyInputFromNull()
{
    QVERIFY(!JsonUtils::parse(QByteArray()).isValid());
    QVERIFY(!JsonUtils::parse(QByteArray("")).isValid());
    QVERIFY(!JsonUtils::parseText(QString()).isValid());
    QVERIFY(!JsonUtils::parseText(text("")).isValid());
    // JSON's null is a valid value.
    QVERIFY(JsonUtils::parse("null").isValid());
    QVERIFY(JsonUtils::parse("null").isNull());
    QVERIFY(JsonUtils::parse("null").toMap().isEmpty());
}

QTEST_GUILESS_MAIN(tst_JsonReaderMalformed)
#include "tst_jsonreader_malformed.moc"
