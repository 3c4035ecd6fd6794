#include "tests/support/Batch.h"
#include "tests/support/BridgeRun.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/Scale.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"

#include <QtTest>

namespace {

/// The strings of a list file, read without the code under test.
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

/// Random values through the program and its files, and the limits of the file format.
class tst_ValuesThroughFiles : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { home.writePort(server.port()); }
    void init() { server.reset(); }
    void thousandsOfClusters();
    void theSeparatorEndsAnArgument();
    void theSeparatorEndsAResult();
    void aByteOrderMarkInFrontIsDropped();
    void aByteOrderMarkInFrontOfResults();

private:
    TemporaryHome home;
    ScriptedServer server;
};

void tst_ValuesThroughFiles::thousandsOfClusters()
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
        const BridgeOutcome outcome =
            runBridge({text("formatCitationsAndBibliography"), folder.path()});
        QCOMPARE(outcome.errors, QByteArray());
        QCOMPARE(outcome.output, QByteArray::number(folder.results().size()) + '\n');
        QCOMPARE(server.problem(), QString());
        QCOMPARE(batch.wrongRequest(server.requests().first().body, folder.path()), QString());
        QCOMPARE(batch.wrongResults(listOf(folder.results())), QString());
        values += batch.valueCount();
    }
    qInfo("%d values in %d clusters", values, runs * 1000);
}

// Two limits of the file format, so that nobody takes them for promises.

void tst_ValuesThroughFiles::theSeparatorEndsAnArgument()
{
    const ExchangeFolder folder;
    folder.putArguments({textOfUnits({'a', 1, 'b'})});
    server.expect("POST", "/citations/merge", ScriptedReply::json("{}", 500));
    runBridge({text("mergeFields"), folder.path()});
    QCOMPARE(server.problem(), QString());
    QCOMPARE(server.requests().first().body,
        QByteArray(R"({"citationClusters":[{"fieldCode":"a"},{"fieldCode":"b"}]})"));
}

void tst_ValuesThroughFiles::theSeparatorEndsAResult()
{
    const ExchangeFolder folder;
    folder.putArguments({});
    server.expect("GET", "/userAccount", ScriptedReply::json(R"({"account":"a\u0001b"})"));
    runBridge({text("getUserAccount"), folder.path()});
    QCOMPARE(server.problem(), QString());
    QCOMPARE(listOf(folder.results()), (QStringList{text("a"), text("b")}));
    // Inside a field code nothing is lost: there it is escaped.
    const ExchangeFolder other;
    other.putArguments({text("f")});
    server.expect("POST", "/citation/undoManualFormat",
        ScriptedReply::json(R"({"citationCluster":{"a":"\u0001"}})"));
    runBridge({text("undoManualFormat"), other.path()});
    QCOMPARE(server.problem(), QString());
    QCOMPARE(listOf(other.results()), QStringList{text(R"(ADDIN CSL_CITATION {"a":"\u0001"})")});
}

void tst_ValuesThroughFiles::aByteOrderMarkInFrontIsDropped()
{
    const QString marked = textOfUnits({0xfeff, 'a'});
    const ExchangeFolder folder;
    folder.putArguments({marked, marked});
    server.expect("POST", "/wordProcessor/set", ScriptedReply::json("{}"));
    runBridge({text("setWordProcessor"), folder.path()});
    QCOMPARE(server.problem(), QString());
    // Lost at the start of the file, kept everywhere else.
    QCOMPARE(server.requests().first().body,
        QByteArray("{\"version\":\"\xef\xbb\xbf"
                   "a\",\"wordProcessor\":\"a\"}"));
}

void tst_ValuesThroughFiles::aByteOrderMarkInFrontOfResults()
{
    const ExchangeFolder folder;
    folder.putArguments({});
    server.expect("GET", "/userAccount", ScriptedReply::json(R"({"account":"\ufeffa"})"));
    const BridgeOutcome run = runBridge({text("getUserAccount"), folder.path()});
    QCOMPARE(server.problem(), QString());
    // It is written; a reader that takes it for the file's mark loses it.
    QCOMPARE(folder.results(), QByteArray("\xff\xfe\x61\x00", 4));
    QCOMPARE(run.output, QByteArray("4\n"));
}

QTEST_GUILESS_MAIN(tst_ValuesThroughFiles)
#include "tst_valuesthroughfiles.moc"
