#include "tests/service/Operations.h"
#include "tests/service/ServiceFixture.h"

#include <QtTest>

#include <unistd.h>

/// Calls through the meta-object.
class MetaCallTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void callWithoutResultSlot_data();
    void callWithoutResultSlot();
    void callWithResultSlot();
    void callWithOutputLists();
    void callByName();
    void indexAfterInvoke_data();
    void indexAfterInvoke();
    void indexAfterArgumentTypes_data();
    void indexAfterArgumentTypes();
    void otherKindsOfCalls_data();
    void otherKindsOfCalls();

private:
    ServiceFixture fixture;
};

void MetaCallTest::init()
{
    fixture.server.reset();
}

void MetaCallTest::cleanup()
{
    QCOMPARE(fixture.server.problem(), QString());
}

void MetaCallTest::callWithoutResultSlot_data()
{
    QTest::addColumn<int>("index");
    for (int i = 0; i < operationCount; ++i) {
        QTest::newRow(operations[i].name) << i;
    }
}

void MetaCallTest::callWithoutResultSlot()
{
    QFETCH(int, index);
    const Operation& expected = operations[index];
    if (*expected.path != '\0') {
        fixture.server.expect(expected.method, expected.path,
            ScriptedReply::json("{\"processId\":" + QByteArray::number(getpid()) + "}"));
    }
    if (qstrcmp(expected.name, "formatCitationsAndBibliography") == 0) {
        QTest::ignoreMessage(QtWarningMsg, "No formatted bibliography returned");
    }
    PluginComServer service;
    QString text;
    QString secondText;
    QStringList list;
    QStringList secondList;
    int number = 0;
    void* arguments[] = {nullptr, nullptr, nullptr};
    const QList<QByteArray> types = splitList(expected.parameterTypes);
    for (int i = 0; i < types.size(); ++i) {
        const bool first = i == 0;
        arguments[i + 1] = types.at(i) == "int" ? static_cast<void*>(&number)
            : types.at(i) == "QString"          ? static_cast<void*>(first ? &text : &secondText)
                                                : static_cast<void*>(first ? &list : &secondList);
    }
    service.qt_metacall(QMetaObject::InvokeMetaMethod, globalIndex(index), arguments);
    QVERIFY(arguments[0] == nullptr);
    QCOMPARE(fixture.server.requests().size(), *expected.path != '\0' ? 1 : 0);
}

void MetaCallTest::callWithResultSlot()
{
    fixture.server.expect("POST", "/testMethods/citationCluster/getFromUuid",
        ScriptedReply::json(R"({"citationCluster":{"id":"x"}})"));
    PluginComServer service;
    QString uuid = QStringLiteral("the uuid");
    QString result = QStringLiteral("former");
    void* arguments[] = {&result, &uuid};
    QCOMPARE(service.qt_metacall(QMetaObject::InvokeMetaMethod, globalIndex(4), arguments), 4 - 30);
    QCOMPARE(result, QStringLiteral("ADDIN CSL_CITATION {\"id\":\"x\"}"));
    QCOMPARE(fixture.server.requests().value(0).json().value(QStringLiteral("documentUuid")),
        QVariant(uuid));

    // An operation without a result leaves the slot alone.
    void* setter[] = {&result, &uuid};
    service.qt_metacall(QMetaObject::InvokeMetaMethod, globalIndex(11), setter);
    QCOMPARE(service.getCitationStyleId(), uuid);
    QCOMPARE(result, QStringLiteral("ADDIN CSL_CITATION {\"id\":\"x\"}"));
}

void MetaCallTest::callWithOutputLists()
{
    fixture.server.expect("GET", "/citationStyles/default",
        ScriptedReply::json(R"({"citationStyles":[{"url":"u","title":"t"}]})"));
    PluginComServer service;
    QStringList ids{QStringLiteral("former")};
    QStringList names;
    int count = -1;
    QVERIFY(QMetaObject::invokeMethod(&service, "getRecentStyles", Q_RETURN_ARG(int, count),
        Q_ARG(QStringList&, ids), Q_ARG(QStringList&, names)));
    QCOMPARE(count, 1);
    QCOMPARE(ids, QStringList{QStringLiteral("u")});
    QCOMPARE(names, QStringList{QStringLiteral("t")});
}

