#include "tests/support/BridgeRun.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

namespace {

QByteArray warning(const char* words, const QString& path)
{
    return QByteArray(words) + " \"" + path.toUtf8() + "\"\n";
}

QByteArray cannotWrite(const QString& path)
{
    return warning("Unable to write args file", path);
}

QByteArray cannotRead(const ExchangeFolder& folder)
{
    return warning("Unable to open args file", folder.argumentsPath());
}

/// The field codes in the body of a request to merge them.
QStringList mergedCodes(const QByteArray& body)
{
    QStringList codes;
    const QJsonArray clusters =
        QJsonDocument::fromJson(body).object().value(text("citationClusters")).toArray();
    for (const QJsonValue& cluster : clusters) {
        codes << cluster.toObject().value(text("fieldCode")).toString();
    }
    return codes;
}

} // namespace

/// Unusual argument files and folders.
class tst_BridgeFiles : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { home.writePort(server.port()); }
    void init() { server.reset(); }
    void cleanup() { QCOMPARE(server.problem(), QString()); }

    void readsArguments_data();
    void readsArguments();
    void passesHundredThousandArguments();
    void runsWithoutReadableArguments_data();
    void runsWithoutReadableArguments();
    void findsFolder_data();
    void findsFolder();
    void findsFolderThatLooksLikeOption();
    void reportsMissingFolder_data();
    void reportsMissingFolder();
    void reportsFolderThatCannotBeWritten();

private:
    TemporaryHome home;
    ScriptedServer server;
};

void tst_BridgeFiles::readsArguments_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QStringList>("arguments");
    const auto row = [](const char* name, const QByteArray& hex, const QStringList& arguments) {
        QTest::newRow(name) << QByteArray::fromHex(hex) << arguments;
    };
    row("empty file", "", {QString()});
    row("byte order mark and an odd last byte", "fffe 6100 0100 6200 63", {text("a"), text("b")});
    row("emoji cut in two, U+0000 and a quote", "3dd8 0100 00de 0100 0000 2200",
        {textOfUnits({0xd83d}), textOfUnits({0xde00}), textOfUnits({0, '"'})});
}

void tst_BridgeFiles::readsArguments()
{
    QFETCH(QByteArray, bytes);
    const ExchangeFolder folder;
    putFile(folder.argumentsPath(), bytes);
    server.expect("POST", "/citations/merge", ScriptedReply::json(R"({"citationCluster":1})"));
    QCOMPARE(problem(runCommand("mergeFields", folder), folder), QByteArray());
    QCOMPARE(folder.results(), utf16le(text("ADDIN CSL_CITATION 1")));
    QTEST(mergedCodes(server.requests().constFirst().body), "arguments");
}

void tst_BridgeFiles::passesHundredThousandArguments()
{
    QStringList arguments{text("style")};
    QStringList results{text("true"), text("style"), text("b")};
    QByteArray reply = R"({"citationStyleUrl":"style","bibliography":"b","citationClusters":[)";
    for (int i = 0; i < 50000; ++i) {
        const QByteArray number = QByteArray::number(i);
        arguments << text("code ") + QString::number(i) << text("text ") + QString::number(i);
        results << text("ADDIN CSL_CITATION ") + QString::number(i)
                << text("new ") + QString::number(i) << QString() << QString();
        reply += QByteArray(i == 0 ? "" : ",") + "{\"citationCluster\":" + number
            + ",\"formattedText\":\"new " + number + "\"}";
    }
    const ExchangeFolder folder;
    folder.putArguments(arguments);
    server.expect("POST", "/formattedCitationsAndBibliography/interactive",
        ScriptedReply::json(reply + "]}"));
    QCOMPARE(problem(runCommand("formatCitationsAndBibliography", folder), folder), QByteArray());
    QVERIFY(folder.results() == listBytes(results));
    const QVariantList sent =
        server.requests().constFirst().json().value(text("citationClusters")).toList();
    QCOMPARE(sent.size(), 50000);
    for (int i = 0; i < sent.size(); ++i) {
        const QVariantMap cluster = sent.at(i).toMap();
        QCOMPARE(cluster.value(text("fieldCode")).toString(), arguments.at(1 + 2 * i));
        QCOMPARE(cluster.value(text("formattedText")).toString(), arguments.at(2 + 2 * i));
    }
}

void tst_BridgeFiles::runsWithoutReadableArguments_data()
{
    QTest::addColumn<bool>("withFolder");
    QTest::newRow("missing file") << false;
    QTest::newRow("folder in place of the file") << true;
}

void tst_BridgeFiles::runsWithoutReadableArguments()
{
    QFETCH(bool, withFolder);
    const ExchangeFolder folder;
    QVERIFY(!withFolder || QDir().mkpath(folder.argumentsPath()));
    server.expect("POST", "/citations/merge", ScriptedReply::json("{}", 500));
    QCOMPARE(problem(runCommand("mergeFields", folder), folder, cannotRead(folder)), QByteArray());
    QCOMPARE(folder.results(), QByteArray());
    QCOMPARE(server.requests().constFirst().body, QByteArray(R"({"citationClusters":[]})"));
}

