#include "frontend/ArgsFile.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/Texts.h"

#include <QRandomGenerator>
#include <QtTest>

namespace {

const QString separator(QChar(0x0001));

} // namespace

class tst_ArgsFile : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { folder.reset(new ExchangeFolder); }
    void cleanup() { folder.reset(); }

    void codecIsUtf16LittleEndian();
    void readsList_data();
    void readsList();
    void readsLikeCodec();
    void keepsLongStrings_data();
    void keepsLongStrings();
    void readsHundredThousandStrings();
    void writesText_data();
    void writesText();
    void writesList_data();
    void writesList();
    void writesHundredThousandStrings();
    void readsBackWhatItWrote_data();
    void readsBackWhatItWrote();
    void replacesFile_data();
    void replacesFile();

private:
    QString file() const { return folder->resultsPath(); }
    QString sideFile() const { return file() + QStringLiteral(".temp"); }

    QScopedPointer<ExchangeFolder> folder;
};

void tst_ArgsFile::codecIsUtf16LittleEndian()
{
    const ArgsFileCodec* const codec = argsFileCodec();
    QVERIFY(codec != nullptr);
    QCOMPARE(codec->name(), QByteArray("UTF-16LE"));
    QCOMPARE(argsFileCodec(), codec);
    QVERIFY(ArgsFileCodec::codecForName("no such codec") == nullptr);
    QCOMPARE(int(argsFileSeparator), 1);
}

void tst_ArgsFile::readsList_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QStringList>("strings");
    const auto row = [](const char* name, const QByteArray& hex, const QStringList& strings) {
        QTest::newRow(name) << QByteArray::fromHex(hex) << strings;
    };
    row("empty file", "", {QString()});
    row("one string", "6100 6200", {QStringLiteral("ab")});
    row("empty string in the middle", "6100 0100 0100 6200",
        {QStringLiteral("a"), QString(), QStringLiteral("b")});
    row("separator at the end", "6100 0100", {QStringLiteral("a"), QString()});
    row("separator at the start", "0100 6100", {QString(), QStringLiteral("a")});
    row("only a separator", "0100", {QString(), QString()});
    row("only three separators", "0100 0100 0100", {QString(), QString(), QString(), QString()});
    row("byte order mark", "fffe 6100 0100 6200", {QStringLiteral("a"), QStringLiteral("b")});
    row("only a byte order mark", "fffe", {QString()});
    row("byte order mark and a separator", "fffe 0100", {QString(), QString()});
    row("second byte order mark", "fffe fffe 6100", {textOfUnits({0xfeff, 'a'})});
    row("byte order mark inside", "6100 fffe", {textOfUnits({'a', 0xfeff})});
    row("byte order mark after a separator", "0100 fffe", {QString(), textOfUnits({0xfeff})});
    row("big-endian mark", "feff 0061", {textOfUnits({0xfffe, 0x6100})});
    row("odd last byte", "6100 62", {QStringLiteral("a")});
    row("odd last byte after a separator", "6100 0100 01", {QStringLiteral("a"), QString()});
    row("one byte", "61", {QString()});
    row("half a byte order mark", "ff", {QString()});
    row("byte order mark and an odd byte", "fffe 61", {QString()});
    row("U+0000", "6100 0000 6200", {textOfUnits({'a', 0, 'b'})});
    row("U+0000 at the end", "6100 0000", {textOfUnits({'a', 0})});
    row("only U+0000", "0000", {textOfUnits({0})});
    row("control characters", "0200 0900 0a00 0d00 1b00 1f00 7f00 8000",
        {textOfUnits({2, 9, 10, 13, 27, 31, 127, 128})});
    row("carriage return and line feed", "6100 0d00 0a00 6200", {QStringLiteral("a\r\nb")});
    row("surrogate pair", "3dd8 00de", {textOfUnits({0xd83d, 0xde00})});
    row("pair cut by a separator", "3dd8 0100 00de",
        {textOfUnits({0xd83d}), textOfUnits({0xde00})});
    row("unpaired high surrogate", "3dd8", {textOfUnits({0xd83d})});
    row("unpaired low surrogate", "00de 6100", {textOfUnits({0xde00, 'a'})});
    row("surrogates in the wrong order", "00de 3dd8", {textOfUnits({0xde00, 0xd83d})});
    row("pair cut by the end", "3dd8 00", {textOfUnits({0xd83d})});
    row("noncharacters", "ffff feff d0fd", {textOfUnits({0xffff, 0xfffe, 0xfdd0})});
    row("units with a byte 01", "0101 0001 0110", {textOfUnits({0x0101, 0x0100, 0x1001})});
    row("bytes 01 00 across two units", "6101 0062", {textOfUnits({0x0161, 0x6200})});
    row("text in UTF-8", "61c3a9", {textOfUnits({0xc361})});
}

