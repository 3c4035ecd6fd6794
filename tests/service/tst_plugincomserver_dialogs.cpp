#include "service/PluginComServer.h"

#include "tests/service/Outcomes.h"
#include "tests/service/ServiceFixture.h"

#include <QtTest>

/// The style dialog, and what the application is told before it shows one.
class DialogsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void styleDialog_data();
    void styleDialog();
    void styleDialogFailure_data();
    void styleDialogFailure();
    void styleDialogNoServer();
    void styleDialogStoresNothing();

    void allowSetFocus_data();
    void allowSetFocus();
    void setWordProcessor_data();
    void setWordProcessor();
    void silentOperationsOnFailure_data();
    void silentOperationsOnFailure();
    void silentOperationsNoServer();

private:
    ServiceFixture fixture;
};

void DialogsTest::init()
{
    fixture.server.reset();
}

void DialogsTest::cleanup()
{
    QCOMPARE(fixture.server.problem(), QString());
}

// Style dialog

void DialogsTest::styleDialog_data()
{
    QTest::addColumn<QString>("selected");
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("expected");

    const auto row = [](const char* name, const char* selected, const char* request,
                         const char* reply, const char* expected) {
        QTest::newRow(name) << QString::fromUtf8(selected) << QByteArray(request)
                            << QByteArray(reply) << QString::fromUtf8(expected);
    };
    row("chosen", "http://example.org/a", R"({"currentStyleUrl":"http://example.org/a"})",
        R"({"citationStyleUrl":"http://example.org/b"})", "http://example.org/b");
    row("nothing selected before", "", R"({"currentStyleUrl":""})", R"({"citationStyleUrl":"b"})",
        "b");
    row("placeholders", "%1 %2", R"({"currentStyleUrl":"%1 %2"})",
        R"({"citationStyleUrl":"%2 %1"})", "%2 %1");

    const auto wrong = [&row](const char* name, const char* reply, const char* expected) {
        row(name, "a", R"({"currentStyleUrl":"a"})", reply, expected);
    };
    wrong("number", R"({"citationStyleUrl":42})", "42");
    wrong("boolean", R"({"citationStyleUrl":true})", "true");
    wrong("empty text", R"({"citationStyleUrl":""})", "");
    wrong("null", R"({"citationStyleUrl":null})", "");
    wrong("object", R"({"citationStyleUrl":{"url":"b"}})", "");
    wrong("list", R"({"citationStyleUrl":["b"]})", "");
    wrong("missing", R"({"currentStyleUrl":"b"})", "");
    wrong("key in another case", R"({"citationstyleurl":"b"})", "");
    wrong("empty object", "{}", "");
    wrong("empty body", "", "");
    wrong("not JSON", "http://example.org/b", "");
    wrong("cut off", R"({"citationStyleUrl":"b")", "");
    wrong("array", R"([{"citationStyleUrl":"b"}])", "");
}

void DialogsTest::styleDialog()
{
    QFETCH(QString, selected);
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, reply);
    QFETCH(QString, expected);
    fixture.server.expect("POST", "/citationStyle/choose/interactive", ScriptedReply::json(reply));
    PluginComServer service;
    QCOMPARE(service.getCitationStyleFromDialog(selected), expected);
    const QByteArray body = fixture.server.requests().value(0).body;
    QVERIFY2(isSameJson(body, request), body);
    QCOMPARE(service.lastError(), QString());
}

void DialogsTest::styleDialogFailure_data()
{
    QTest::addColumn<Outcome>("outcome");
    for (const Outcome& outcome : failures(R"({"citationStyleUrl":"%1 b"})")) {
        QTest::newRow(outcome.name) << outcome;
    }
}

void DialogsTest::styleDialogFailure()
{
    QFETCH(Outcome, outcome);
    fixture.server.expect("POST", "/citationStyle/choose/interactive", outcome.reply);
    PluginComServer service;
    // The status is not looked at: a style that came back counts.
    QCOMPARE(service.getCitationStyleFromDialog(QStringLiteral("a")),
        outcome.holdsTheAnswer ? QStringLiteral("%1 b") : QString());
    QVERIFY2(outcome.explains(service.lastError()), qPrintable(service.lastError()));
}

void DialogsTest::styleDialogNoServer()
{
    fixture.useNoServer();
    PluginComServer service;
    fixture.useScriptedServer();
    QCOMPARE(service.getCitationStyleFromDialog(QStringLiteral("a")), QString());
    QVERIFY(isRefusal(service.lastError()));
}

