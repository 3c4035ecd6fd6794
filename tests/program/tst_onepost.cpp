#include "apiclient/PluginApiClient.h"
#include "tests/support/BridgeRun.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/MisbehaviourCases.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"

#include <QtTest>

namespace {

/// A command, and its results for each outcome.
struct Command {
    const char* name;
    QStringList arguments;
    QStringList failed;
    QStringList emptySuccess;
    QStringList second; ///< the results if a second connection gets a reply
    QByteArray warning; ///< printed with `emptySuccess`
};

/// Every command that sends a POST.
QList<Command> commands()
{
    const QString code = text(R"(ADDIN CSL_CITATION {"citationItems":[1]})");
    const QStringList null{text("ADDIN CSL_CITATION null")};
    const QStringList second{text(R"(ADDIN CSL_CITATION {"citationItems":[2]})")};
    const QStringList empty{QString()};
    const QStringList unformatted{text("false"), text("-1")};
    const QStringList formatted{text("true"), text("second"), text("b"),
        text("ADDIN CSL_CITATION {}"), text("second"), QString(), QString()};
    return {{"setWordProcessor", {text("Word"), text("16")}, {}, {}, {}, {}},
        {"getFieldCodeFromCitationEditor", {code}, empty, {code}, second, {}},
        {"getFieldCodeFromUuid", {text("u")}, empty, null, second, {}},
        {"getCitationStyleFromDialog", {text("s")}, empty, empty, {text("second")}, {}},
        {"formatCitationsAndBibliography", {text("s"), code, text("t")}, unformatted, unformatted,
            formatted,
            "Citation count mismatch.  Submitted 1 citations but only received 0 formatted "
            "citations.\n"},
        {"mergeFields", {code, code}, empty, null, second, {}},
        {"checkManualFormatAndGetFieldCode", {code, text("t")}, {code}, null, second, {}},
        {"undoManualFormat", {code}, {code}, null, second, {}}};
}

/// Waits until everything sent has arrived. Returns whether the server received at most one POST.
bool hasOnePostAtMost(const RawServer& server)
{
    QCoreApplication::processEvents();
    return QTest::qWaitFor([&server] { return server.openConnectionCount() == 0; })
        && server.postCount() <= 1;
}

} // namespace

Q_DECLARE_METATYPE(MisbehaviourCase)
Q_DECLARE_METATYPE(Command)

/// The application receives a POST at most once: a second one could open a dialog again or merge
/// citations again.
class tst_OnePost : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void sendsEachCommandOnce_data();
    void sendsEachCommandOnce();
    void sendsLargeRequestOnce_data();
    void sendsLargeRequestOnce();
    void reportsErrorOfOneRequest_data();
    void reportsErrorOfOneRequest();

private:
    TemporaryHome home;
};

void tst_OnePost::sendsEachCommandOnce_data()
{
    QTest::addColumn<Command>("command");
    QTest::addColumn<MisbehaviourCase>("row");
    // All commands use the same transport, so only one of them is tested with every case.
    const QByteArray fullyTestedCommand = "checkManualFormatAndGetFieldCode";
    const QByteArrayList representativeCases{"closed after the request", "reset inside the body",
        "closed inside the body", "503 Retry-After: 0"};
    const QList<MisbehaviourCase> cases = misbehaviourCases();
    const QList<Command> all = commands();
    for (const Command& command : all) {
        for (const MisbehaviourCase& row : cases) {
            if (command.name == fullyTestedCommand || representativeCases.contains(row.name)) {
                QTest::newRow((QByteArray(command.name) + ", " + row.name).constData())
                    << command << row;
            }
        }
    }
}

