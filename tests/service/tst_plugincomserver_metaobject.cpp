#include "tests/service/Operations.h"
#include "tests/service/ServiceFixture.h"

#include <QMetaClassInfo>
#include <QMetaMethod>
#include <QPointer>
#include <QRegularExpression>
#include <QSet>
#include <QtTest>

/// What the meta-object tells, and the object as it is made.
class MetaObjectTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void classInformation();
    void operation_data();
    void operation();
    void nothingButOperations();
    void signatureLookup_data();
    void signatureLookup();
    void castByName_data();
    void castByName();
    void freshObject();
    void constructionSendsNothing();
    void parentOwnsTheObject();
    void accessors_data();
    void accessors();
    void temporaryFolderIsNotMade();
    void portIsReadOncePerObject();

private:
    ServiceFixture fixture;
};

void MetaObjectTest::init()
{
    fixture.server.reset();
}

void MetaObjectTest::cleanup()
{
    QCOMPARE(fixture.server.problem(), QString());
}

void MetaObjectTest::classInformation()
{
    QCOMPARE(meta().className(), "PluginComServer");
    QCOMPARE(meta().superClass(), &QObject::staticMetaObject);
    QCOMPARE(meta().classInfoCount() - meta().classInfoOffset(), 5);

    const QRegularExpression guid(
        QStringLiteral("\\A[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}\\z"));
    const char* const names[] = {"Version", "ClassID", "InterfaceID", "EventsID", "RegisterObject"};
    QSet<QString> guids;
    for (int i = 0; i < 5; ++i) {
        const QMetaClassInfo info = meta().classInfo(meta().classInfoOffset() + i);
        QCOMPARE(info.name(), names[i]);
        if (i >= 1 && i <= 3) {
            const QString value = QString::fromUtf8(info.value());
            QVERIFY2(guid.match(value).hasMatch(), info.value());
            guids.insert(value);
        }
    }
    QCOMPARE(guids.size(), 3);
    QCOMPARE(meta().classInfo(meta().classInfoOffset()).value(), "1.1");
    QCOMPARE(meta().classInfo(meta().classInfoOffset() + 4).value(), "yes");
}

void MetaObjectTest::operation_data()
{
    QTest::addColumn<int>("index");
    for (int i = 0; i < operationCount; ++i) {
        QTest::newRow(operations[i].name) << i;
    }
}

void MetaObjectTest::operation()
{
    QFETCH(int, index);
    const Operation& expected = operations[index];
    const QMetaMethod method = meta().method(globalIndex(index));
    QCOMPARE(method.name(), QByteArray(expected.name));
    QCOMPARE(method.typeName(), expected.result);
    QCOMPARE(method.parameterTypes(), splitList(expected.parameterTypes));
    QCOMPARE(method.parameterNames(), splitList(expected.parameterNames));
    QCOMPARE(
        method.methodSignature(), QByteArray(expected.name) + '(' + expected.parameterTypes + ')');
    QCOMPARE(method.methodType(), QMetaMethod::Slot);
    QCOMPARE(method.access(), QMetaMethod::Public);
    QCOMPARE(method.tag(), "");
    QCOMPARE(method.revision(), 0);
    QCOMPARE(method.attributes(), 0);
}

void MetaObjectTest::nothingButOperations()
{
    QCOMPARE(meta().methodOffset(), QObject::staticMetaObject.methodCount());
    QCOMPARE(meta().methodCount() - meta().methodOffset(), operationCount);
    QCOMPARE(meta().propertyCount(), QObject::staticMetaObject.propertyCount());
    QCOMPARE(meta().enumeratorCount(), QObject::staticMetaObject.enumeratorCount());
    QCOMPARE(meta().constructorCount(), 0);
}

void MetaObjectTest::signatureLookup_data()
{
    QTest::addColumn<QByteArray>("signature");
    QTest::addColumn<int>("localIndex");

    const auto row = [](const char* signature, int localIndex) {
        QTest::newRow(signature) << QByteArray(signature) << localIndex;
    };
    row("pluginVersion()", 0);
    row("setTempDirectory(QString)", 29);
    row("getRecentStyles(QStringList&,QStringList&)", 10);

    row("getRecentStyles(QStringList,QStringList)", -1);
    row("getRecentStyles(QStringList&,QStringList)", -1);
    row("getRecentStyles(QStringList*,QStringList*)", -1);
    row("getRecentStyles()", -1);
    row("getRecentStyles(QStringList&)", -1);
    row("pluginVersion(QString)", -1);
    row("pluginversion()", -1);
    row("pluginVersion", -1);
    row("setTempDirectory()", -1);
    row("setTempDirectory(QString&)", -1);
    row("setTempDirectory(QString,QString)", -1);
    row("allowSetFocus(qint64)", -1);
    row("mergeFields(QString)", -1);
    row("addCitation(QString)", -1);
    row("batchRequest()", -1);
    row("", -1);
}

