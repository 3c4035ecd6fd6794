#include "service/DesktopApplication.h"
#include "service/PluginComServer.h"

#include "tests/service/ServiceFixture.h"
#include "tests/service/macos_standin/LaunchServices.h"

#include <QtTest>

#include <algorithm>
#include <iterator>
#include <unistd.h>

namespace {

const QByteArray findByPath = "FSPathMakeRef";
const QByteArray findById = "LSFindApplicationForInfo";
const QByteArray open = "LSOpenApplication";

bool openedWhatWasFound(UInt8 found)
{
    const auto& bytes = launchServices.application.hidden;
    return std::all_of(
        std::begin(bytes), std::end(bytes), [found](UInt8 byte) { return byte == found; });
}

} // namespace

class DesktopApplicationTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void foundByPath();
    void foundById();
    void parameters();
    void failure_data();
    void failure();

    void launchMessage_data();
    void launchMessage();
    void runningIsNotOpened();
    void launched();

private:
    ServiceFixture fixture;
};

void DesktopApplicationTest::init()
{
    fixture.server.reset();
    launchServices = LaunchServices();
}

void DesktopApplicationTest::cleanup()
{
    QCOMPARE(fixture.server.problem(), QString());
}

void DesktopApplicationTest::foundByPath()
{
    QCOMPARE(openDesktopApplication(), 0);
    QCOMPARE(launchServices.calls, (QByteArrayList{findByPath, open}));
    QCOMPARE(launchServices.path, QByteArray("/Applications/Tessaron Desktop.app"));
    QVERIFY(launchServices.pathRefWasZero);
    QVERIFY(!launchServices.directoryWasAsked);
    QVERIFY(openedWhatWasFound(::foundByPath));
}

void DesktopApplicationTest::foundById()
{
    launchServices.pathStatus = -43;
    QCOMPARE(openDesktopApplication(), 0);
    QCOMPARE(launchServices.calls, (QByteArrayList{findByPath, findById, open}));
    QCOMPARE(launchServices.creator, OSType(0));
    QCOMPARE(launchServices.bundleId, QByteArray("com.tessaron.desktop"));
    QVERIFY(!launchServices.nameWasGiven);
    QVERIFY(!launchServices.urlWasAsked);
    QVERIFY(launchServices.findRefWasZero);
    QVERIFY(openedWhatWasFound(::foundById));
}

void DesktopApplicationTest::parameters()
{
    QCOMPARE(openDesktopApplication(), 0);
    const LSApplicationParameters& given = launchServices.parameters;
    QCOMPARE(given.version, CFIndex(0));
    QCOMPARE(given.flags, LSLaunchFlags(0x00120B00));
    QVERIFY(given.asyncLaunchRefCon == nullptr);
    QVERIFY(given.environment == nullptr);
    QVERIFY(given.argv == nullptr);
    QVERIFY(given.initialEvent == nullptr);
    QVERIFY(!launchServices.serialNumberWasAsked);
}

void DesktopApplicationTest::failure_data()
{
    QTest::addColumn<int>("pathStatus");
    QTest::addColumn<int>("findStatus");
    QTest::addColumn<int>("openStatus");
    QTest::addColumn<int>("number");
    QTest::addColumn<QByteArrayList>("calls");

    const QByteArrayList openedByPath{findByPath, open};
    const QByteArrayList openedById{findByPath, findById, open};
    const QByteArrayList notOpened{findByPath, findById};
    QTest::newRow("not found") << -43 << -10814 << 0 << -10814 << notOpened;
    QTest::newRow("path without permission") << -5000 << -10814 << 0 << -10814 << notOpened;
    QTest::newRow("lookup fails otherwise") << -43 << -600 << 0 << -600 << notOpened;
    QTest::newRow("positive status of the path") << 1 << -10814 << 0 << -10814 << notOpened;
    QTest::newRow("positive status of the lookup") << -43 << 7 << 0 << 7 << notOpened;
    QTest::newRow("neither, and it would open") << -35 << -50 << 0 << -50 << notOpened;
    QTest::newRow("launch refused, by path") << 0 << -10814 << -10810 << -10810 << openedByPath;
    QTest::newRow("launch refused, by id") << -43 << 0 << -10827 << -10827 << openedById;
    QTest::newRow("positive status of the launch") << 0 << 0 << 5 << 5 << openedByPath;
}

void DesktopApplicationTest::failure()
{
    QFETCH(int, pathStatus);
    QFETCH(int, findStatus);
    QFETCH(int, openStatus);
    QFETCH(int, number);
    QFETCH(QByteArrayList, calls);
    launchServices.pathStatus = pathStatus;
    launchServices.findStatus = findStatus;
    launchServices.openStatus = openStatus;
    QCOMPARE(openDesktopApplication(), number);
    QCOMPARE(launchServices.calls, calls);
}

// Through the service

void DesktopApplicationTest::launchMessage_data()
{
    failure_data();
}

void DesktopApplicationTest::launchMessage()
{
    QFETCH(int, pathStatus);
    QFETCH(int, findStatus);
    QFETCH(int, openStatus);
    QFETCH(int, number);
    QFETCH(QByteArrayList, calls);
    launchServices.pathStatus = pathStatus;
    launchServices.findStatus = findStatus;
    launchServices.openStatus = openStatus;
    fixture.server.expect("GET", "/tessaronDesktopInfo", ScriptedReply::json("", 404));
    PluginComServer service;
    QVERIFY(!service.launchTessaron());
    QCOMPARE(service.lastError(),
        QStringLiteral("Unable to start Tessaron Desktop: ") + QString::number(number));
    QCOMPARE(launchServices.calls, calls);
}

void DesktopApplicationTest::runningIsNotOpened()
{
    fixture.server.expect("GET", "/tessaronDesktopInfo",
        ScriptedReply::json("{\"processId\":" + QByteArray::number(getpid()) + '}'));
    PluginComServer service;
    QVERIFY(service.launchTessaron());
    QCOMPARE(launchServices.calls, QByteArrayList());
}

void DesktopApplicationTest::launched()
{
    // Installed elsewhere than at the fixed path.
    launchServices.pathStatus = -43;
    fixture.server.expect("GET", "/tessaronDesktopInfo", ScriptedReply::json("", 404));
    fixture.server.expect("GET", "/tessaronDesktopInfo",
        ScriptedReply::json("{\"processId\":" + QByteArray::number(getpid()) + '}'));
    PluginComServer service;
    QVERIFY(service.launchTessaron());
    QCOMPARE(launchServices.calls, (QByteArrayList{findByPath, findById, open}));
    QVERIFY(openedWhatWasFound(::foundById));
    QCOMPARE(service.tessaronProcessId(), int(getpid()));
}

QTEST_GUILESS_MAIN(DesktopApplicationTest)
#include "tst_desktopapplication_mac.moc"
