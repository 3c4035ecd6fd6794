#include "service/PluginComServer.h"

#include "tests/service/Outcomes.h"
#include "tests/service/ServiceFixture.h"

#include <QtTest>

#include <functional>

namespace {

const QString oldFieldCode = QStringLiteral("ADDIN CSL_CITATION {\"id\":\"%1 %2 old\"}");
const QString newFieldCode =
    QStringLiteral("ADDIN CSL_CITATION {\"citationItems\":[{\"id\":\"new\"}]}");
const QByteArray newCluster = R"({"citationCluster":{"citationItems":[{"id":"new"}]}})";

/// An operation that answers with a field code, called in one certain way.
struct Call {
    const char* name;
    const char* path;
    QByteArray request;
    QString onFailure;
    std::function<QString(PluginComServer&)> run;
};

const QList<Call>& editorCalls()
{
    static const QList<Call> calls{
        {"editor, choose", "/citation/choose/interactive", "{}", QString(),
            [](PluginComServer& service) {
                return service.getFieldCodeFromCitationEditor(QString());
            }},
        {"editor, edit", "/citation/edit/interactive",
            R"({"fieldCode":"ADDIN CSL_CITATION {\u0022id\u0022:\u0022%1 %2 old\u0022}"})",
            QString(),
            [](PluginComServer& service) {
                return service.getFieldCodeFromCitationEditor(oldFieldCode);
            }},
    };
    return calls;
}

/// Those that take whatever cluster comes back.
const QList<Call>& uncheckedCalls()
{
    static const QList<Call> calls{
        {"uuid", "/testMethods/citationCluster/getFromUuid", R"({"documentUuid":"{%1} ü"})",
            QString(),
            [](PluginComServer& service) {
                return service.getFieldCodeFromUuid(QStringLiteral("{%1} ü"));
            }},
        {"empty uuid", "/testMethods/citationCluster/getFromUuid", R"({"documentUuid":""})",
            QString(),
            [](PluginComServer& service) { return service.getFieldCodeFromUuid(QString()); }},
        {"merge two", "/citations/merge",
            R"({"citationClusters":[{"fieldCode":"second %2"},{"fieldCode":"first %1"}]})",
            QString(),
            [](PluginComServer& service) {
                return service.mergeFields(
                    {QStringLiteral("second %2"), QStringLiteral("first %1")});
            }},
        {"merge the same twice and an empty one", "/citations/merge",
            R"({"citationClusters":[{"fieldCode":"x"},{"fieldCode":"x"},{"fieldCode":""}]})",
            QString(),
            [](PluginComServer& service) {
                return service.mergeFields({QStringLiteral("x"), QStringLiteral("x"), QString()});
            }},
        {"merge none", "/citations/merge", R"({"citationClusters":[]})", QString(),
            [](PluginComServer& service) { return service.mergeFields({}); }},
        {"manual format", "/citation/update/interactive",
            R"({"fieldCode":"ADDIN CSL_CITATION {\u0022id\u0022:\u0022%1 %2 old\u0022}",)"
            R"("formattedText":"%1 %2 Müller\u0001"})",
            oldFieldCode,
            [](PluginComServer& service) {
                return service.checkManualFormatAndGetFieldCode(
                    oldFieldCode, QStringLiteral("%1 %2 Müller\u0001"));
            }},
        {"manual format of nothing", "/citation/update/interactive",
            R"({"fieldCode":"","formattedText":""})", QString(),
            [](PluginComServer& service) {
                return service.checkManualFormatAndGetFieldCode(QString(), QString());
            }},
        {"undo", "/citation/undoManualFormat",
            R"({"fieldCode":"ADDIN CSL_CITATION {\u0022id\u0022:\u0022%1 %2 old\u0022}"})",
            oldFieldCode,
            [](PluginComServer& service) { return service.undoManualFormat(oldFieldCode); }},
        {"undo nothing", "/citation/undoManualFormat", R"({"fieldCode":""})", QString(),
            [](PluginComServer& service) { return service.undoManualFormat(QString()); }},
    };
    return calls;
}

const Call* findCall(const QString& name)
{
    for (const QList<Call>* calls : {&editorCalls(), &uncheckedCalls()}) {
        for (const Call& call : *calls) {
            if (name == QLatin1String(call.name)) {
                return &call;
            }
        }
    }
    return nullptr;
}

} // namespace

class FieldCodeOperationsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void request_data();
    void request();
    void failure_data();
    void failure();
    void noServer_data();
    void noServer();
    void hangUp_data();
    void hangUp();
    void newCode_data();
    void newCode();
    void editorAnswer_data();
    void editorAnswer();
    void editorNullAndEmptyAreTheSame();

    void manualEdit_data();
    void manualEdit();
    void noManualEdit_data();
    void noManualEdit();

private:
    ServiceFixture fixture;
};

void FieldCodeOperationsTest::init()
{
    fixture.server.reset();
}

void FieldCodeOperationsTest::cleanup()
{
    QCOMPARE(fixture.server.problem(), QString());
}

void FieldCodeOperationsTest::request_data()
{
    QTest::addColumn<QString>("name");
    for (const Call& call : editorCalls() + uncheckedCalls()) {
        QTest::newRow(call.name) << QString::fromUtf8(call.name);
    }
}

void FieldCodeOperationsTest::request()
{
    QFETCH(QString, name);
    const Call& call = *findCall(name);
    fixture.server.expect("POST", call.path, ScriptedReply::json(newCluster));
    PluginComServer service;
    QCOMPARE(call.run(service), newFieldCode);
    QCOMPARE(service.lastError(), QString());
    QCOMPARE(fixture.server.requests().size(), 1);
    const ReceivedRequest& request = fixture.server.requests().first();
    QVERIFY2(isSameJson(request.body, call.request), request.body);
    QCOMPARE(request.headers.value("content-type"), QByteArray("application/json"));
}

void FieldCodeOperationsTest::failure_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<Outcome>("outcome");
    for (const Call& call : editorCalls() + uncheckedCalls()) {
        for (const Outcome& outcome : failures(newCluster)) {
            QTest::addRow("%s: %s", call.name, outcome.name)
                << QString::fromUtf8(call.name) << outcome;
        }
    }
}

void FieldCodeOperationsTest::failure()
{
    QFETCH(QString, name);
    QFETCH(Outcome, outcome);
    const Call& call = *findCall(name);
    fixture.server.expect("POST", call.path, outcome.reply);
    PluginComServer service;
    QCOMPARE(call.run(service), call.onFailure);
    QVERIFY2(outcome.explains(service.lastError()), qPrintable(service.lastError()));
    QCOMPARE(fixture.server.requests().size(), 1);
}

void FieldCodeOperationsTest::noServer_data()
{
    request_data();
}

void FieldCodeOperationsTest::noServer()
{
    QFETCH(QString, name);
    const Call& call = *findCall(name);
    fixture.useNoServer();
    PluginComServer service;
    fixture.useScriptedServer();
    QCOMPARE(call.run(service), call.onFailure);
    QVERIFY(isRefusal(service.lastError()));
}

void FieldCodeOperationsTest::hangUp_data()
{
    request_data();
}

void FieldCodeOperationsTest::hangUp()
{
    QFETCH(QString, name);
    const Call& call = *findCall(name);
    fixture.server.expect("POST", call.path, {QByteArray(), ScriptedReply::Close, -1});
    PluginComServer service;
    QCOMPARE(call.run(service), call.onFailure);
    QVERIFY(!service.lastError().isEmpty());
    // A second request would be a second dialog.
    QCOMPARE(fixture.server.requests().size(), 1);
}

void FieldCodeOperationsTest::newCode_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("cluster");
    struct Answer {
        const char* name;
        const char* reply;
        const char* cluster;
    };
    const Answer answers[] = {
        {"cluster", R"({"citationCluster":{"b":1,"a":"%1 %2"}})", R"({"a":"%1 %2","b":1})"},
        {"empty cluster", R"({"citationCluster":{}})", "{}"},
        {"cluster and error", R"({"citationCluster":{"a":1},"error":"x"})", R"({"a":1})"},
        {"no cluster", R"({"error":"none"})", "null"},
        {"null cluster", R"({"citationCluster":null})", "null"},
        {"text", R"({"citationCluster":"%2 x"})", R"("%2 x")"},
        {"number", R"({"citationCluster":5})", "5"},
        {"boolean", R"({"citationCluster":false})", "false"},
        {"list", R"({"citationCluster":[1]})", "[1]"},
        {"empty object", "{}", "null"},
        {"empty body", "", "null"},
        {"not JSON", "<html>OK</html>", "null"},
        {"cut off", R"({"citationCluster":{"a":1})", "null"},
        {"array", R"([{"citationCluster":{"a":1}}])", "null"},
        {"scalar", "true", "null"},
        {"invalid UTF-8", "{\"citationCluster\":\"\xFF\"}", "null"},
    };
    for (const Call& call : uncheckedCalls()) {
        for (const Answer& answer : answers) {
            QTest::addRow("%s: %s", call.name, answer.name) << QString::fromUtf8(
                call.name) << QByteArray(answer.reply) << QString::fromUtf8(answer.cluster);
        }
    }
}

