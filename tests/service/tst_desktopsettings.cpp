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

/// What a process of its own reads: the settings object is read once in each process.
Probe probe(const QString& program = QStringLiteral(SETTINGS_PROBE),
    const QStringList& arguments = QStringList())
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished()) {
        return {};
    }
    const QList<QByteArray> lines = process.readAllStandardOutput().split('\n');
    return {lines.value(0), lines.value(1), process.readAllStandardError(), process.exitCode()};
}

} // namespace

class DesktopSettingsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void port_data();
    void port();
    void path_data();
    void path();
    void missingFile();
    void folderInPlaceOfTheFile();
    void unreadableFile();
    void fileOfTheOrganisation();
    void namesOfTheSettings();
    void readingChangesNothing();
};

void DesktopSettingsTest::port_data()
{
    QTest::addColumn<QByteArray>("settings");
    QTest::addColumn<QByteArray>("port");

    const auto row = [](const char* name, const QByteArray& settings, const char* port) {
        QTest::newRow(name) << settings << QByteArray(port);
    };
    const auto value = [&row](const char* name, const QByteArray& text, const char* port) {
        row(name, "[%General]\nhttpServerPort=" + text + "\n", port);
    };
    value("port", "50010", "50010");
    value("quoted", "\"50010\"", "50010");
    value("blanks around", " 50010 ", "50010");
    value("not a port: larger", "70000", "70000");
    value("not a port: negative", "-1", "-1");
    value("zero", "0", "0");
    row("other keys and groups",
        "[General]\nhttpServerPort=1\n[%General]\nx=2\nhttpServerPort=50011\n[Other]\n"
        "httpServerPort=3\n",
        "50011");

    value("empty value", "", "0");
    value("text", "abc", "0");
    value("text behind the number", "50010x", "0");
    value("fraction", "50010.5", "0");
    value("hexadecimal", "0xC352", "0");
    value("more digits than any integer has", "99999999999999999999", "0");
    value("two values", "50010, 50011", "0");
    value("invalid value", "@Invalid()", "0");
    value("bytes", "@ByteArray(x)", "0");
    value("true", "true", "0");
    value("placeholder", "%1", "0");

    row("empty file", "", "50002");
    row("key in no group", "httpServerPort=50010\n", "50002");
    row("plain group General", "[General]\nhttpServerPort=50010\n", "50002");
    row("another group", "[Server]\nhttpServerPort=50010\n", "50002");
    row("key in another case", "[%General]\nHttpServerPort=50010\n", "50002");
    row("similar key", "[%General]\nhttpServerPort2=50010\n", "50002");
    row("line without a value", "[%General]\nhttpServerPort\n", "50002");
    row("commented out", "[%General]\n; httpServerPort=50010\n", "50002");
    row("garbage", QByteArrayLiteral("\x00\xFF\xFE\x01garbage\x80\n\n[[["), "50002");
    row("XML", "<?xml version=\"1.0\"?><plist><dict/></plist>\n", "50002");
}

void DesktopSettingsTest::port()
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

void DesktopSettingsTest::path_data()
{
    QTest::addColumn<QByteArray>("settings");
    QTest::addColumn<QByteArray>("path");

    const auto row = [](const char* name, const QByteArray& settings, const char* path) {
        QTest::newRow(name) << settings << QByteArray(path);
    };
    row("path", "[General]\nExecutablePath=/opt/x/y\n", "/opt/x/y");
    row("path with blanks", "[General]\nExecutablePath=/opt/Tessaron Desktop/run\n",
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

void DesktopSettingsTest::path()
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

void DesktopSettingsTest::missingFile()
{
    const TemporaryHome home;
    const Probe read = probe();
    QCOMPARE(read.exitStatus, 0);
    QCOMPARE(read.port, QByteArray("50002"));
    QCOMPARE(read.path, QByteArray());
    QCOMPARE(read.errors, QByteArray());
}

void DesktopSettingsTest::folderInPlaceOfTheFile()
{
    const TemporaryHome home;
    QVERIFY(QDir().mkpath(home.path(QString::fromUtf8(settingsFile))));
    const Probe read = probe();
    QCOMPARE(read.exitStatus, 0);
    QCOMPARE(read.port, QByteArray("50002"));
    QCOMPARE(read.path, QByteArray());
    QCOMPARE(read.errors, QByteArray());
}

void DesktopSettingsTest::unreadableFile()
{
    const TemporaryHome home;
    home.writeSettings("[General]\nExecutablePath=/opt/x\n[%General]\nhttpServerPort=50010\n");
    QCOMPARE(probe().port, QByteArray("50010"));
    QVERIFY(QFile::setPermissions(home.path(QString::fromUtf8(settingsFile)), {}));

    // Permissions do not bind root, so the reader must be somebody else.
    QString program = QStringLiteral(SETTINGS_PROBE);
    QStringList arguments;
    if (getuid() == 0) {
        arguments = QStringList{QStringLiteral("--reuid=65534"), program};
        program = QStringLiteral("setpriv");
        // The build folder need not be open to others.
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

void DesktopSettingsTest::fileOfTheOrganisation()
{
    // The settings of the maker stand in for what the application's own do not say.
    const TemporaryHome home;
    home.writeFile(QStringLiteral("xdg_config_home/tessaron.com.conf"),
        "[General]\nExecutablePath=/opt/x\n[%General]\nhttpServerPort=50010\n");
    home.writePort(50020);
    const Probe read = probe();
    QCOMPARE(read.port, QByteArray("50020"));
    QCOMPARE(read.path, QByteArray("/opt/x"));
}

void DesktopSettingsTest::namesOfTheSettings()
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

void DesktopSettingsTest::readingChangesNothing()
{
    const TemporaryHome home;
    QCOMPARE(probe().exitStatus, 0);
    QCOMPARE(QDir(home.path(QString())).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
        QStringList());

    // The file's own form survives, unknown keys and comments too.
    const QByteArray content = "; mine\n[%General]\nhttpServerPort = 50010\nunknown=x\n";
    home.writeSettings(content);
    QCOMPARE(probe().port, QByteArray("50010"));
    QFile file(home.path(QString::fromUtf8(settingsFile)));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), content);
}

QTEST_GUILESS_MAIN(DesktopSettingsTest)
#include "tst_desktopsettings.moc"