void tst_OnePost::sendsEachCommandOnce()
{
    QFETCH(Command, command);
    QFETCH(MisbehaviourCase, row);
    RawServer server(row.misbehaviour);
    home.writePort(server.serverPort());
    const ExchangeFolder folder;
    folder.putArguments(command.arguments);
    const BridgeOutcome run = runCommand(command.name, folder);
    QVERIFY(server.connectionCount() >= 1);
    QVERIFY(hasOnePostAtMost(server));
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.ready(), utf16le(QString::number(folder.results().size())));
    if (server.successCount() == 1) {
        // The first connection closed before anything was sent, so a second one is allowed.
        QCOMPARE(row.misbehaviour.afterBodyBytes, Misbehaviour::atOnce);
        QCOMPARE(folder.results(), listBytes(command.second));
        return;
    }
    if (row.misbehaviour.afterBodyBytes != Misbehaviour::atOnce) {
        QCOMPARE(server.postCount(), 1);
    }
    const bool isEmptySuccess = row.outcome == EmptySuccess
        || (row.outcome == FailedOrEmptySuccess
            && folder.results() == listBytes(command.emptySuccess));
    QCOMPARE(folder.results(), listBytes(isEmptySuccess ? command.emptySuccess : command.failed));
    if (row.outcome != FailedOrEmptySuccess) {
        QCOMPARE(run.errors, isEmptySuccess ? command.warning : QByteArray());
    }
}

void tst_OnePost::sendsLargeRequestOnce_data()
{
    QTest::addColumn<MisbehaviourCase>("row");
    const QList<MisbehaviourCase> cases = cutUploadCases();
    for (const MisbehaviourCase& row : cases) {
        QTest::newRow(row.name.constData()) << row;
    }
}

void tst_OnePost::sendsLargeRequestOnce()
{
    QFETCH(MisbehaviourCase, row);
    RawServer server(row.misbehaviour);
    home.writePort(server.serverPort());
    const ExchangeFolder folder;
    constexpr int half = 9000000;
    folder.putArguments(
        {text("s"), QString(half, QLatin1Char('f')), QString(half, QLatin1Char('t'))});
    const BridgeOutcome run = runCommand("formatCitationsAndBibliography", folder);
    QVERIFY(server.connectionCount() >= 1);
    QVERIFY(hasOnePostAtMost(server));
    QCOMPARE(run.exitStatus, 0);
    if (server.successCount() == 1) {
        QCOMPARE(row.misbehaviour.afterBodyBytes, Misbehaviour::atOnce);
    } else {
        QCOMPARE(run.errors, QByteArray());
        QCOMPARE(folder.results(), listBytes({text("false"), text("-1")}));
    }
}

void tst_OnePost::reportsErrorOfOneRequest_data()
{
    QTest::addColumn<MisbehaviourCase>("row");
    const QList<MisbehaviourCase> cases = misbehaviourCases();
    for (const MisbehaviourCase& row : cases) {
        QTest::newRow(row.name.constData()) << row;
    }
}

void tst_OnePost::reportsErrorOfOneRequest()
{
    QFETCH(MisbehaviourCase, row);
    RawServer server(row.misbehaviour);
    PluginApiClient client(server.serverPort());
    client.setLastError(text("of an earlier request"));
    QVariantMap result{{text("of"), text("an earlier request")}};
    const int status = client.postRequest(text("/a/interactive"), {{text("b"), 1}}, &result);
    QCOMPARE(result.value(text("of")), QVariant());
    QVERIFY(server.postCount() <= 1);
    if (status == 200) {
        QVERIFY(row.outcome != Failed || server.successCount() == 1);
        QCOMPARE(client.lastError(), text("of an earlier request"));
        return;
    }
    QVERIFY(row.outcome != EmptySuccess);
    QCOMPARE(server.successCount(), 0);
    if (row.error.isNull()) {
        QCOMPARE(status, 0);
        QVERIFY(!client.lastError().isEmpty());
        QVERIFY(client.lastError() != text("of an earlier request"));
    } else {
        QCOMPARE(client.lastError(), row.error);
    }
}

QTEST_GUILESS_MAIN(tst_OnePost)
#include "tst_onepost.moc"