void DialogsTest::styleDialogStoresNothing()
{
    fixture.server.expect("POST", "/citationStyle/choose/interactive",
        ScriptedReply::json(R"({"citationStyleUrl":"b"})"));
    PluginComServer service;
    service.setCitationStyle(QStringLiteral("mine"));
    QCOMPARE(service.getCitationStyleFromDialog(QStringLiteral("a")), QStringLiteral("b"));
    QCOMPARE(service.getCitationStyleId(), QStringLiteral("mine"));
}

// Operations without a result

void DialogsTest::allowSetFocus_data()
{
    QTest::addColumn<int>("processId");
    QTest::addColumn<QByteArray>("request");
    QTest::newRow("process") << 4711 << QByteArray(R"({"processId":4711})");
    QTest::newRow("zero") << 0 << QByteArray(R"({"processId":0})");
    QTest::newRow("negative") << -1 << QByteArray(R"({"processId":-1})");
    QTest::newRow("largest") << 2147483647 << QByteArray(R"({"processId":2147483647})");
    QTest::newRow("smallest") << -2147483647 - 1 << QByteArray(R"({"processId":-2147483648})");
}

void DialogsTest::allowSetFocus()
{
    QFETCH(int, processId);
    QFETCH(QByteArray, request);
    fixture.server.expect("POST", "/allowSetFocus", ScriptedReply::json("{}"));
    PluginComServer service;
    service.allowSetFocus(processId);
    const QByteArray body = fixture.server.requests().value(0).body;
    QVERIFY2(isSameJson(body, request), body);
    QCOMPARE(service.lastError(), QString());
}

void DialogsTest::setWordProcessor_data()
{
    QTest::addColumn<QString>("processor");
    QTest::addColumn<QString>("version");
    QTest::addColumn<QByteArray>("request");
    const auto row = [](const char* name, const char* processor, const char* version,
                         const char* request) {
        QTest::newRow(name) << QString::fromUtf8(processor) << QString::fromUtf8(version)
                            << QByteArray(request);
    };
    row("both", "MicrosoftWord", "16.80", R"({"wordProcessor":"MicrosoftWord","version":"16.80"})");
    row("a version stays a text", "Word", "16", R"({"wordProcessor":"Word","version":"16"})");
    row("empty", "", "", R"({"wordProcessor":"","version":""})");
    row("no version", "Word", "", R"({"wordProcessor":"Word","version":""})");
    row("placeholders", "%2 %1", "%1", R"({"wordProcessor":"%2 %1","version":"%1"})");
    row("quotes", "W\"ord\\", "{}", R"({"wordProcessor":"W\"ord\\","version":"{}"})");
}

void DialogsTest::setWordProcessor()
{
    QFETCH(QString, processor);
    QFETCH(QString, version);
    QFETCH(QByteArray, request);
    fixture.server.expect("POST", "/wordProcessor/set", ScriptedReply::json("{}"));
    PluginComServer service;
    service.setWordProcessor(processor, version);
    const QByteArray body = fixture.server.requests().value(0).body;
    QVERIFY2(isSameJson(body, request), body);
    QCOMPARE(service.lastError(), QString());
}

void DialogsTest::silentOperationsOnFailure_data()
{
    QTest::addColumn<Outcome>("outcome");
    for (const Outcome& outcome : failures("{}")) {
        QTest::newRow(outcome.name) << outcome;
    }
}

void DialogsTest::silentOperationsOnFailure()
{
    QFETCH(Outcome, outcome);
    fixture.server.expect("POST", "/allowSetFocus", outcome.reply);
    fixture.server.expect("POST", "/wordProcessor/set", outcome.reply);
    PluginComServer focus;
    focus.allowSetFocus(1);
    QVERIFY2(outcome.explains(focus.lastError()), qPrintable(focus.lastError()));
    PluginComServer processor;
    processor.setWordProcessor(QStringLiteral("w"), QStringLiteral("1"));
    QVERIFY2(outcome.explains(processor.lastError()), qPrintable(processor.lastError()));
}

void DialogsTest::silentOperationsNoServer()
{
    fixture.useNoServer();
    PluginComServer focus;
    PluginComServer processor;
    fixture.useScriptedServer();
    focus.allowSetFocus(1);
    QVERIFY(isRefusal(focus.lastError()));
    processor.setWordProcessor(QStringLiteral("w"), QStringLiteral("1"));
    QVERIFY(isRefusal(processor.lastError()));
}

QTEST_GUILESS_MAIN(DialogsTest)
#include "tst_plugincomserver_dialogs.moc"