void MetaCallTest::callByName()
{
    PluginComServer service;
    QString version;
    QVERIFY(QMetaObject::invokeMethod(&service, "pluginVersion", Q_RETURN_ARG(QString, version)));
    QCOMPARE(version, QStringLiteral("1.0"));

    fixture.server.expect("POST", "/allowSetFocus", ScriptedReply::json("{}"));
    QVERIFY(QMetaObject::invokeMethod(&service, "allowSetFocus", Q_ARG(int, 7)));
    QVERIFY(isSameJson(fixture.server.requests().value(0).body, R"({"processId":7})"));
}

void MetaCallTest::indexAfterInvoke_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("expected");
    const int offset = meta().methodOffset();
    QTest::newRow("first operation") << offset << -30;
    QTest::newRow("last operation") << offset + 29 << -1;
    QTest::newRow("one behind the last") << offset + 30 << 0;
    QTest::newRow("far behind the last") << offset + 130 << 100;
    // What the base class answered is returned as it is.
    const int ofBaseClass = meta().indexOfMethod("objectNameChanged(QString)");
    QTest::newRow("method of the base class") << ofBaseClass << ofBaseClass - offset;
    QTest::newRow("negative") << -1 << -1;
}

void MetaCallTest::indexAfterInvoke()
{
    QFETCH(int, index);
    QFETCH(int, expected);
    PluginComServer service;
    QString argument = QStringLiteral("x");
    void* arguments[] = {nullptr, &argument};
    QCOMPARE(service.qt_metacall(QMetaObject::InvokeMetaMethod, index, arguments), expected);
    QCOMPARE(service.getCitationStyleId(), QString());
}

void MetaCallTest::indexAfterArgumentTypes_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("expectedIndex");
    QTest::addColumn<int>("expectedType");
    const int offset = meta().methodOffset();
    QTest::newRow("first operation") << offset << -30 << -1;
    QTest::newRow("operation with output lists") << offset + 10 << -20 << -1;
    QTest::newRow("last operation") << offset + 29 << -1 << -1;
    QTest::newRow("one behind the last") << offset + 30 << 0 << 99;
    QTest::newRow("far behind the last") << offset + 40 << 10 << 99;
}

void MetaCallTest::indexAfterArgumentTypes()
{
    QFETCH(int, index);
    QFETCH(int, expectedIndex);
    QFETCH(int, expectedType);
    PluginComServer service;
    int type = 99;
    int argumentIndex = 0;
    void* arguments[] = {&type, &argumentIndex};
    QCOMPARE(service.qt_metacall(QMetaObject::RegisterMethodArgumentMetaType, index, arguments),
        expectedIndex);
    QCOMPARE(type, expectedType);
}

void MetaCallTest::otherKindsOfCalls_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("baseCount"); // by how much the base class lowers the index
    QTest::newRow("CreateInstance") << int(QMetaObject::CreateInstance) << 0;
    QTest::newRow("IndexOfMethod") << int(QMetaObject::IndexOfMethod) << 0;
    QTest::newRow("ReadProperty") << int(QMetaObject::ReadProperty) << 1;
    QTest::newRow("WriteProperty") << int(QMetaObject::WriteProperty) << 1;
    QTest::newRow("ResetProperty") << int(QMetaObject::ResetProperty) << 1;
    QTest::newRow("QueryPropertyStored") << int(QMetaObject::QueryPropertyStored) << 1;
    QTest::newRow("RegisterPropertyMetaType") << int(QMetaObject::RegisterPropertyMetaType) << 1;
}

void MetaCallTest::otherKindsOfCalls()
{
    QFETCH(int, kind);
    QFETCH(int, baseCount);
    PluginComServer service;
    QString result = QStringLiteral("former");
    QString argument = QStringLiteral("style");
    void* arguments[] = {&result, &argument};
    for (int index : {11, 29, 50}) {
        QCOMPARE(service.qt_metacall(QMetaObject::Call(kind), index + baseCount, arguments), index);
    }
    QCOMPARE(result, QStringLiteral("former"));
    QCOMPARE(service.getCitationStyleId(), QString());
}

QTEST_GUILESS_MAIN(MetaCallTest)
#include "tst_plugincomserver_metacall.moc"
