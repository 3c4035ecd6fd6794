#include "service/DesktopSettings.h"

#include "tests/support/TemporaryHome.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QSettings>
#include <QtTest>

#include <unistd.h>

namespace {

const QByteArray settingsFile = "xdg_config_home/tessaron.com/Tessaron Desktop.conf";

struct Probe {
    QByteArray port;
    QByteArray path;
    QByteArray errors;
    int exitStatus = -1;
};

/// Returns what a new process reads. A process creates its settings object only once.
Probe probe(const QString& program = QStringLiteral(SETTINGS_PROBE),
    const QStringList& arguments = QStringList())
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(10000)) {
        return {};
    }
    const QList<QByteArray> lines = process.readAllStandardOutput().split('\n');
    return {lines.value(0), lines.value(1), process.readAllStandardError(), process.exitCode()};
}

} // namespace

class tst_DesktopSettings : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void readsThePort_data();
    void readsThePort();
    void readsThePath_data();
    void readsThePath();
    void readsAMissingFileAsEmpty();
    void readsAFolderAsEmpty();
    void readsAnUnreadableFileAsEmpty();
    void readsTheFileOfTheOrganisationToo();
    void hasTheNamesOfTheApplication();
    void changesNothing();
};

void tst_DesktopSettings::readsThePort_data()
{
    QTest::addColumn<QByteArray>("settings");
    QTest::addColumn<QByteArray>("port");

    const auto row = [](const char* name, const QByteArray& settings, const char* port) {
        QTest::newRow(name) << settings << QByteArray(port);
    };
    const auto value = [&row](const char* name, const QByteArray& text, const char* port) {
        row(name, "[%General]\nhttpServerPort=" + text + "\n", port);
    };
    value("number", "50010", "50010");
    value("quoted", "\"50010\"", "50010");
    value("spaces around", " 50010 ", "50010");
    value("larger than a port", "70000", "70000");
    value("negative", "-1", "-1");
    row("other keys and groups",
        "[General]\nhttpServerPort=1\n[%General]\nx=2\nhttpServerPort=50011\n[Other]\n"
        "httpServerPort=3\n",
        "50011");

    value("empty value", "", "0");
    value("text", "abc", "0");
    value("text after the number", "50010x", "0");
    value("fraction", "50010.5", "0");
    value("hexadecimal", "0xC352", "0");
    value("larger than any integer", "99999999999999999999", "0");
    value("two values", "50010, 50011", "0");
    value("invalid value", "@Invalid()", "0");
    value("true", "true", "0");

    row("empty file", "", "50002");
    row("key in no group", "httpServerPort=50010\n", "50002");
    row("plain group General", "[General]\nhttpServerPort=50010\n", "50002");
    row("key in another case", "[%General]\nHttpServerPort=50010\n", "50002");
    row("line without a value", "[%General]\nhttpServerPort\n", "50002");
    row("garbage", QByteArrayLiteral("\x00\xFF\xFE\x01garbage\x80\n\n[[["), "50002");
}

void tst_DesktopSettings::readsThePort()
{
    QFETCH(QByteArray, settings);
    QFETCH(QByteArray, port);
    const TemporaryHome home;
    home.writeSettings(settings);
    const Probe read = probe();
    QCOMPARE(read.exitStatus, 0);
    QCOMPARE(read.port, port);
    QCOMPARE(read.errors, QByteArray());
}

void tst_DesktopSettings::readsThePath_data()
{
    QTest::addColumn<QByteArray>("settings");
    QTest::addColumn<QByteArray>("path");

    const auto row = [](const char* name, const QByteArray& settings, const char* path) {
        QTest::newRow(name) << settings << QByteArray(path);
    };
    row("path with spaces", "[General]\nExecutablePath=/opt/Tessaron Desktop/run\n",
        "/opt/Tessaron Desktop/run");
    row("escaped letter", "[General]\nExecutablePath=/opt/caf\\xe9\n", "/opt/caf\xC3\xA9");
    row("number", "[General]\nExecutablePath=42\n", "42");

    row("empty file", "", "");
    row("empty value", "[General]\nExecutablePath=\n", "");
    row("another group", "[%General]\nExecutablePath=/opt/x\n", "");
    row("key in another case", "[General]\nexecutablePath=/opt/x\n", "");
    row("two values", "[General]\nExecutablePath=/opt/x, /opt/y\n", "");
    row("invalid value", "[General]\nExecutablePath=@Invalid()\n", "");
    row("garbage", QByteArrayLiteral("\x00\xFF\xFE\x01garbage\x80"), "");
}

