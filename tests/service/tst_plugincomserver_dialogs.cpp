#include "tests/service/ServiceTest.h"

#include <QtTest>

/// The style dialog, and the operations that prepare the application for a dialog.
class tst_PluginComServer_Dialogs : public ServiceTest {
    Q_OBJECT

private Q_SLOTS:
    void styleDialogReturnsChosenStyle_data();
    void styleDialogReturnsChosenStyle();
    void styleDialogReturnsStyleOfFailedReplyToo_data();
    void styleDialogReturnsStyleOfFailedReplyToo();
    void styleDialogDoesNotStoreStyle();

    void sendsProcessId_data();
    void sendsProcessId();
    void sendsWordProcessor_data();
    void sendsWordProcessor();
    void reportsFailuresInLastErrorOnly_data();
    void reportsFailuresInLastErrorOnly();
};

void tst_PluginComServer_Dialogs::styleDialogReturnsChosenStyle_data()
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
    row("another style", "http://example.org/%1", R"({"currentStyleUrl":"http://example.org/%1"})",
        R"({"citationStyleUrl":"http://example.org/b %2"})", "http://example.org/b %2");
    row("no style selected before", "", R"({"currentStyleUrl":""})", R"({"citationStyleUrl":"b"})",
        "b");
    row("number", "a", R"({"currentStyleUrl":"a"})", R"({"citationStyleUrl":42})", "42");
    row("object", "a", R"({"currentStyleUrl":"a"})", R"({"citationStyleUrl":{"url":"b"}})", "");
    row("cancelled", "a", R"({"currentStyleUrl":"a"})", R"({"currentStyleUrl":"a"})", "");
}

void tst_PluginComServer_Dialogs::styleDialogReturnsChosenStyle()
{
    QFETCH(QString, selected);
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, reply);
    QFETCH(QString, expected);
    server.expect("POST", "/citationStyle/choose/interactive", ScriptedReply::json(reply));
    PluginComServer service;
    QCOMPARE(service.getCitationStyleFromDialog(selected), expected);
    const QByteArray body = server.requests().value(0).body;
    QVERIFY2(isSameJson(body, request), body);
    QCOMPARE(service.lastError(), QString());
}

void tst_PluginComServer_Dialogs::styleDialogReturnsStyleOfFailedReplyToo_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("expected");
    QTest::newRow("style") << QByteArray(R"({"citationStyleUrl":"b","error":"x"})")
                           << QStringLiteral("b");
    QTest::newRow("no style") << QByteArray(R"({"error":"x"})") << QString();
}

void tst_PluginComServer_Dialogs::styleDialogReturnsStyleOfFailedReplyToo()
{
    QFETCH(QByteArray, reply);
    QFETCH(QString, expected);
    server.expect("POST", "/citationStyle/choose/interactive", ScriptedReply::json(reply, 500));
    PluginComServer service;
    QCOMPARE(service.getCitationStyleFromDialog(QStringLiteral("a")), expected);
    QCOMPARE(service.lastError(), QStringLiteral("x"));
}

void tst_PluginComServer_Dialogs::styleDialogDoesNotStoreStyle()
{
    server.expect("POST", "/citationStyle/choose/interactive",
        ScriptedReply::json(R"({"citationStyleUrl":"b"})"));
    PluginComServer service;
    service.setCitationStyle(QStringLiteral("mine"));
    QCOMPARE(service.getCitationStyleFromDialog(QStringLiteral("a")), QStringLiteral("b"));
    QCOMPARE(service.getCitationStyleId(), QStringLiteral("mine"));
}

void tst_PluginComServer_Dialogs::sendsProcessId_data()
{
    QTest::addColumn<int>("processId");
    QTest::addColumn<QByteArray>("request");
    QTest::newRow("zero") << 0 << QByteArray(R"({"processId":0})");
    QTest::newRow("smallest") << -2147483647 - 1 << QByteArray(R"({"processId":-2147483648})");
    QTest::newRow("largest") << 2147483647 << QByteArray(R"({"processId":2147483647})");
}

void tst_PluginComServer_Dialogs::sendsProcessId()
{
    QFETCH(int, processId);
    QFETCH(QByteArray, request);
    server.expect("POST", "/allowSetFocus", ScriptedReply::json("{}"));
    PluginComServer service;
    service.allowSetFocus(processId);
    const QByteArray body = server.requests().value(0).body;
    QVERIFY2(isSameJson(body, request), body);
    QCOMPARE(service.lastError(), QString());
}

void tst_PluginComServer_Dialogs::sendsWordProcessor_data()
{
    QTest::addColumn<QString>("processor");
    QTest::addColumn<QString>("version");
    QTest::addColumn<QByteArray>("request");
    QTest::newRow("version that is a number")
        << QStringLiteral("%2 W\"ord\\") << QStringLiteral("16")
        << QByteArray(R"({"wordProcessor":"%2 W\"ord\\","version":"16"})");
    QTest::newRow("empty") << QString() << QString()
                           << QByteArray(R"({"wordProcessor":"","version":""})");
}

void tst_PluginComServer_Dialogs::sendsWordProcessor()
{
    QFETCH(QString, processor);
    QFETCH(QString, version);
    QFETCH(QByteArray, request);
    server.expect("POST", "/wordProcessor/set", ScriptedReply::json("{}"));
    PluginComServer service;
    service.setWordProcessor(processor, version);
    const QByteArray body = server.requests().value(0).body;
    QVERIFY2(isSameJson(body, request), body);
    QCOMPARE(service.lastError(), QString());
}

void tst_PluginComServer_Dialogs::reportsFailuresInLastErrorOnly_data()
{
    addFailedReplies("{}");
}

void tst_PluginComServer_Dialogs::reportsFailuresInLastErrorOnly()
{
    QFETCH(FailedReply, failure);
    server.expect("POST", "/allowSetFocus", failure.reply);
    PluginComServer focus;
    focus.allowSetFocus(1);
    QCOMPARE(focus.lastError(), failure.error);

    server.expect("POST", "/wordProcessor/set", failure.reply);
    PluginComServer processor;
    processor.setWordProcessor(QStringLiteral("w"), QStringLiteral("1"));
    QCOMPARE(processor.lastError(), failure.error);
}

QTEST_GUILESS_MAIN(tst_PluginComServer_Dialogs)
#include "tst_plugincomserver_dialogs.moc"
