#include "tests/service/ServiceTest.h"

#include <QtTest>

namespace {

const QString oldFieldCode = QStringLiteral("ADDIN CSL_CITATION {\"id\":\"%1 %2 old\"}");
const QString newFieldCode =
    QStringLiteral("ADDIN CSL_CITATION {\"citationItems\":[{\"id\":\"new\"}]}");
const QByteArray newCluster = R"({"citationCluster":{"citationItems":[{"id":"new"}]}})";

/// A call of an operation that returns a field code.
struct Call {
    QString (*run)(PluginComServer&) = nullptr;
    QByteArray path;
    QByteArray request;
    QString resultOnFailure;
};

const Call choose{
    [](PluginComServer& service) { return service.getFieldCodeFromCitationEditor(QString()); },
    "/citation/choose/interactive", "{}", QString()};
const Call edit{
    [](PluginComServer& service) { return service.getFieldCodeFromCitationEditor(oldFieldCode); },
    "/citation/edit/interactive",
    R"({"fieldCode":"ADDIN CSL_CITATION {\u0022id\u0022:\u0022%1 %2 old\u0022}"})", QString()};
const Call fromUuid{
    [](PluginComServer& service) { return service.getFieldCodeFromUuid(QStringLiteral("{%1} ü")); },
    "/testMethods/citationCluster/getFromUuid", R"({"documentUuid":"{%1} ü"})", QString()};
const Call merge{[](PluginComServer& service) {
                     return service.mergeFields({QStringLiteral("second %2"),
                         QStringLiteral("first %1"), QStringLiteral("second %2"), QString()});
                 },
    "/citations/merge",
    R"({"citationClusters":[{"fieldCode":"second %2"},{"fieldCode":"first %1"},)"
    R"({"fieldCode":"second %2"},{"fieldCode":""}]})",
    QString()};
const Call mergeEmptyList{[](PluginComServer& service) { return service.mergeFields({}); },
    "/citations/merge", R"({"citationClusters":[]})", QString()};
const Call recordEdit{[](PluginComServer& service) {
                          return service.checkManualFormatAndGetFieldCode(
                              oldFieldCode, QStringLiteral("%1 %2 Müller\u0001"));
                      },
    "/citation/update/interactive",
    R"({"fieldCode":"ADDIN CSL_CITATION {\u0022id\u0022:\u0022%1 %2 old\u0022}",)"
    R"("formattedText":"%1 %2 Müller\u0001"})",
    oldFieldCode};
const Call undoEdit{[](PluginComServer& service) { return service.undoManualFormat(oldFieldCode); },
    "/citation/undoManualFormat",
    R"({"fieldCode":"ADDIN CSL_CITATION {\u0022id\u0022:\u0022%1 %2 old\u0022}"})", oldFieldCode};
const Call undoEmptyFieldCode{
    [](PluginComServer& service) { return service.undoManualFormat(QString()); },
    "/citation/undoManualFormat", R"({"fieldCode":""})", QString()};

} // namespace

Q_DECLARE_METATYPE(Call)

/// The operations that return or read a field code.
class tst_PluginComServer_FieldCodes : public ServiceTest {
    Q_OBJECT

private Q_SLOTS:
    void returnsFieldCodeOfReply_data();
    void returnsFieldCodeOfReply();
    void returnsHarmlessValueOnFailure_data();
    void returnsHarmlessValueOnFailure();
    void takesAnyClusterInReply_data();
    void takesAnyClusterInReply();
    void editorAcceptsOnlyReplyWithItems_data();
    void editorAcceptsOnlyReplyWithItems();
    void editorTreatsSpaceAsFieldCode();
    void findsManualEdit_data();
    void findsManualEdit();
};

void tst_PluginComServer_FieldCodes::returnsFieldCodeOfReply_data()
{
    QTest::addColumn<Call>("call");
    QTest::newRow("choose") << choose;
    QTest::newRow("edit") << edit;
    QTest::newRow("from uuid") << fromUuid;
    QTest::newRow("merge in order, repeated and empty codes too") << merge;
    QTest::newRow("merge an empty list") << mergeEmptyList;
    QTest::newRow("record a manual edit") << recordEdit;
    QTest::newRow("undo a manual edit") << undoEdit;
    QTest::newRow("undo in an empty field code") << undoEmptyFieldCode;
}

void tst_PluginComServer_FieldCodes::returnsFieldCodeOfReply()
{
    QFETCH(Call, call);
    server.expect("POST", call.path, ScriptedReply::json(newCluster));
    PluginComServer service;
    QCOMPARE(call.run(service), newFieldCode);
    QCOMPARE(service.lastError(), QString());
    const QByteArray body = server.requests().value(0).body;
    QVERIFY2(isSameJson(body, call.request), body);
}

void tst_PluginComServer_FieldCodes::returnsHarmlessValueOnFailure_data()
{
    addFailedReplies(newCluster);
}

void tst_PluginComServer_FieldCodes::returnsHarmlessValueOnFailure()
{
    QFETCH(FailedReply, failure);
    for (const Call& call : {choose, edit, fromUuid, merge, recordEdit, undoEdit}) {
        server.expect("POST", call.path, failure.reply);
        PluginComServer service;
        QCOMPARE(call.run(service), call.resultOnFailure);
        QCOMPARE(service.lastError(), failure.error);
    }
}

void tst_PluginComServer_FieldCodes::takesAnyClusterInReply_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("cluster");
    QTest::newRow("empty cluster")
        << QByteArray(R"({"citationCluster":{},"error":"x"})") << QStringLiteral("{}");
    QTest::newRow("cluster is a string")
        << QByteArray(R"({"citationCluster":"%2 x"})") << QStringLiteral("\"%2 x\"");
    QTest::newRow("no cluster") << QByteArray("{}") << QStringLiteral("null");
}