void tst_ArgsFile::readsList()
{
    QFETCH(QByteArray, bytes);
    putFile(folder->argumentsPath(), bytes);
    bool success = false;
    QTEST(readArgsFile(folder->argumentsPath(), &success), "strings");
    QVERIFY(success);
    QCOMPARE(folder->names(), QStringList{QStringLiteral("mac-word-plugin-args.txt")});
    QCOMPARE(bytesOf(folder->argumentsPath()), bytes);
}

void tst_ArgsFile::readsLikeCodec()
{
    const ArgsFileCodec* const codec = argsFileCodec();
    QRandomGenerator random(20260101);
    for (int round = 0; round < 500; ++round) {
        QByteArray bytes(random.bounded(40), '\0');
        for (char& byte : bytes) {
            // Few values, so that marks, surrogates and separators are often adjacent.
            byte = "\xff\xfe\xd8\xdc\x00\x01\x61\x3d"[random.bounded(8)];
        }
        putFile(folder->argumentsPath(), bytes);
        bool success = false;
        const QStringList strings = readArgsFile(folder->argumentsPath(), &success);
        QVERIFY(success);
        QVERIFY2(strings == codec->toUnicode(bytes).split(separator), bytes.toHex().constData());
    }
}

void tst_ArgsFile::keepsLongStrings_data()
{
    QTest::addColumn<int>("length");
    for (const int size : {4096, 65536, argsFileChunkSize, 2 * argsFileChunkSize}) {
        for (const int length : {size - 1, size, size + 1}) {
            QTest::addRow("%d units", length) << length;
        }
    }
}

void tst_ArgsFile::keepsLongStrings()
{
    QFETCH(int, length);
    const QString longOne(length, QLatin1Char('a'));
    const QString emoji = textOfUnits({0xd83d, 0xde00});
    const QString mark = textOfUnits({0xfeff});
    const QList<QStringList> lists{{longOne}, {longOne, QString()}, {QString(), longOne},
        {longOne, QStringLiteral("b"), longOne}, {longOne + emoji, emoji + longOne},
        {longOne + mark, mark}, {longOne, QString(), QString(), mark + longOne}};
    for (const QStringList& list : lists) {
        const QByteArray bytes = listBytes(list);
        bool success = false;
        QCOMPARE(writeArgsFile(file(), list, &success), bytes.size());
        QVERIFY(success);
        QVERIFY(folder->results() == bytes);
        for (const QByteArray& variant : {bytes, bytes + 'o', "\xff\xfe" + bytes}) {
            putFile(folder->argumentsPath(), variant);
            success = false;
            QVERIFY(readArgsFile(folder->argumentsPath(), &success) == list);
            QVERIFY(success);
        }
    }
}

void tst_ArgsFile::readsHundredThousandStrings()
{
    QStringList strings;
    for (int i = 0; i < 100000; ++i) {
        strings << QStringLiteral("argument %1 \u0416").arg(i);
    }
    folder->putArguments(strings);
    bool success = false;
    const QStringList read = readArgsFile(folder->argumentsPath(), &success);
    QVERIFY(success);
    QCOMPARE(read.size(), 100000);
    QVERIFY(read == strings);
}

void tst_ArgsFile::writesText_data()
{
    QTest::addColumn<QString>("content");
    QTest::addColumn<QByteArray>("bytes");
    const auto row = [](const char* name, const QString& content, const QByteArray& hex) {
        QTest::newRow(name) << content << QByteArray::fromHex(hex);
    };
    row("null text", QString(), "");
    row("empty text", QStringLiteral(""), "");
    row("two characters", QStringLiteral("ab"), "61006200");
    row("status of a failure", QStringLiteral("-1"), "2d003100");
    row("two lines", QStringLiteral("a\nb\r\n"), "61000a0062000d000a00");
    row("Cyrillic", QStringLiteral("\u0416"), "1604");
    row("surrogate pair", textOfUnits({0xd83d, 0xde00}), "3dd800de");
    row("U+0000", textOfUnits({'a', 0, 'b'}), "610000006200");
    row("U+0000 at the end", textOfUnits({'a', 0}), "61000000");
    row("separator", textOfUnits({1}), "0100");
    row("byte order mark", textOfUnits({0xfeff}), "fffe");
    row("byte order mark before text", textOfUnits({0xfeff, 'a'}), "fffe6100");
    row("unpaired high surrogate", textOfUnits({0xd83d}), "3dd8");
    row("unpaired low surrogate", textOfUnits({0xde00}), "00de");
    row("surrogates in the wrong order", textOfUnits({0xde00, 0xd83d}), "00de3dd8");
    row("noncharacters", textOfUnits({0xffff, 0xfffe}), "fffffeff");
}

