#include "tests/service/ApplicationStart.h"

#include <QDir>
#include <QtTest>

#include <cerrno>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace {

const QString fixedFolder = QStringLiteral("/opt/Tessaron Desktop");
const QString fixedPath = fixedFolder + QStringLiteral("/tessaron-desktop");
constexpr int notFound = -10814;

bool writeFile(const char* path, const QByteArray& content)
{
    QFile file(QString::fromUtf8(path));
    return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)
        && file.write(content) == content.size();
}

/// Mounts an empty /opt that only this process sees. Works only before a second thread starts.
bool mountPrivateOpt()
{
    const QByteArray user = QByteArray::number(getuid());
    const QByteArray group = QByteArray::number(getgid());
    if (unshare(CLONE_NEWNS) != 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 || !writeFile("/proc/self/setgroups", "deny")
            || !writeFile("/proc/self/uid_map", user + ' ' + user + " 1")
            || !writeFile("/proc/self/gid_map", group + ' ' + group + " 1")) {
            return false;
        }
    }
    return mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0
        && mount("none", "/opt", "tmpfs", 0, "mode=0777") == 0;
}

/// While it exists, the folder of the fixed path exists.
class FixedFolder {
public:
    FixedFolder() { QDir().mkpath(fixedFolder); }
    ~FixedFolder() { QDir(fixedFolder).removeRecursively(); }
    Q_DISABLE_COPY(FixedFolder)
};

} // namespace

/// Which application is found on Linux.
class tst_DesktopApplication_Linux : public ApplicationStartTest {
    Q_OBJECT

private Q_SLOTS:
    void usesOnlyFirstEntry_data();
    void usesOnlyFirstEntry();
    void reportsInvalidEntryAsNotFound_data();
    void reportsInvalidEntryAsNotFound();
    void reportsMissingEntryAsNotFound();
    void prefersFixedPath();
    void doesNotFallBackIfFixedPathFails_data();
    void doesNotFallBackIfFixedPathFails();
    void ignoresDanglingLinkAtFixedPath();

private:
    const bool hasPrivateOpt = mountPrivateOpt();
};

void tst_DesktopApplication_Linux::usesOnlyFirstEntry_data()
{
    QTest::addColumn<QByteArray>("inHome"); // empty for no entry
    QTest::addColumn<QByteArray>("inFirst");
    QTest::addColumn<QByteArray>("inSecond");
    QTest::addColumn<QByteArray>("started"); // empty for not found

    const auto row = [](const char* name, const char* inHome, const char* inFirst,
                         const char* inSecond, const char* started) {
        QTest::newRow(name) << QByteArray(inHome) << QByteArray(inFirst) << QByteArray(inSecond)
                            << QByteArray(started);
    };
    row("the user's", "Exec=R home", "Exec=R first", "Exec=R second", "home");
    row("the first system folder", "", "Exec=R first", "Exec=R second", "first");
    row("the second system folder", "", "", "Exec=R second", "second");
    row("hidden by the user", "Exec=R home\nHidden=true", "Exec=R first", "Exec=R second", "");
    row("hidden in a later folder", "", "Exec=R first", "Exec=R second\nHidden=true", "first");
    row("malformed in the first folder", "", "nonsense", "Exec=R second", "");
}

void tst_DesktopApplication_Linux::usesOnlyFirstEntry()
{
    QFETCH(QByteArray, inHome);
    QFETCH(QByteArray, inFirst);
    QFETCH(QByteArray, inSecond);
    QFETCH(QByteArray, started);
    const QByteArray former = qgetenv("XDG_DATA_DIRS");
    qputenv("XDG_DATA_DIRS",
        (home.path(QStringLiteral("data one:")) + home.path(QStringLiteral("data two"))).toUtf8());
    const auto installUnlessEmpty = [this](QByteArray lines, const char* dataFolder) {
        if (!lines.isEmpty()) {
            install(lines.replace("=R ", "=\"" START_RECORDER "\" "), dataFolder);
        }
    };
    installUnlessEmpty(inHome, "xdg_data_home");
    installUnlessEmpty(inFirst, "data one");
    installUnlessEmpty(inSecond, "data two");

    const int status = openDesktopApplication();
    qputenv("XDG_DATA_DIRS", former);
    QCOMPARE(status, started.isEmpty() ? notFound : 0);
    if (!started.isEmpty()) {
        QCOMPARE(waitForApplication(), 0);
        QCOMPARE(recorded("arg "), (QByteArrayList{START_RECORDER, started}));
    }
}