void tst_BridgeFiles::findsFolder_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("given");
    const auto named = [](const char* description, const char* name) {
        QTest::newRow(description) << text(name) << QString();
    };
    named("Cyrillic", "\xd0\x94\xd0\xbe\xd0\xba\xd1\x83\xd0\xbc\xd0\xb5\xd0\xbd\xd1\x82\xd1\x8b");
    named("emoji", "\xf0\x9f\x93\x9a and \xf0\x9f\x98\x80");
    named("decomposed letters", "e\xcc\x81t\xc3\xa9");
    named("spaces at both ends", "  a  b  ");
    named("quotes and placeholders", "it's \"here\" %1 %s 100% $HOME `x` \\n");
    named("newline", "a\nb");
    named("255 bytes", QByteArray(255, 'n').constData());
    QTest::newRow("slash at the end") << text("plain") << text("PATH/");
    QTest::newRow("two slashes inside") << text("plain") << text("PATH/..//plain");
    QTest::newRow("relative path") << text("plain") << text("./plain/../plain");
    QTest::newRow("relative path in Cyrillic") << text("\xd0\x94") << text("\xd0\x94");
}

void tst_BridgeFiles::findsFolder()
{
    QFETCH(QString, name);
    QFETCH(QString, given);
    const ExchangeFolder folder(name);
    const QString path =
        given.isEmpty() ? folder.path() : QString(given).replace(text("PATH"), folder.path());
    folder.putArguments({text("style")});
    server.expect("POST", "/formattedCitationsAndBibliography/interactive",
        ScriptedReply::json(R"({"citationIndex":7})", 500));
    BridgeStart inPlainLocale = BridgeStart::withVariables(
        {{text("LC_ALL"), text("C")}, {text("LANG"), text("C")}, {text("LANGUAGE"), QString()}});
    inPlainLocale.workingDirectory = QFileInfo(folder.path()).path();
    const BridgeOutcome run =
        runBridge({text("formatCitationsAndBibliography"), path}, inPlainLocale);
    QCOMPARE(problem(run, folder), QByteArray());
    QCOMPARE(folder.results(), listBytes({text("false"), text("7")}));
    QCOMPARE(namesIn(QFileInfo(folder.path()).path()), QStringList{name});
    QCOMPARE(folder.names().size(), 3);
    QCOMPARE(server.requests().constFirst().json().value(text("tempDirectory")).toString(), path);
}

void tst_BridgeFiles::findsFolderThatLooksLikeOption()
{
    const ExchangeFolder folder(text("-qmljsdebugger=port:1"));
    folder.putArguments({});
    const QString parent = QFileInfo(folder.path()).path();
    const BridgeOutcome run = runBridge(
        {text("lastError"), text("-qmljsdebugger=port:1")}, BridgeStart::inFolder(parent));
    QCOMPARE(problem(run, folder), QByteArray());
}

void tst_BridgeFiles::reportsMissingFolder_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("folder that does not exist") << text("missing");
    QTest::newRow("file in place of the folder") << text("file");
    QTest::newRow("folder in which no file can be created") << text("/proc/self");
    QTest::newRow("missing folder in Cyrillic with a placeholder") << text("\xd0\x94 %1");
}

void tst_BridgeFiles::reportsMissingFolder()
{
    QFETCH(QString, name);
    const ExchangeFolder parent;
    putFile(parent.path() + text("/file"), "file");
    const QString folder = QDir(parent.path()).filePath(name);
    const BridgeOutcome run = runBridge(
        {text("lastError"), folder}, BridgeStart::withVariables({{text("LC_ALL"), text("C")}}));
    QCOMPARE(run.errors,
        warning("Unable to open args file", folder + text("/mac-word-plugin-args.txt"))
            + cannotWrite(folder + text("/mac-word-plugin-results.txt"))
            + cannotWrite(folder + text("/mac-word-plugin-result-ready.txt")));
    QCOMPARE(run.output, QByteArray("-1\n"));
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(parent.names(), QStringList{text("file")});
    QCOMPARE(bytesOf(parent.path() + text("/file")), QByteArray("file"));
}

void tst_BridgeFiles::reportsFolderThatCannotBeWritten()
{
    const ExchangeFolder folder;
    folder.putArguments({text("f")});
    putFile(folder.resultsPath(), "old");
    giveToOrdinaryUser(folder.path());
    QVERIFY(QFile::setPermissions(folder.path(), QFile::ReadOwner | QFile::ExeOwner));
    const ExchangeFolder programs;
    const BridgeOutcome run =
        runCommand("lastError", folder, BridgeStart::asOrdinaryUser(programs.path()));
    QVERIFY(QFile::setPermissions(
        folder.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    QCOMPARE(run.errors, cannotWrite(folder.resultsPath()) + cannotWrite(folder.readyPath()));
    QCOMPARE(run.output, QByteArray("-1\n"));
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), QByteArray("old"));
    QCOMPARE(folder.names().size(), 2);
}

QTEST_GUILESS_MAIN(tst_BridgeFiles)
#include "tst_bridgefiles.moc"
