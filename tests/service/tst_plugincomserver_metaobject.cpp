#include "tests/service/BatchSupport.h"

#include <QMetaClassInfo>
#include <QMetaMethod>
#include <QPointer>
#include <QtTest>

namespace {

/// An operation as the meta-object describes it.
struct Operation {
    const char* result;
    const char* name;
    const char* parameterTypes; ///< joined with commas
    const char* parameterNames; ///< joined with commas
};

// In the order of the meta-object.
constexpr Operation operations[] = {
    {"QString", "pluginVersion", "", ""},
    {"QString", "lastError", "", ""},
    {"QString", "getCitationStyleFromDialog", "QString", "selectedStyleId"},
    {"QString", "getFieldCodeFromCitationEditor", "QString", "currentFieldCode"},
    {"QString", "getFieldCodeFromUuid", "QString", "uuid"},
    {"void", "allowSetFocus", "int", "processId"},
    {"QString", "mergeFields", "QStringList", "fieldCodes"},
    {"QString", "checkManualFormatAndGetFieldCode", "QString,QString",
        "fieldCode,formattedCitation"},
    {"QString", "undoManualFormat", "QString", "fieldCode"},
    {"void", "setWordProcessor", "QString,QString", "processor,version"},
    {"int", "getRecentStyles", "QStringList&,QStringList&", "styleIds,styleNames"},
    {"void", "setCitationStyle", "QString", "styleId"},
    {"QString", "getCitationStyleId", "", ""},
    {"QString", "getUserAccount", "", ""},
    {"QString", "getUserUuid", "", ""},
    {"void", "resetCitations", "", ""},
    {"void", "addCitation", "QString,QString", "fieldCode,formattedCitation"},
    {"bool", "formatCitationsAndBibliography", "", ""},
    {"QString", "getFormattedCitation", "int", "index"},
    {"QString", "getPlainTextFormattedCitation", "int", "index"},
    {"QString", "getPreviouslyFormattedCitation", "int", "index"},
    {"QString", "getFieldCode", "int", "index"},
    {"int", "lastErrorCitationIndex", "", ""},
    {"QString", "getFormattedBibliography", "", ""},
    {"bool", "launchTessaron", "", ""},
    {"bool", "isTessaronRunning", "", ""},
    {"int", "tessaronProcessId", "", ""},
    {"bool", "hasManualEdit", "QString", "fieldCode"},
    {"QString", "getDesktopCitationStyleId", "", ""},
    {"void", "setTempDirectory", "QString", "tempDir"},
};
constexpr int operationCount = 30;
static_assert(sizeof operations / sizeof *operations == operationCount);

const QMetaObject& meta()
{
    return PluginComServer::staticMetaObject;
}

QList<QByteArray> splitList(const char* joined)
{
    return *joined == '\0' ? QList<QByteArray>() : QByteArray(joined).split(',');
}

} // namespace

/// The description of the class in its meta-object, and the object as it is created.
class tst_PluginComServer_MetaObject : public ServiceTest {
    Q_OBJECT

private Q_SLOTS:
    void hasClassInformation();
    void hasOperation_data();
    void hasOperation();
    void hasNoOtherMembers();
    void castsByName();

    void startsEmpty();
    void isOwnedByItsParent();
    void storesStyle();
    void storesTemporaryFolderWithoutCreatingIt();
    void readsPortWhenCreated();
};

void tst_PluginComServer_MetaObject::hasClassInformation()
{
    QCOMPARE(meta().className(), "PluginComServer");
    QCOMPARE(meta().superClass(), &QObject::staticMetaObject);
    QCOMPARE(meta().classInfoCount() - meta().classInfoOffset(), 5);

    QStringList names;
    QStringList values;
    for (int i = meta().classInfoOffset(); i < meta().classInfoCount(); ++i) {
        names << QString::fromUtf8(meta().classInfo(i).name());
        values << QString::fromUtf8(meta().classInfo(i).value());
    }
    QCOMPARE(names,
        (QStringList{QStringLiteral("Version"), QStringLiteral("ClassID"),
            QStringLiteral("InterfaceID"), QStringLiteral("EventsID"),
            QStringLiteral("RegisterObject")}));
    QCOMPARE(values.first(), QStringLiteral("1.1"));
    QCOMPARE(values.last(), QStringLiteral("yes"));
    // Callers have registered these: they must never change.
    QCOMPARE(values.mid(1, 3),
        (QStringList{QStringLiteral("7D1F3C52-9A84-4E0B-8C6D-25B7E1A90F34"),
            QStringLiteral("B2E6A7D8-41C3-4F95-9E72-6C08D35F1BA1"),
            QStringLiteral("E95C0B16-78DA-4A2F-B3E1-F04D92C6578E")}));
}

