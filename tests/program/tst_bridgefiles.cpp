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

#include <unistd.h>

namespace {

QByteArray warning(const char* words, const QString& path)
{
    return QByteArray(words) + " \"" + path.toUtf8() + "\"\n";
}

QByteArray cannotWrite(const QString& path)
{
    return warning("Unable to write args file", path);
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

/// What the program makes of unusual files, folders and disks.
class tst_BridgeFiles : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { home.writePort(server.port()); }
    void init() { server.reset(); }

    void readsArguments_data();
    void readsArguments();
    void keepsAByteOrderMarkInText();
    void passesAHundredThousandArguments();
    void goesOnWithoutArguments_data();
    void goesOnWithoutArguments();
    void findsTheFolder_data();
    void findsTheFolder();
    void findsAFolderWhoseNameLooksLikeAnOption();
    void missingFolders_data();
    void missingFolders();
    void foldersThatCannotBeWritten();
    void blockedFiles_data();
    void blockedFiles();
    void resultsThatCannotBeReplaced();
    void fileSizeLimit();
    void fullDisk();

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
    row("an empty file", "", {QString()});
    row("one byte", "61", {QString()});
    row("odd length", "6100 0100 6200 63", {text("a"), text("b")});
    row("a byte-order mark", "fffe 6100 0100 6200", {text("a"), text("b")});
    row("nothing but a byte-order mark", "fffe", {QString()});
    row("empty strings", "0100 0100", {QString(), QString(), QString()});
    row("control characters", "0000 0200 0900 0a00 0d00 1f00 7f00 0100 0000",
        {textOfUnits({0, 2, 9, 10, 13, 31, 127}), textOfUnits({0})});
    row("quotes and backslashes", "2200 5c00 2f00", {text("\"\\/")});
    row("astral text", "3dd8 00de", {textOfUnits({0xd83d, 0xde00})});
    row("an emoji cut in two", "3dd8 0100 00de", {textOfUnits({0xd83d}), textOfUnits({0xde00})});
    row("surrogates in the wrong order", "00de 3dd8", {textOfUnits({0xde00, 0xd83d})});
    row("noncharacters", "ffff d0fd", {textOfUnits({0xffff, 0xfdd0})});
    row("line separators", "2820 2920 8500", {textOfUnits({0x2028, 0x2029, 0x85})});
}

void tst_BridgeFiles::readsArguments()
{
    QFETCH(QByteArray, bytes);
    const ExchangeFolder folder;
    putFile(folder.argumentsPath(), bytes);
    server.expect("POST", "/citations/merge", ScriptedReply::json(R"({"citationCluster":1})"));
    const BridgeOutcome run = runBridge({text("mergeFields"), folder.path()});
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.output, QByteArray("40\n"));
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), utf16le(text("ADDIN CSL_CITATION 1")));
    QCOMPARE(server.problem(), QString());
    QTEST(mergedCodes(server.requests().constFirst().body), "arguments");
}

void tst_BridgeFiles::keepsAByteOrderMarkInText()
{
    const ExchangeFolder folder;
    folder.putArguments({textOfUnits({0xfeff, 0xfeff, 'a'})});
    server.expect("POST", "/citations/merge", ScriptedReply::json("{}", 500));
    const BridgeOutcome run = runBridge({text("mergeFields"), folder.path()});
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(server.problem(), QString());
    // Compared as bytes: Qt's reader drops such a mark at the start of a text.
    QCOMPARE(server.requests().constFirst().body,
        QByteArray("{\"citationClusters\":[{\"fieldCode\":\"\xef\xbb\xbf"
                   "a\"}]}"));
}

