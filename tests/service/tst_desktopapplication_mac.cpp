#include "service/DesktopApplication.h"

#include "tests/service/macos_standin/LaunchServices.h"

#include <QtTest>

#include <algorithm>
#include <iterator>

namespace {

const QByteArray findByPath = "FSPathMakeRef";
const QByteArray findById = "LSFindApplicationForInfo";
const QByteArray open = "LSOpenApplication";

/// Whether the opened application is the one whose FSRef the stand-in filled with `found`.
bool hasOpened(UInt8 found)
{
    const auto& bytes = launchServices.application.hidden;
    return std::all_of(
        std::begin(bytes), std::end(bytes), [found](UInt8 byte) { return byte == found; });
}

} // namespace

class tst_DesktopApplication_Mac : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();

    void opensApplicationAtFixedPath();
    void opensApplicationFoundByIdentifier();
    void passesLaunchParameters();
    void returnsStatusOfFailedCall_data();
    void returnsStatusOfFailedCall();
};

void tst_DesktopApplication_Mac::init()
{
    launchServices = LaunchServices();
}

void tst_DesktopApplication_Mac::opensApplicationAtFixedPath()
{
    QCOMPARE(openDesktopApplication(), 0);
    QCOMPARE(launchServices.calls, (QByteArrayList{findByPath, open}));
    QCOMPARE(launchServices.path, QByteArray("/Applications/Tessaron Desktop.app"));
    QVERIFY(launchServices.pathRefWasZero);
    QVERIFY(!launchServices.directoryWasRequested);
    QVERIFY(hasOpened(foundByPath));
}

void tst_DesktopApplication_Mac::opensApplicationFoundByIdentifier()
{
    launchServices.pathStatus = -43;
    QCOMPARE(openDesktopApplication(), 0);
    QCOMPARE(launchServices.calls, (QByteArrayList{findByPath, findById, open}));
    QCOMPARE(launchServices.creator, OSType(0));
    QCOMPARE(launchServices.bundleId, QByteArray("com.tessaron.desktop"));
    QVERIFY(!launchServices.nameWasGiven);
    QVERIFY(!launchServices.urlWasRequested);
    QVERIFY(launchServices.findRefWasZero);
    QVERIFY(hasOpened(foundById));
}

void tst_DesktopApplication_Mac::passesLaunchParameters()
{
    QCOMPARE(openDesktopApplication(), 0);
    const LSApplicationParameters& parameters = launchServices.parameters;
    QCOMPARE(parameters.version, CFIndex(0));
    QCOMPARE(parameters.flags, LSLaunchFlags(0x00120B00));
    QVERIFY(parameters.asyncLaunchRefCon == nullptr);
    QVERIFY(parameters.environment == nullptr);
    QVERIFY(parameters.argv == nullptr);
    QVERIFY(parameters.initialEvent == nullptr);
    QVERIFY(!launchServices.serialNumberWasRequested);
}

void tst_DesktopApplication_Mac::returnsStatusOfFailedCall_data()
{
    QTest::addColumn<int>("pathStatus");
    QTest::addColumn<int>("findStatus");
    QTest::addColumn<int>("openStatus");
    QTest::addColumn<int>("expected");
    QTest::addColumn<QByteArrayList>("calls");

    const QByteArrayList openedByPath{findByPath, open};
    const QByteArrayList openedById{findByPath, findById, open};
    const QByteArrayList notOpened{findByPath, findById};
    QTest::newRow("not found") << -43 << -10814 << 0 << -10814 << notOpened;
    QTest::newRow("lookup fails for another reason") << -5000 << -600 << 0 << -600 << notOpened;
    QTest::newRow("positive status of path and lookup") << 1 << 7 << 0 << 7 << notOpened;
    QTest::newRow("launch fails, found by path") << 0 << -10814 << -10810 << -10810 << openedByPath;
    QTest::newRow("launch fails, found by identifier")
        << -43 << 0 << -10827 << -10827 << openedById;
    QTest::newRow("positive status of the launch") << 0 << 0 << 5 << 5 << openedByPath;
}

void tst_DesktopApplication_Mac::returnsStatusOfFailedCall()
{
    QFETCH(int, pathStatus);
    QFETCH(int, findStatus);
    QFETCH(int, openStatus);
    QFETCH(int, expected);
    QFETCH(QByteArrayList, calls);
    launchServices.pathStatus = pathStatus;
    launchServices.findStatus = findStatus;
    launchServices.openStatus = openStatus;
    QCOMPARE(openDesktopApplication(), expected);
    QCOMPARE(launchServices.calls, calls);
}

QTEST_GUILESS_MAIN(tst_DesktopApplication_Mac)
#include "tst_desktopapplication_mac.moc"