void MetaObjectTest::signatureLookup()
{
    QFETCH(QByteArray, signature);
    QFETCH(int, localIndex);
    QCOMPARE(meta().indexOfMethod(signature), localIndex < 0 ? -1 : globalIndex(localIndex));
    QCOMPARE(meta().indexOfSlot(signature), localIndex < 0 ? -1 : globalIndex(localIndex));
}

void MetaObjectTest::castByName_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<bool>("found");

    QTest::newRow("own name") << QByteArray("PluginComServer") << true;
    QTest::newRow("base class") << QByteArray("QObject") << true;
    QTest::newRow("null") << QByteArray() << false;
    QTest::newRow("empty") << QByteArray("") << false;
    QTest::newRow("another case") << QByteArray("plugincomserver") << false;
    QTest::newRow("longer") << QByteArray("PluginComServer2") << false;
    QTest::newRow("shorter") << QByteArray("PluginComServe") << false;
    QTest::newRow("another class") << QByteArray("PluginApiClient") << false;
}

void MetaObjectTest::castByName()
{
    QFETCH(QByteArray, name);
    QFETCH(bool, found);
    PluginComServer service;
    void* const expected = found ? &service : nullptr;
    QCOMPARE(service.qt_metacast(name.isNull() ? nullptr : name.constData()), expected);
}

void MetaObjectTest::freshObject()
{
    PluginComServer service;
    QVERIFY(service.parent() == nullptr);
    QCOMPARE(service.pluginVersion(), QStringLiteral("1.0"));
    QCOMPARE(service.lastError(), QString());
    QCOMPARE(service.getCitationStyleId(), QString());
    QCOMPARE(service.lastErrorCitationIndex(), -1);
    QCOMPARE(service.getFormattedBibliography(), QString());
    QCOMPARE(service.getFieldCode(0), QStringLiteral("invalid_index"));
    QCOMPARE(service.getFormattedCitation(0), QStringLiteral("no such citation"));
}

void MetaObjectTest::constructionSendsNothing()
{
    {
        const PluginComServer service;
        QCoreApplication::processEvents();
    }
    QCoreApplication::processEvents();
    QCOMPARE(fixture.server.connectionCount(), 0);
}

void MetaObjectTest::parentOwnsTheObject()
{
    QPointer<PluginComServer> service;
    {
        QObject owner;
        service = new PluginComServer(&owner);
        QCOMPARE(service->parent(), &owner);
    }
    QVERIFY(service.isNull());
}

void MetaObjectTest::accessors_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("URL") << QStringLiteral("http://example.org/styles/author-date");
    QTest::newRow("empty") << QStringLiteral("");
    QTest::newRow("null") << QString();
    QTest::newRow("blanks") << QStringLiteral("  ");
    QTest::newRow("placeholders") << QStringLiteral("%1 %2");
    QTest::newRow("control characters") << QStringLiteral("a\u0001\n") + QChar(0);
}

void MetaObjectTest::accessors()
{
    QFETCH(QString, text);
    PluginComServer service;
    service.setCitationStyle(QStringLiteral("former"));
    service.setCitationStyle(text);
    QCOMPARE(service.getCitationStyleId(), text);
    QCOMPARE(service.lastError(), QString());
    QCOMPARE(fixture.server.connectionCount(), 0);
}

void MetaObjectTest::temporaryFolderIsNotMade()
{
    PluginComServer service;
    const QString folder = fixture.home.path(QStringLiteral("not there"));
    service.setTempDirectory(folder);
    QVERIFY(!QFileInfo::exists(folder));
    QCOMPARE(fixture.server.connectionCount(), 0);
}

void MetaObjectTest::portIsReadOncePerObject()
{
    PluginComServer before;
    fixture.useNoServer();
    PluginComServer after;
    fixture.useScriptedServer();
    fixture.server.expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u"})"));
    QCOMPARE(before.getUserUuid(), QStringLiteral("u"));
    QVERIFY(after.getUserUuid().startsWith(QStringLiteral("Unable to retrieve uuid - error: 0.")));
}

QTEST_GUILESS_MAIN(MetaObjectTest)
#include "tst_plugincomserver_metaobject.moc"