void tst_BridgeFiles::passesAHundredThousandArguments()
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
    const BridgeOutcome run = runBridge({text("formatCitationsAndBibliography"), folder.path()});
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.exitStatus, 0);
    QVERIFY(folder.results() == listBytes(results));
    QCOMPARE(run.output, QByteArray::number(listBytes(results).size()) + '\n');
    QCOMPARE(server.problem(), QString());
    const QVariantList sent =
        server.requests().constFirst().json().value(text("citationClusters")).toList();
    QCOMPARE(sent.size(), 50000);
    for (int i = 0; i < sent.size(); ++i) {
        const QVariantMap cluster = sent.at(i).toMap();
        QCOMPARE(cluster.value(text("fieldCode")).toString(), arguments.at(1 + 2 * i));
        QCOMPARE(cluster.value(text("formattedText")).toString(), arguments.at(2 + 2 * i));
    }
}

void tst_BridgeFiles::goesOnWithoutArguments_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("mergeFields") << text("mergeFields") << QByteArray("/citations/merge")
                                 << QByteArray(R"({"citationClusters":[]})");
    QTest::newRow("undoManualFormat")
        << text("undoManualFormat") << QByteArray("/citation/undoManualFormat")
        << QByteArray(R"({"fieldCode":""})");
    QTest::newRow("getFieldCodeFromCitationEditor")
        << text("getFieldCodeFromCitationEditor") << QByteArray("/citation/choose/interactive")
        << QByteArray("{}");
}

void tst_BridgeFiles::goesOnWithoutArguments()
{
    QFETCH(QString, command);
    QFETCH(QByteArray, path);
    QFETCH(QByteArray, body);
    const ExchangeFolder without;
    const ExchangeFolder withFolder;
    QVERIFY(QDir().mkpath(withFolder.argumentsPath()));
    for (const ExchangeFolder* const folder : {&without, &withFolder}) {
        server.reset();
        server.expect("POST", path, ScriptedReply::json("{}", 500));
        const BridgeOutcome run = runBridge({command, folder->path()});
        QCOMPARE(run.errors, warning("Unable to open args file", folder->argumentsPath()));
        QCOMPARE(run.output, QByteArray("0\n"));
        QCOMPARE(run.exitStatus, 0);
        QCOMPARE(folder->results(), QByteArray());
        QCOMPARE(folder->ready(), QByteArray("0\0", 2));
        QCOMPARE(server.problem(), QString());
        QCOMPARE(server.requests().constFirst().body, body);
    }
}

void tst_BridgeFiles::findsTheFolder_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("given");
    const auto named = [](const char* description, const char* name) {
        QTest::newRow(description) << text(name) << QString();
    };
    named("Cyrillic", "\xd0\x94\xd0\xbe\xd0\xba\xd1\x83\xd0\xbc\xd0\xb5\xd0\xbd\xd1\x82\xd1\x8b");
    named("emoji", "\xf0\x9f\x93\x9a and \xf0\x9f\x98\x80");
    named("decomposed letters", "e\xcc\x81t\xc3\xa9");
    named("blanks at both ends", "  a  b  ");
    named("quotes", "it's \"here\"");
    named("placeholders", "%1 %s 100% $HOME `x` \\n");
    named("a newline", "a\nb");
    named("a hidden folder", ".hidden");
    named("a long name", QByteArray(255, 'n').constData());
    QTest::newRow("a slash at the end") << text("plain") << text("PATH/");
    QTest::newRow("two slashes inside") << text("plain") << text("PATH/..//plain");
    QTest::newRow("a relative path") << text("plain") << text("plain");
    QTest::newRow("a relative path upwards") << text("plain") << text("./plain/../plain");
    QTest::newRow("a relative path in Cyrillic") << text("\xd0\x94") << text("\xd0\x94");
}

void tst_BridgeFiles::findsTheFolder()
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
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.output, QByteArray("14\n"));
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), listBytes({text("false"), text("7")}));
    QCOMPARE(folder.ready(), utf16le(text("14")));
    QCOMPARE(namesIn(QFileInfo(folder.path()).path()), QStringList{name});
    QCOMPARE(folder.names().size(), 3);
    QCOMPARE(server.problem(), QString());
    QCOMPARE(server.requests().constFirst().json().value(text("tempDirectory")).toString(), path);
}