void tst_PluginComServer_MetaObject::hasOperation_data()
{
    QTest::addColumn<int>("index");
    for (int i = 0; i < operationCount; ++i) {
        QTest::newRow(operations[i].name) << i;
    }
}

void tst_PluginComServer_MetaObject::hasOperation()
{
    QFETCH(int, index);
    const Operation& expected = operations[index];
    const QMetaMethod method = meta().method(meta().methodOffset() + index);
    QCOMPARE(
        method.methodSignature(), QByteArray(expected.name) + '(' + expected.parameterTypes + ')');
    QCOMPARE(method.typeName(), expected.result);
    QCOMPARE(method.parameterNames(), splitList(expected.parameterNames));
    QCOMPARE(method.methodType(), QMetaMethod::Slot);
    QCOMPARE(method.access(), QMetaMethod::Public);
}

void tst_PluginComServer_MetaObject::hasNoOtherMembers()
{
    QCOMPARE(meta().methodOffset(), QObject::staticMetaObject.methodCount());
    QCOMPARE(meta().methodCount() - meta().methodOffset(), operationCount);
    QCOMPARE(meta().propertyCount(), QObject::staticMetaObject.propertyCount());
    QCOMPARE(meta().enumeratorCount(), QObject::staticMetaObject.enumeratorCount());
    QCOMPARE(meta().constructorCount(), 0);
}

void tst_PluginComServer_MetaObject::castsByName()
{
    PluginComServer service;
    void* const object = &service;
    QCOMPARE(service.qt_metacast("PluginComServer"), object);
    QCOMPARE(service.qt_metacast("QObject"), object);
    QVERIFY(service.qt_metacast("PluginApiClient") == nullptr);
    QVERIFY(service.qt_metacast(nullptr) == nullptr);
}

void tst_PluginComServer_MetaObject::startsEmpty()
{
    PluginComServer service;
    QCoreApplication::processEvents();
    QCOMPARE(server.connectionCount(), 0);
    QVERIFY(service.parent() == nullptr);
    QCOMPARE(service.pluginVersion(), QStringLiteral("1.0"));
    QCOMPARE(service.lastError(), QString());
    QCOMPARE(service.getCitationStyleId(), QString());
    QCOMPARE(service.lastErrorCitationIndex(), -1);
    QCOMPARE(service.getFormattedBibliography(), QString());
}

void tst_PluginComServer_MetaObject::isOwnedByItsParent()
{
    QPointer<PluginComServer> service;
    {
        QObject parent;
        service = new PluginComServer(&parent);
        QCOMPARE(service->parent(), &parent);
    }
    QVERIFY(service.isNull());
}

void tst_PluginComServer_MetaObject::storesStyle()
{
    PluginComServer service;
    for (const QString& style :
        {QStringLiteral("%1"), QString(), QStringLiteral("a\u0001\n") + QChar(0)}) {
        service.setCitationStyle(style);
        QCOMPARE(service.getCitationStyleId(), style);
    }
    QCOMPARE(server.connectionCount(), 0);
}

void tst_PluginComServer_MetaObject::storesTemporaryFolderWithoutCreatingIt()
{
    PluginComServer service;
    const QString folder = home.path(QStringLiteral("missing"));
    service.setTempDirectory(folder);
    QCOMPARE(server.connectionCount(), 0);
    QVERIFY(format(server, service, 0, batchReply({})));
    QCOMPARE(
        server.requests().first().json().value(QStringLiteral("tempDirectory")), QVariant(folder));
    QVERIFY(!QFileInfo::exists(folder));
}

void tst_PluginComServer_MetaObject::readsPortWhenCreated()
{
    PluginComServer before;
    const auto withoutApplication = serviceWithoutApplication();
    server.expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u"})"));
    QCOMPARE(before.getUserUuid(), QStringLiteral("u"));
    withoutApplication->getUserUuid();
    QCOMPARE(withoutApplication->lastError(), QStringLiteral("Connection refused"));
}

QTEST_GUILESS_MAIN(tst_PluginComServer_MetaObject)
#include "tst_plugincomserver_metaobject.moc"
