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

/// Returns the port and the path that a new process reads, each followed by a line break, and then
/// its standard error. Returns an empty array if the process failed.
QByteArray portAndPath(const QString& program = QStringLiteral(SETTINGS_PROBE),
    const QStringList& arguments = QStringList())
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(10000) || process.exitCode() != 0) {
        return {};
    }
    return process.readAllStandardOutput() + process.readAllStandardError();
}

} // namespace

class tst_DesktopSettings : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void readsPortAndPath_data();
    void readsPortAndPath();
    void readsMissingFileAsEmpty();
    void readsFolderAsEmpty();
    void readsUnreadableFileAsEmpty();
    void readsFileOfOrganisationToo();
    void hasNamesOfApplication();
    void leavesSettingsUnchanged();
};

void tst_DesktopSettings::readsPortAndPath_data()
{
    QTest::addColumn<QByteArray>("settings");
    QTest::addColumn<QByteArray>("expected");

    const auto row = [](const char* name, const QByteArray& settings, const char* port) {
        QTest::newRow(name) << settings << port + QByteArray("\n\n");
    };
    const auto portRow = [&row](const char* name, const QByteArray& text, const char* port) {
        row(name, "[%General]\nhttpServerPort=" + text + "\n", port);
    };
    const auto pathRow = [](const char* name, const QByteArray& settings, const char* path) {
        QTest::newRow(name) << settings << QByteArray("50002\n") + path + '\n';
    };
    portRow("number", "50010", "50010");
    portRow("quoted", "\"50010\"", "50010");
    portRow("spaces around", " 50010 ", "50010");
    portRow("larger than a port", "70000", "70000");
    portRow("negative", "-1", "-1");
    row("other keys and groups",
        "[General]\nhttpServerPort=1\n[%General]\nx=2\nhttpServerPort=50011\n[Other]\n"
        "httpServerPort=3\n",
        "50011");

    portRow("empty value", "", "0");
    portRow("text", "abc", "0");
    portRow("text after the number", "50010x", "0");
    portRow("fraction", "50010.5", "0");
    portRow("hexadecimal", "0xC352", "0");
    portRow("larger than any integer", "99999999999999999999", "0");
    portRow("two values", "50010, 50011", "0");
    portRow("invalid value", "@Invalid()", "0");
    portRow("true", "true", "0");

    row("empty file", "", "50002");
    row("key in no group", "httpServerPort=50010\n", "50002");
    row("plain group General", "[General]\nhttpServerPort=50010\n", "50002");
    row("key in another case", "[%General]\nHttpServerPort=50010\n", "50002");
    row("line without a value", "[%General]\nhttpServerPort\n", "50002");
    row("garbage", QByteArrayLiteral("\x00\xFF\xFE\x01garbage\x80\n\n[[["), "50002");

    pathRow("path", "[General]\nExecutablePath=/opt/Tessaron Desktop/run\n",
        "/opt/Tessaron Desktop/run");
    pathRow("path with an escaped letter", "[General]\nExecutablePath=/opt/caf\\xe9\n",
        "/opt/caf\xC3\xA9");
    pathRow("path is a number", "[General]\nExecutablePath=42\n", "42");

    pathRow("empty path", "[General]\nExecutablePath=\n", "");
    pathRow("path in another group", "[%General]\nExecutablePath=/opt/x\n", "");
    pathRow("path key in another case", "[General]\nexecutablePath=/opt/x\n", "");
    pathRow("two paths", "[General]\nExecutablePath=/opt/x, /opt/y\n", "");
    pathRow("invalid path", "[General]\nExecutablePath=@Invalid()\n", "");
}

void tst_DesktopSettings::readsPortAndPath()
{
    QFETCH(QByteArray, settings);
    QFETCH(QByteArray, expected);
    const TemporaryHome home;
    home.writeSettings(settings);
    QCOMPARE(portAndPath(), expected);
}

void tst_DesktopSettings::readsMissingFileAsEmpty()
{
    const TemporaryHome home;
    QCOMPARE(portAndPath(), QByteArray("50002\n\n"));
}

void tst_DesktopSettings::readsFolderAsEmpty()
{
    const TemporaryHome home;
    QVERIFY(QDir().mkpath(home.path(QString::fromUtf8(settingsFile))));
    QCOMPARE(portAndPath(), QByteArray("50002\n\n"));
}

void tst_DesktopSettings::readsUnreadableFileAsEmpty()
{
    const TemporaryHome home;
    home.writeSettings("[General]\nExecutablePath=/opt/x\n[%General]\nhttpServerPort=50010\n");
    QCOMPARE(portAndPath(), QByteArray("50010\n/opt/x\n"));
    QVERIFY(QFile::setPermissions(home.path(QString::fromUtf8(settingsFile)), {}));

    // Root may read the file all the same, so the reader must run as another user.
    QString program = QStringLiteral(SETTINGS_PROBE);
    QStringList arguments;
    if (getuid() == 0) {
        arguments = QStringList{QStringLiteral("--reuid=65534"), program};
        program = QStringLiteral("setpriv");
        // Another user may not be allowed to read the build folder.
        if (portAndPath(program, arguments).isEmpty()) {
            QSKIP("root cannot start the reader as another user here");
        }
    }
    QCOMPARE(portAndPath(program, arguments), QByteArray("50002\n\n"));
}

void tst_DesktopSettings::readsFileOfOrganisationToo()
{
    // QSettings falls back to the settings of the organisation for each key.
    const TemporaryHome home;
    home.writeFile(QStringLiteral("xdg_config_home/tessaron.com.conf"),
        "[General]\nExecutablePath=/opt/x\n[%General]\nhttpServerPort=50010\n");
    home.writePort(50020);
    QCOMPARE(portAndPath(), QByteArray("50020\n/opt/x\n"));
}

void tst_DesktopSettings::hasNamesOfApplication()
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

void tst_DesktopSettings::leavesSettingsUnchanged()
{
    const TemporaryHome home;
    QCOMPARE(portAndPath(), QByteArray("50002\n\n"));
    QCOMPARE(QDir(home.path(QString())).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
        QStringList());

    // Comments, spaces and unknown keys stay as they are.
    const QByteArray content = "; mine\n[%General]\nhttpServerPort = 50010\nunknown=x\n";
    home.writeSettings(content);
    QCOMPARE(portAndPath(), QByteArray("50010\n\n"));
    QFile file(home.path(QString::fromUtf8(settingsFile)));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), content);
}

QTEST_GUILESS_MAIN(tst_DesktopSettings)
#include "tst_desktopsettings.moc"