void tst_ArgsFile::writesText()
{
    QFETCH(QString, content);
    QFETCH(QByteArray, bytes);
    bool success = false;
    QCOMPARE(writeFile(file(), content, &success), bytes.size());
    QVERIFY(success);
    QCOMPARE(folder->results().toHex(), bytes.toHex());
    QCOMPARE(folder->names(), QStringList{QStringLiteral("mac-word-plugin-results.txt")});
}

void tst_ArgsFile::writesList_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QByteArray>("bytes");
    const QString x = QStringLiteral("x");
    const QString empty;
    QTest::newRow("empty list") << QStringList() << QByteArray();
    QTest::newRow("one empty string") << QStringList{empty} << QByteArray();
    QTest::newRow("two empty strings") << QStringList{empty, empty} << QByteArray("\1\0", 2);
    QTest::newRow("one string") << QStringList{x} << QByteArray("x\0", 2);
    QTest::newRow("empty string last") << QStringList{x, empty} << QByteArray("x\0\1\0", 4);
    QTest::newRow("empty string first") << QStringList{empty, x} << QByteArray("\1\0x\0", 4);
    QTest::newRow("three strings") << QStringList{x, empty, x} << QByteArray("x\0\1\0\1\0x\0", 8);
    QTest::newRow("separator in a string")
        << QStringList{x + separator, x} << QByteArray("x\0\1\0\1\0x\0", 8);
}

void tst_ArgsFile::writesList()
{
    QFETCH(QStringList, lines);
    QFETCH(QByteArray, bytes);
    bool success = false;
    QCOMPARE(writeArgsFile(file(), lines, &success), bytes.size());
    QVERIFY(success);
    QCOMPARE(folder->results().toHex(), bytes.toHex());
    QCOMPARE(folder->names(), QStringList{QStringLiteral("mac-word-plugin-results.txt")});
}

void tst_ArgsFile::writesHundredThousandStrings()
{
    QStringList lines;
    for (int i = 0; i < 100000; ++i) {
        lines << QStringLiteral("line %1 ").arg(i) + textOfUnits({0xd83d, 0xde00});
    }
    const QByteArray bytes = listBytes(lines);
    bool success = false;
    QCOMPARE(writeArgsFile(file(), lines, &success), bytes.size());
    QVERIFY(success);
    QVERIFY(folder->results() == bytes);
}

void tst_ArgsFile::readsBackWhatItWrote_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QStringList>("readBack");
    const auto same = [](const char* name, const QStringList& lines) {
        QTest::newRow(name) << lines << lines;
    };
    QTest::newRow("empty list") << QStringList() << QStringList{QString()};
    same("one empty string", {QString()});
    same("empty strings", {QString(), QString(), QString()});
    same("text", {QStringLiteral("a"), QStringLiteral("\u0416\u6f22"), QString()});
    same("half an emoji each", {textOfUnits({0xd83d}), textOfUnits({0xde00})});
    same("U+0000 and other controls", {textOfUnits({0}), textOfUnits({2, 0, 10})});
    same("byte order mark in the second string", {QStringLiteral("a"), textOfUnits({0xfeff})});
}

void tst_ArgsFile::readsBackWhatItWrote()
{
    QFETCH(QStringList, lines);
    bool written = false;
    writeArgsFile(file(), lines, &written);
    QVERIFY(written);
    bool read = false;
    QTEST(readArgsFile(file(), &read), "readBack");
    QVERIFY(read);
}

void tst_ArgsFile::replacesFile_data()
{
    QTest::addColumn<QByteArray>("oldBytes");
    QTest::addColumn<QByteArray>("oldSideBytes");
    QTest::newRow("longer file") << QByteArray(5000, 'o') << QByteArray();
    QTest::newRow("shorter file") << QByteArray("o") << QByteArray();
    QTest::newRow("longer side file") << QByteArray("o") << QByteArray(5000, 's');
    QTest::newRow("shorter side file") << QByteArray("o") << QByteArray("s");
}

void tst_ArgsFile::replacesFile()
{
    QFETCH(QByteArray, oldBytes);
    QFETCH(QByteArray, oldSideBytes);
    putFile(file(), oldBytes);
    if (!oldSideBytes.isEmpty()) {
        putFile(sideFile(), oldSideBytes);
    }
    bool success = false;
    QCOMPARE(writeFile(file(), QStringLiteral("new"), &success), 6);
    QVERIFY(success);
    QCOMPARE(folder->results(), QByteArray("n\0e\0w\0", 6));
    QCOMPARE(folder->names(), QStringList{QStringLiteral("mac-word-plugin-results.txt")});
}

QTEST_GUILESS_MAIN(tst_ArgsFile)
#include "tst_argsfile.moc"