void tst_BridgeFiles::findsAFolderWhoseNameLooksLikeAnOption()
{
    const ExchangeFolder folder(text("-qmljsdebugger=port:1"));
    folder.putArguments({});
    const QString parent = QFileInfo(folder.path()).path();
    const BridgeOutcome run = runBridge(
        {text("lastError"), text("-qmljsdebugger=port:1")}, BridgeStart::inFolder(parent));
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.output, QByteArray("0\n"));
    QCOMPARE(folder.ready(), QByteArray("0\0", 2));
    QCOMPARE(server.problem(), QString());
}

void tst_BridgeFiles::missingFolders_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("a folder that does not exist") << text("missing");
    QTest::newRow("a path that does not exist") << text("missing/too");
    QTest::newRow("a file") << text("file");
    QTest::newRow("a link to nothing") << text("link");
    QTest::newRow("a folder where nothing can be made") << text("/proc/self");
    QTest::newRow("a name that is too long") << QString(256, QLatin1Char('n'));
    QTest::newRow("Cyrillic and emoji") << text("\xd0\x94 \xf0\x9f\x98\x80");
    QTest::newRow("placeholders") << text("%1 %s");
}

void tst_BridgeFiles::missingFolders()
{
    QFETCH(QString, name);
    const ExchangeFolder parent;
    putFile(parent.path() + text("/file"), "file");
    QVERIFY(QFile::link(text("/nonexistent"), parent.path() + text("/link")));
    const QString folder = QDir(parent.path()).filePath(name);
    const BridgeOutcome run = runBridge(
        {text("lastError"), folder}, BridgeStart::withVariables({{text("LC_ALL"), text("C")}}));
    QCOMPARE(run.errors,
        warning("Unable to open args file", folder + text("/mac-word-plugin-args.txt"))
            + cannotWrite(folder + text("/mac-word-plugin-results.txt"))
            + cannotWrite(folder + text("/mac-word-plugin-result-ready.txt")));
    QCOMPARE(run.output, QByteArray("-1\n"));
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(parent.names(), (QStringList{text("file"), text("link")}));
    QCOMPARE(bytesOf(parent.path() + text("/file")), QByteArray("file"));
    QCOMPARE(server.problem(), QString());
}

void tst_BridgeFiles::foldersThatCannotBeWritten()
{
    const ExchangeFolder folder;
    folder.putArguments({text("f")});
    putFile(folder.resultsPath(), "old");
    giveToOrdinaryUser(folder.path());
    QVERIFY(QFile::setPermissions(folder.path(), QFile::ReadOwner | QFile::ExeOwner));
    const ExchangeFolder programs;
    const BridgeOutcome run =
        runBridge({text("lastError"), folder.path()}, BridgeStart::asOrdinaryUser(programs.path()));
    QVERIFY(QFile::setPermissions(
        folder.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    QCOMPARE(run.errors, cannotWrite(folder.resultsPath()) + cannotWrite(folder.readyPath()));
    QCOMPARE(run.output, QByteArray("-1\n"));
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), QByteArray("old"));
    QCOMPARE(folder.names().size(), 2);
    QCOMPARE(server.problem(), QString());
}

void tst_BridgeFiles::blockedFiles_data()
{
    QTest::addColumn<bool>("resultsBlocked");
    QTest::addColumn<bool>("readyBlocked");
    QTest::newRow("the results file") << true << false;
    QTest::newRow("the ready file") << false << true;
    QTest::newRow("both") << true << true;
}

