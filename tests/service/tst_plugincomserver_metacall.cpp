#include "tests/service/ServiceTest.h"

#include <QtTest>

namespace {

constexpr int getFieldCodeFromUuid = 4;
constexpr int getRecentStyles = 10;
constexpr int setCitationStyle = 11;
constexpr int lastOperation = 29;
constexpr int operationCount = 30;

int methodIndex(int operation)
{
    return PluginComServer::staticMetaObject.methodOffset() + operation;
}

} // namespace

// `unregistered` is what RegisterMethodArgumentMetaType stores for a type that is not registered.
// `untouched` is a value that no call stores. `lastPropertyCall` is the last property-related call,
// which differs between Qt 5 and Qt 6.
#if QT_VERSION_MAJOR < 6
using ArgumentType = int;
constexpr int unregistered = -1;
constexpr int untouched = 99;
constexpr auto lastPropertyCall = QMetaObject::QueryPropertyStored;
#else
using ArgumentType = QMetaType;
const QMetaType unregistered;
const QMetaType untouched(QMetaType::QUuid);
constexpr auto lastPropertyCall = QMetaObject::BindableProperty;
#endif

/// Calls through the meta-object.
class tst_PluginComServer_MetaCall : public ServiceTest {
    Q_OBJECT

private Q_SLOTS:
    void writesResult();
    void runsWithoutResultPointer();
    void keepsResultSlotIfOperationHasNoResult();
    void fillsOutputLists();
    void runsByName();
    void returnsRemainingIndexAfterInvocation_data();
    void returnsRemainingIndexAfterInvocation();
    void registersNoArgumentTypes_data();
    void registersNoArgumentTypes();
    void ignoresOtherKindsOfCalls_data();
    void ignoresOtherKindsOfCalls();
};

void tst_PluginComServer_MetaCall::writesResult()
{
    server.expect("POST", "/testMethods/citationCluster/getFromUuid",
        ScriptedReply::json(R"({"citationCluster":{"id":"x"}})"));
    PluginComServer service;
    QString uuid = QStringLiteral("the uuid");
    QString result = QStringLiteral("former");
    void* arguments[] = {&result, &uuid};
    QCOMPARE(service.qt_metacall(
                 QMetaObject::InvokeMetaMethod, methodIndex(getFieldCodeFromUuid), arguments),
        getFieldCodeFromUuid - operationCount);
    QCOMPARE(result, QStringLiteral("ADDIN CSL_CITATION {\"id\":\"x\"}"));
    QVERIFY(isSameJson(server.requests().value(0).body, R"({"documentUuid":"the uuid"})"));
}

void tst_PluginComServer_MetaCall::runsWithoutResultPointer()
{
    server.expect("POST", "/testMethods/citationCluster/getFromUuid", ScriptedReply::json("{}"));
    PluginComServer service;
    QString uuid = QStringLiteral("the uuid");
    void* arguments[] = {nullptr, &uuid};
    service.qt_metacall(
        QMetaObject::InvokeMetaMethod, methodIndex(getFieldCodeFromUuid), arguments);
    QVERIFY(isSameJson(server.requests().value(0).body, R"({"documentUuid":"the uuid"})"));
}

void tst_PluginComServer_MetaCall::keepsResultSlotIfOperationHasNoResult()
{
    PluginComServer service;
    QString style = QStringLiteral("the style");
    QString result = QStringLiteral("former");
    void* arguments[] = {&result, &style};
    service.qt_metacall(QMetaObject::InvokeMetaMethod, methodIndex(setCitationStyle), arguments);
    QCOMPARE(service.getCitationStyleId(), style);
    QCOMPARE(result, QStringLiteral("former"));
}

void tst_PluginComServer_MetaCall::fillsOutputLists()
{
    server.expect("GET", "/citationStyles/default",
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

void tst_PluginComServer_MetaCall::runsByName()
{
    server.expect("POST", "/allowSetFocus", ScriptedReply::json("{}"));
    PluginComServer service;
    QVERIFY(QMetaObject::invokeMethod(&service, "allowSetFocus", Q_ARG(int, 7)));
    QVERIFY(isSameJson(server.requests().value(0).body, R"({"processId":7})"));
}

void tst_PluginComServer_MetaCall::returnsRemainingIndexAfterInvocation_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("remaining");
    QTest::newRow("first operation") << methodIndex(0) << -operationCount;
    QTest::newRow("last operation") << methodIndex(lastOperation) << -1;
    QTest::newRow("one after the last operation") << methodIndex(operationCount) << 0;
    const int inherited =
        PluginComServer::staticMetaObject.indexOfMethod("objectNameChanged(QString)");
    QTest::newRow("method of the base class") << inherited << inherited - methodIndex(0);
}

void tst_PluginComServer_MetaCall::returnsRemainingIndexAfterInvocation()
{
    QFETCH(int, index);
    QFETCH(int, remaining);
    PluginComServer service;
    QString argument = QStringLiteral("x");
    void* arguments[] = {nullptr, &argument};
    QCOMPARE(service.qt_metacall(QMetaObject::InvokeMetaMethod, index, arguments), remaining);
    QCOMPARE(service.getCitationStyleId(), QString());
}

void tst_PluginComServer_MetaCall::registersNoArgumentTypes_data()
{
    QTest::addColumn<int>("operation");
    QTest::addColumn<bool>("isOperation");
    QTest::newRow("operation with output lists") << getRecentStyles << true;
    QTest::newRow("last operation") << lastOperation << true;
    QTest::newRow("one after the last operation") << operationCount << false;
}

void tst_PluginComServer_MetaCall::registersNoArgumentTypes()
{
    QFETCH(int, operation);
    QFETCH(bool, isOperation);
    PluginComServer service;
    ArgumentType type = untouched;
    int argumentIndex = 0;
    void* arguments[] = {&type, &argumentIndex};
    QCOMPARE(service.qt_metacall(
                 QMetaObject::RegisterMethodArgumentMetaType, methodIndex(operation), arguments),
        operation - operationCount);
    QVERIFY(type == (isOperation ? unregistered : untouched));
}

void tst_PluginComServer_MetaCall::ignoresOtherKindsOfCalls_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("subtracted"); // from the index, by the base class QObject
    QTest::newRow("CreateInstance") << int(QMetaObject::CreateInstance) << 0;
    QTest::newRow("IndexOfMethod") << int(QMetaObject::IndexOfMethod) << 0;
    QTest::newRow("ReadProperty") << int(QMetaObject::ReadProperty) << 1;
    QTest::newRow("WriteProperty") << int(QMetaObject::WriteProperty) << 1;
    QTest::newRow("last property-related call") << int(lastPropertyCall) << 1;
}

void tst_PluginComServer_MetaCall::ignoresOtherKindsOfCalls()
{
    QFETCH(int, kind);
    QFETCH(int, subtracted);
    PluginComServer service;
    QString result = QStringLiteral("former");
    QString argument = QStringLiteral("style");
    void* arguments[] = {&result, &argument};
    QCOMPARE(service.qt_metacall(QMetaObject::Call(kind), setCitationStyle + subtracted, arguments),
        setCitationStyle);
    QCOMPARE(result, QStringLiteral("former"));
    QCOMPARE(service.getCitationStyleId(), QString());
}

QTEST_GUILESS_MAIN(tst_PluginComServer_MetaCall)
#include "tst_plugincomserver_metacall.moc"