void FieldCodeOperationsTest::newCode()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, reply);
    QFETCH(QString, cluster);
    const Call& call = *findCall(name);
    fixture.server.expect("POST", call.path, ScriptedReply::json(reply));
    PluginComServer service;
    QCOMPARE(call.run(service), QStringLiteral("ADDIN CSL_CITATION ") + cluster);
    QCOMPARE(service.lastError(), QString());
}

void FieldCodeOperationsTest::editorAnswer_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("cluster"); // of the new field code; empty for the unchanged input

    const auto row = [](const char* name, const char* reply, const char* cluster) {
        QTest::newRow(name) << QByteArray(reply) << QString::fromUtf8(cluster);
    };
    row("one item", R"({"citationCluster":{"citationItems":[{"id":"%1"}],"a":"%2"}})",
        R"({"a":"%2","citationItems":[{"id":"%1"}]})");
    row("two items", R"({"citationCluster":{"citationItems":[{"id":"i"},{"id":"j"}]}})",
        R"({"citationItems":[{"id":"i"},{"id":"j"}]})");
    row("an item that is no object", R"({"citationCluster":{"citationItems":[null]}})",
        R"({"citationItems":[null]})");

    row("no items", R"({"citationCluster":{"citationItems":[],"a":"b"}})", "");
    row("items missing", R"({"citationCluster":{"a":"b"}})", "");
    row("items null", R"({"citationCluster":{"citationItems":null}})", "");
    row("items an object", R"({"citationCluster":{"citationItems":{"id":"i"}}})", "");
    row("items a text", R"({"citationCluster":{"citationItems":"abc"}})", "");
    row("items a number", R"({"citationCluster":{"citationItems":3}})", "");
    row("items true", R"({"citationCluster":{"citationItems":true}})", "");
    row("items beside the cluster", R"({"citationCluster":{},"citationItems":[{}]})", "");
    row("key in another case", R"({"citationCluster":{"CitationItems":[{}]}})", "");
    row("cluster empty", R"({"citationCluster":{}})", "");
    row("cluster null", R"({"citationCluster":null})", "");
    row("cluster a text", R"({"citationCluster":"{\"citationItems\":[{}]}"})", "");
    row("cluster a list", R"({"citationCluster":[{"citationItems":[{}]}]})", "");
    row("cluster a number", R"({"citationCluster":1})", "");
    row("cluster missing", R"({"error":"x"})", "");
    row("empty object", "{}", "");
    row("empty body", "", "");
    row("not JSON", "OK", "");
    row("cut off", R"({"citationCluster":{"citationItems":[{"id":"i"}]})", "");
    row("array", R"([{"citationCluster":{"citationItems":[{}]}}])", "");
}

void FieldCodeOperationsTest::editorAnswer()
{
    QFETCH(QByteArray, reply);
    QFETCH(QString, cluster);
    PluginComServer service;
    for (const QString& input : {oldFieldCode, QString()}) {
        fixture.server.expect("POST",
            input.isEmpty() ? "/citation/choose/interactive" : "/citation/edit/interactive",
            ScriptedReply::json(reply));
        QCOMPARE(service.getFieldCodeFromCitationEditor(input),
            cluster.isEmpty() ? input : QStringLiteral("ADDIN CSL_CITATION ") + cluster);
        QCOMPARE(service.lastError(), QString());
    }
}