void tst_DesktopApplication_Linux::reportsInvalidEntryAsNotFound_data()
{
    QTest::addColumn<QByteArray>("lines");
    QTest::newRow("hidden") << QByteArray("Exec=\"" START_RECORDER "\"\nHidden=true");
    QTest::newRow("invalid Exec") << QByteArray("Exec=\"" START_RECORDER "\" %x");
    QTest::newRow("malformed") << QByteArray("Exec=\"" START_RECORDER "\"\nnonsense");
}

void tst_DesktopApplication_Linux::reportsInvalidEntryAsNotFound()
{
    QFETCH(QByteArray, lines);
    install(lines);
    QCOMPARE(openDesktopApplication(), notFound);
}

void tst_DesktopApplication_Linux::reportsMissingEntryAsNotFound()
{
    QCOMPARE(openDesktopApplication(), notFound);
    for (const char* similarName : {"com.tessaron.desktop", "com.tessaron.Desktop.desktop",
             "../com.tessaron.desktop.desktop"}) {
        home.writeFile(
            QStringLiteral("xdg_data_home/applications/") + QString::fromUtf8(similarName),
            "[Desktop Entry]\nType=Application\nName=N\nExec=\"" START_RECORDER "\"\n");
    }
    QCOMPARE(openDesktopApplication(), notFound);
}

void tst_DesktopApplication_Linux::prefersFixedPath()
{
    if (!hasPrivateOpt) {
        QSKIP("cannot create a mount namespace here");
    }
    const FixedFolder folder;
    QVERIFY(QFile::copy(QStringLiteral(START_RECORDER), fixedPath));
    install("Exec=/no/such/program");
    QCOMPARE(openDesktopApplication(), 0);
    QCOMPARE(waitForApplication(), 0);
    QCOMPARE(recorded("arg "), QByteArrayList{fixedPath.toUtf8()});
    QCOMPARE(recorded("cwd "), QByteArrayList{QDir::currentPath().toUtf8()});
}

void tst_DesktopApplication_Linux::doesNotFallBackIfFixedPathFails_data()
{
    QTest::addColumn<bool>("executable");
    QTest::addColumn<int>("errorNumber");
    QTest::newRow("not executable") << false << EACCES;
    QTest::newRow("not a program") << true << ENOEXEC;
}

void tst_DesktopApplication_Linux::doesNotFallBackIfFixedPathFails()
{
    QFETCH(bool, executable);
    QFETCH(int, errorNumber);
    if (!hasPrivateOpt) {
        QSKIP("cannot create a mount namespace here");
    }
    const FixedFolder folder;
    QVERIFY(writeFile(fixedPath.toUtf8().constData(), "text\n"));
    QVERIFY(QFile::setPermissions(fixedPath,
        executable ? QFile::ReadOwner | QFile::ExeOwner : QFile::Permissions(QFile::ReadOwner)));
    install("Exec=\"" START_RECORDER "\"");
    QCOMPARE(openDesktopApplication(), errorNumber);
}

void tst_DesktopApplication_Linux::ignoresDanglingLinkAtFixedPath()
{
    if (!hasPrivateOpt) {
        QSKIP("cannot create a mount namespace here");
    }
    const FixedFolder folder;
    QVERIFY(QFile::link(home.path(QStringLiteral("nowhere")), fixedPath));
    install("Exec=\"" START_RECORDER "\" entry");
    QCOMPARE(openDesktopApplication(), 0);
    QCOMPARE(waitForApplication(), 0);
    QCOMPARE(recorded("arg "), (QByteArrayList{START_RECORDER, "entry"}));
}

QTEST_GUILESS_MAIN(tst_DesktopApplication_Linux)
#include "tst_desktopapplication_linux.moc"