void tst_DesktopSettings::readsThePath()
{
    QFETCH(QByteArray, settings);
    QFETCH(QByteArray, path);
    const TemporaryHome home;
    home.writeSettings(settings);
    const Probe read = probe();
    QCOMPARE(read.exitStatus, 0);
    QCOMPARE(read.path, path);
    QCOMPARE(read.errors, QByteArray());
}

void tst_DesktopSettings::readsAMissingFileAsEmpty()
{
    const TemporaryHome home;
    const Probe read = probe();
    QCOMPARE(read.exitStatus, 0);
    QCOMPARE(read.port, QByteArray("50002"));
    QCOMPARE(read.path, QByteArray());
    QCOMPARE(read.errors, QByteArray());
}

void tst_DesktopSettings::readsAFolderAsEmpty()
{
    const TemporaryHome home;
    QVERIFY(QDir().mkpath(home.path(QString::fromUtf8(settingsFile))));
    const Probe read = probe();
    QCOMPARE(read.exitStatus, 0);
    QCOMPARE(read.port, QByteArray("50002"));
    QCOMPARE(read.path, QByteArray());
    QCOMPARE(read.errors, QByteArray());
}

void tst_DesktopSettings::readsAnUnreadableFileAsEmpty()
{
    const TemporaryHome home;
    home.writeSettings("[General]\nExecutablePath=/opt/x\n[%General]\nhttpServerPort=50010\n");
    QCOMPARE(probe().port, QByteArray("50010"));
    QVERIFY(QFile::setPermissions(home.path(QString::fromUtf8(settingsFile)), {}));

    // Root may read the file all the same, so the reader must run as another user.
    QString program = QStringLiteral(SETTINGS_PROBE);
    QStringList arguments;
    if (getuid() == 0) {
        arguments = QStringList{QStringLiteral("--reuid=65534"), program};
        program = QStringLiteral("setpriv");
        // Another user may not be allowed to read the build folder.
        if (probe(program, arguments).exitStatus != 0) {
            QSKIP("root cannot start the reader as another user here");
        }
    }
    const Probe read = probe(program, arguments);
    QCOMPARE(read.exitStatus, 0);
    QCOMPARE(read.port, QByteArray("50002"));
    QCOMPARE(read.path, QByteArray());
    QCOMPARE(read.errors, QByteArray());
}

void tst_DesktopSettings::readsTheFileOfTheOrganisationToo()
{
    // QSettings falls back to the settings of the organisation for each key.
    const TemporaryHome home;
    home.writeFile(QStringLiteral("xdg_config_home/tessaron.com.conf"),
        "[General]\nExecutablePath=/opt/x\n[%General]\nhttpServerPort=50010\n");
    home.writePort(50020);
    const Probe read = probe();
    QCOMPARE(read.port, QByteArray("50020"));
    QCOMPARE(read.path, QByteArray("/opt/x"));
}

void tst_DesktopSettings::hasTheNamesOfTheApplication()
{
    const TemporaryHome home;
    QSettings* const settings = tessaronDesktopSettings();
    QVERIFY(settings != nullptr);
    QCOMPARE(tessaronDesktopSettings(), settings);
    QCOMPARE(settings->organizationName(), QStringLiteral("tessaron.com"));
    QCOMPARE(settings->applicationName(), QStringLiteral("Tessaron Desktop"));
    QCOMPARE(settings->format(), QSettings::NativeFormat);
    QCOMPARE(settings->scope(), QSettings::UserScope);
    QVERIFY(settings->parent() == nullptr);
}

void tst_DesktopSettings::changesNothing()
{
    const TemporaryHome home;
    QCOMPARE(probe().exitStatus, 0);
    QCOMPARE(QDir(home.path(QString())).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
        QStringList());

    // Comments, spaces and unknown keys stay as they are.
    const QByteArray content = "; mine\n[%General]\nhttpServerPort = 50010\nunknown=x\n";
    home.writeSettings(content);
    QCOMPARE(probe().port, QByteArray("50010"));
    QFile file(home.path(QString::fromUtf8(settingsFile)));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), content);
}

QTEST_GUILESS_MAIN(tst_DesktopSettings)
#include "tst_desktopsettings.moc"