void FieldCodeOperationsTest::editorNullAndEmptyAreTheSame()
{
    PluginComServer service;
    for (const QString& input : {QString(), QStringLiteral("")}) {
        fixture.server.expect("POST", "/citation/choose/interactive", ScriptedReply::json("{}"));
        QVERIFY(service.getFieldCodeFromCitationEditor(input).isEmpty());
        QVERIFY(isSameJson(fixture.server.requests().last().body, "{}"));
    }
    // A blank is a field code like any other.
    fixture.server.expect("POST", "/citation/edit/interactive", ScriptedReply::json("{}"));
    QCOMPARE(service.getFieldCodeFromCitationEditor(QStringLiteral(" ")), QStringLiteral(" "));
    QVERIFY(isSameJson(fixture.server.requests().last().body, R"({"fieldCode":" "})"));
}

// Manual edits

void FieldCodeOperationsTest::manualEdit_data()
{
    QTest::addColumn<QString>("fieldCode");
    const auto row = [](const char* name, const char* fieldCode) {
        QTest::newRow(name) << QString::fromUtf8(fieldCode);
    };
    row("text", R"(ADDIN CSL_CITATION {"tessaron":{"manualFormatting":"see %1"}})");
    // The key alone counts.
    row("false", R"(ADDIN CSL_CITATION {"tessaron":{"manualFormatting":false}})");
    row("null", R"(ADDIN CSL_CITATION {"tessaron":{"manualFormatting":null}})");
    row("empty text", R"(ADDIN CSL_CITATION {"tessaron":{"manualFormatting":""}})");
    row("zero", R"(ADDIN CSL_CITATION {"tessaron":{"manualFormatting":0}})");
    row("object", R"(ADDIN CSL_CITATION {"tessaron":{"manualFormatting":{}}})");
    row("other keys", R"({"a":1,"tessaron":{"a":1,"manualFormatting":[],"z":1},"z":2} behind)");
}

void FieldCodeOperationsTest::manualEdit()
{
    QFETCH(QString, fieldCode);
    PluginComServer service;
    QVERIFY(service.hasManualEdit(fieldCode));
    QCOMPARE(fixture.server.connectionCount(), 0);
}

void FieldCodeOperationsTest::noManualEdit_data()
{
    QTest::addColumn<QString>("fieldCode");
    const auto row = [](const char* name, const char* fieldCode) {
        QTest::newRow(name) << QString::fromUtf8(fieldCode);
    };
    row("empty", "");
    row("no braces", "ADDIN CSL_CITATION manualFormatting tessaron");
    row("opening brace only", "ADDIN CSL_CITATION {");
    row("closing brace only", "ADDIN CSL_CITATION }");
    row("empty object", "ADDIN CSL_CITATION {}");
    row("no tessaron", R"(X {"citationItems":[]})");
    row("tessaron without the key", R"(X {"tessaron":{"previouslyFormattedCitation":"x"}})");
    row("tessaron empty", R"(X {"tessaron":{}})");
    row("tessaron null", R"(X {"tessaron":null})");
    row("tessaron true", R"(X {"tessaron":true})");
    row("tessaron a text", R"(X {"tessaron":"manualFormatting"})");
    row("tessaron a list", R"(X {"tessaron":["manualFormatting"]})");
    row("tessaron a list of objects", R"(X {"tessaron":[{"manualFormatting":1}]})");
    row("key at the top", R"(X {"manualFormatting":"x"})");
    row("key too deep", R"(X {"tessaron":{"x":{"manualFormatting":"x"}}})");
    row("tessaron too deep", R"(X {"x":{"tessaron":{"manualFormatting":"x"}}})");
    row("path as a key", R"(X {"tessaron.manualFormatting":"x"})");
    row("key in another case", R"(X {"tessaron":{"manualformatting":"x"}})");
    row("tessaron in another case", R"(X {"Tessaron":{"manualFormatting":"x"}})");
    row("cut off", R"(X {"tessaron":{"manualFormatting":"x"})");
    row("malformed", R"(X {"tessaron":{"manualFormatting":}})");
    row("single quotes", R"(X {'tessaron':{'manualFormatting':'x'}})");
}

void FieldCodeOperationsTest::noManualEdit()
{
    QFETCH(QString, fieldCode);
    PluginComServer service;
    QVERIFY(!service.hasManualEdit(fieldCode));
    QCOMPARE(service.lastError(), QString());
    QCOMPARE(fixture.server.connectionCount(), 0);
}

QTEST_GUILESS_MAIN(FieldCodeOperationsTest)
#include "tst_plugincomserver_fieldcodes.moc"