void tst_PluginComServer_FieldCodes::takesAnyClusterInReply()
{
    QFETCH(QByteArray, reply);
    QFETCH(QString, cluster);
    for (const Call& call : {fromUuid, merge, recordEdit, undoEdit}) {
        server.expect("POST", call.path, ScriptedReply::json(reply));
        PluginComServer service;
        QCOMPARE(call.run(service), QStringLiteral("ADDIN CSL_CITATION ") + cluster);
    }
}

void tst_PluginComServer_FieldCodes::editorAcceptsOnlyReplyWithItems_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("cluster"); // of the returned field code; empty for the input

    const auto row = [](const char* name, const char* reply, const char* cluster) {
        QTest::newRow(name) << QByteArray(reply) << QString::fromUtf8(cluster);
    };
    row("two items", R"({"citationCluster":{"citationItems":[{"id":"%1"},{"id":"j"}],"a":"%2"}})",
        R"({"a":"%2","citationItems":[{"id":"%1"},{"id":"j"}]})");
    row("item is not an object", R"({"citationCluster":{"citationItems":[null]}})",
        R"({"citationItems":[null]})");
    row("no items", R"({"citationCluster":{"citationItems":[],"a":"b"}})", "");
    row("items missing", R"({"citationCluster":{"a":"b"}})", "");
    row("items are null", R"({"citationCluster":{"citationItems":null}})", "");
    row("items are an object", R"({"citationCluster":{"citationItems":{"id":"i"}}})", "");
    row("items are a string", R"({"citationCluster":{"citationItems":"abc"}})", "");
    row("items beside the cluster", R"({"citationCluster":{},"citationItems":[{}]})", "");
    row("key in another case", R"({"citationCluster":{"CitationItems":[{}]}})", "");
    row("cluster is a string", R"({"citationCluster":"{\"citationItems\":[{}]}"})", "");
    row("cluster is a list", R"({"citationCluster":[{"citationItems":[{}]}]})", "");
    row("cluster missing", R"({"error":"x"})", "");
    row("empty body", "", "");
}

void tst_PluginComServer_FieldCodes::editorAcceptsOnlyReplyWithItems()
{
    QFETCH(QByteArray, reply);
    QFETCH(QString, cluster);
    PluginComServer service;
    for (const QString& input : {oldFieldCode, QString()}) {
        server.expect(
            "POST", input.isEmpty() ? choose.path : edit.path, ScriptedReply::json(reply));
        QCOMPARE(service.getFieldCodeFromCitationEditor(input),
            cluster.isEmpty() ? input : QStringLiteral("ADDIN CSL_CITATION ") + cluster);
    }
}

void tst_PluginComServer_FieldCodes::editorTreatsSpaceAsFieldCode()
{
    server.expect("POST", edit.path, ScriptedReply::json("{}"));
    PluginComServer service;
    QCOMPARE(service.getFieldCodeFromCitationEditor(QStringLiteral(" ")), QStringLiteral(" "));
    QVERIFY(isSameJson(server.requests().value(0).body, R"({"fieldCode":" "})"));
}

void tst_PluginComServer_FieldCodes::findsManualEdit_data()
{
    QTest::addColumn<QString>("fieldCode");
    QTest::addColumn<bool>("found");
    const auto row = [](const char* name, bool found, const char* fieldCode) {
        QTest::newRow(name) << QString::fromUtf8(fieldCode) << found;
    };
    row("text", true, R"(ADDIN CSL_CITATION {"tessaron":{"manualFormatting":"see %1"}})");
    row("false", true, R"(ADDIN CSL_CITATION {"tessaron":{"manualFormatting":false}})");
    row("null", true, R"(ADDIN CSL_CITATION {"tessaron":{"manualFormatting":null}})");
    row("empty text", true, R"(ADDIN CSL_CITATION {"tessaron":{"manualFormatting":""}})");
    row("among other keys", true, R"(X {"a":1,"tessaron":{"a":1,"manualFormatting":[]},"z":2} Y)");

    row("no tessaron object", false, R"(X {"citationItems":[]})");
    row("tessaron object without the key", false, R"(X {"tessaron":{"manualFormatting2":"x"}})");
    row("tessaron is a string", false, R"(X {"tessaron":"manualFormatting"})");
    row("tessaron is a list", false, R"(X {"tessaron":[{"manualFormatting":1}]})");
    row("key beside the tessaron object", false, R"(X {"tessaron":{},"manualFormatting":"x"})");
    row("key one level deeper", false, R"(X {"tessaron":{"x":{"manualFormatting":"x"}}})");
    row("key in another case", false, R"(X {"tessaron":{"manualformatting":"x"}})");
    row("empty field code", false, "");
    row("no braces", false, "ADDIN CSL_CITATION tessaron manualFormatting");
    row("cut off", false, R"(X {"tessaron":{"manualFormatting":"x"})");
}

void tst_PluginComServer_FieldCodes::findsManualEdit()
{
    QFETCH(QString, fieldCode);
    QFETCH(bool, found);
    PluginComServer service;
    QCOMPARE(service.hasManualEdit(fieldCode), found);
    QCOMPARE(service.lastError(), QString());
    QCOMPARE(server.connectionCount(), 0);
}

QTEST_GUILESS_MAIN(tst_PluginComServer_FieldCodes)
#include "tst_plugincomserver_fieldcodes.moc"
