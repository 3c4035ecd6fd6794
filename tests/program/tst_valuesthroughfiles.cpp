#include "tests/support/Batch.h"
#include "tests/support/BridgeRun.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/Scale.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"

#include <QtTest>

namespace {

/// Returns the strings of a list file. Does not use the code under test.
QStringList listOf(const QByteArray& bytes)
{
    QStringList list{QString()};
    for (int i = 0; i + 1 < bytes.size(); i += 2) {
        const auto unit = ushort(uchar(bytes.at(i)) | (uchar(bytes.at(i + 1)) << 8));
        if (unit == 1) {
            list << QString();
        } else {
            list.last().append(QChar(unit));
        }
    }
    return list;
}

} // namespace

/// Random values pass through the program and its files unchanged, within the limits of the file
/// format.
class tst_ValuesThroughFiles : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { home.writePort(server.port()); }
    void init() { server.reset(); }
    void cleanup() { QCOMPARE(server.problem(), QString()); }
    void passesValuesUnchanged();
    void separatorSplitsArgument();
    void separatorSplitsResult();
    void dropsByteOrderMarkAtStartOfArguments();
    void keepsByteOrderMarkAtStartOfResults();

private:
    TemporaryHome home;
    ScriptedServer server;
};

void tst_ValuesThroughFiles::passesValuesUnchanged()
{
    Generator generator = seededGenerator();
    const int runs = rounds(2, 10);
    int values = 0;
    for (int run = 0; run < runs; ++run) {
        const Batch batch = Batch::random(&generator, 1000, 30);
        const ExchangeFolder folder;
        folder.putArguments(batch.arguments());
        server.reset();
        server.expect("POST", "/formattedCitationsAndBibliography/interactive",
            ScriptedReply::json(batch.reply(&generator)));
        const BridgeOutcome outcome = runCommand("formatCitationsAndBibliography", folder);
        QCOMPARE(problem(outcome, folder), QByteArray());
        QCOMPARE(batch.requestProblem(server.requests().first().body, folder.path()), QString());
        QCOMPARE(batch.resultsProblem(listOf(folder.results())), QString());
        values += batch.valueCount();
    }
    qInfo("%d values in %d clusters", values, runs * 1000);
}

// The following are limits of the file format, not promises.

void tst_ValuesThroughFiles::separatorSplitsArgument()
{
    const ExchangeFolder folder;
    folder.putArguments({textOfUnits({'a', 1, 'b'})});
    server.expect("POST", "/citations/merge", ScriptedReply::json("{}", 500));
    QCOMPARE(problem(runCommand("mergeFields", folder), folder), QByteArray());
    QCOMPARE(server.requests().first().body,
        QByteArray(R"({"citationClusters":[{"fieldCode":"a"},{"fieldCode":"b"}]})"));
}

void tst_ValuesThroughFiles::separatorSplitsResult()
{
    const ExchangeFolder folder;
    folder.putArguments({});
    server.expect("GET", "/userAccount", ScriptedReply::json(R"({"account":"a\u0001b"})"));
    QCOMPARE(problem(runCommand("getUserAccount", folder), folder), QByteArray());
    QCOMPARE(listOf(folder.results()), (QStringList{text("a"), text("b")}));
    // A field code is not split: its JSON escapes the character.
    const ExchangeFolder other;
    other.putArguments({text("f")});
    server.expect("POST", "/citation/undoManualFormat",
        ScriptedReply::json(R"({"citationCluster":{"a":"\u0001"}})"));
    QCOMPARE(problem(runCommand("undoManualFormat", other), other), QByteArray());
    QCOMPARE(listOf(other.results()), QStringList{text(R"(ADDIN CSL_CITATION {"a":"\u0001"})")});
}

void tst_ValuesThroughFiles::dropsByteOrderMarkAtStartOfArguments()
{
    const QString marked = textOfUnits({0xfeff, 'a'});
    const ExchangeFolder folder;
    folder.putArguments({marked, marked});
    server.expect("POST", "/wordProcessor/set", ScriptedReply::json("{}"));
    QCOMPARE(problem(runCommand("setWordProcessor", folder), folder), QByteArray());
    // The mark is dropped at the start of the file and kept elsewhere.
    QCOMPARE(server.requests().first().body,
        QByteArray("{\"version\":\"\xef\xbb\xbf"
                   "a\",\"wordProcessor\":\"a\"}"));
}

void tst_ValuesThroughFiles::keepsByteOrderMarkAtStartOfResults()
{
    const ExchangeFolder folder;
    folder.putArguments({});
    server.expect("GET", "/userAccount", ScriptedReply::json(R"({"account":"\ufeffa"})"));
    QCOMPARE(problem(runCommand("getUserAccount", folder), folder), QByteArray());
    // The mark is written as part of the value. A reader may treat it as the file's byte order
    // mark and drop it.
    QCOMPARE(folder.results(), QByteArray("\xff\xfe\x61\x00", 4));
}

QTEST_GUILESS_MAIN(tst_ValuesThroughFiles)
#include "tst_valuesthroughfiles.moc"