void tst_BridgeFiles::blockedFiles()
{
    QFETCH(bool, resultsBlocked);
    QFETCH(bool, readyBlocked);
    const ExchangeFolder folder;
    folder.putArguments({});
    putFile(folder.resultsPath(), "old results");
    putFile(folder.readyPath(), "old status");
    QByteArray errors;
    if (resultsBlocked) {
        QVERIFY(QDir().mkpath(folder.resultsPath() + text(".temp")));
        errors += cannotWrite(folder.resultsPath());
    }
    if (readyBlocked) {
        QVERIFY(QDir().mkpath(folder.readyPath() + text(".temp")));
        errors += cannotWrite(folder.readyPath());
    }
    server.expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u"})"));
    const BridgeOutcome run = runBridge({text("getUserUuid"), folder.path()});
    const QByteArray status = resultsBlocked ? "-1" : "2";
    QCOMPARE(run.errors, errors);
    QCOMPARE(run.output, status + '\n');
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), resultsBlocked ? QByteArray("old results") : QByteArray("u\0", 2));
    QCOMPARE(folder.ready(),
        readyBlocked ? QByteArray("old status") : utf16le(QString::fromLatin1(status)));
    QCOMPARE(server.problem(), QString());
}

void tst_BridgeFiles::resultsThatCannotBeReplaced()
{
    const ExchangeFolder folder;
    folder.putArguments({});
    QVERIFY(QDir().mkpath(folder.resultsPath() + text("/kept")));
    server.expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u"})"));
    const BridgeOutcome run = runBridge({text("getUserUuid"), folder.path()});
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.output, QByteArray("2\n"));
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(namesIn(folder.resultsPath()), QStringList{text("kept")});
    QCOMPARE(bytesOf(folder.resultsPath() + text(".temp")), QByteArray("u\0", 2));
    QCOMPARE(folder.ready(), QByteArray("2\0", 2));
    QCOMPARE(server.problem(), QString());
}

void tst_BridgeFiles::fileSizeLimit()
{
    const ExchangeFolder folder;
    folder.putArguments({});
    putFile(folder.resultsPath(), "old");
    server.expect(
        "GET", "/userUuid", ScriptedReply::json("{\"uuid\":\"" + QByteArray(10000, 'u') + "\"}"));
    const BridgeOutcome run = runBridge(
        {text("getUserUuid"), folder.path()}, BridgeStart::prepared([] { limitFileSize(4096); }));
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.output, QByteArray("-1\n"));
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), QByteArray("old"));
    QCOMPARE(folder.ready(), QByteArray("-\0001\0", 4));
    QCOMPARE(
        bytesOf(folder.resultsPath() + text(".temp")), utf16le(QString(2048, QLatin1Char('u'))));
    QCOMPARE(server.problem(), QString());
}

void tst_BridgeFiles::fullDisk()
{
    const ExchangeFolder folder;
    server.expect(
        "GET", "/userUuid", ScriptedReply::json("{\"uuid\":\"" + QByteArray(100000, 'u') + "\"}"));
    constexpr int noDisk = 77;
    BridgeStart onSmallDisk = BridgeStart::prepared([&folder] {
        // Two pages for the files' content, of which the old results take one.
        if (!mountSmallDisk(QFile::encodeName(folder.path()), 2 * int(sysconf(_SC_PAGESIZE)))) {
            _exit(noDisk);
        }
        putFile(folder.resultsPath(), "old");
        folder.putArguments({});
    });
    // The disk is gone with the last process that sees it, so that process has to look.
    onSmallDisk.shellCommand = text(R"sh(
        "$0" "$@"; status=$?
        cat "$2/mac-word-plugin-results.txt"
        cd "$2"; for name in *; do echo " $name"; done
        exit $status)sh");
    onSmallDisk.environment.insert(text("LC_ALL"), text("C"));
    const BridgeOutcome run = runBridge({text("getUserUuid"), folder.path()}, onSmallDisk);
    if (run.exitStatus == noDisk) {
        QSKIP("This user may not mount a disk of its own.");
    }
    QCOMPARE(run.errors, QByteArray());
    // No page was left for the ready file either, so it is not there.
    QCOMPARE(run.output,
        QByteArray("-1\n"
                   "old mac-word-plugin-args.txt\n"
                   " mac-word-plugin-result-ready.txt.temp\n"
                   " mac-word-plugin-results.txt\n"
                   " mac-word-plugin-results.txt.temp\n"));
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(server.problem(), QString());
}

QTEST_GUILESS_MAIN(tst_BridgeFiles)
#include "tst_bridgefiles.moc"
