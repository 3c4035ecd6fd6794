#include "service/DesktopApplication.h"
#include "service/PluginComServer.h"

#include "tests/service/ServiceFixture.h"

#include <QDir>
#include <QScopeGuard>
#include <QtTest>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const QString fixedFolder = QStringLiteral("/opt/Tessaron Desktop");
const QString fixedPath = fixedFolder + QStringLiteral("/tessaron-desktop");
const QString entryName = QStringLiteral("applications/com.tessaron.desktop.desktop");
constexpr int notFound = -10814;

bool writeWhole(const char* path, const QByteArray& content)
{
    QFile file(QString::fromUtf8(path));
    return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)
        && file.write(content) == content.size();
}

/// Gives this process an /opt of its own, empty, that nobody else sees. Needs to happen before
/// there is a second thread.
bool enterOwnOpt()
{
    const QByteArray user = QByteArray::number(getuid());
    const QByteArray group = QByteArray::number(getgid());
    if (unshare(CLONE_NEWNS) != 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 || !writeWhole("/proc/self/setgroups", "deny")
            || !writeWhole("/proc/self/uid_map", user + ' ' + user + " 1")
            || !writeWhole("/proc/self/gid_map", group + ' ' + group + " 1")) {
            return false;
        }
    }
    return mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0
        && mount("none", "/opt", "tmpfs", 0, "mode=0777") == 0;
}

bool hasOwnOpt = false;

/// Whether a test may put something at the fixed path. It is taken away again by the destructor.
class FixedPathGuard {
public:
    FixedPathGuard()
        : allowed(hasOwnOpt || (getuid() == 0 && !QFileInfo::exists(fixedFolder)))
    {
        if (allowed) {
            QDir().mkpath(fixedFolder);
        }
    }
    ~FixedPathGuard()
    {
        if (allowed) {
            QDir(fixedFolder).removeRecursively();
        }
    }
    Q_DISABLE_COPY(FixedPathGuard)

    const bool allowed;
};

/// Waits for the application, a child of this process, and returns its exit status, -1 when it
/// did not exit by itself.
int waitForApplication()
{
    int status = 0;
    return waitpid(-1, &status, 0) > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool hasNoChild()
{
    return waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
}

} // namespace

#define NEEDS_THE_FIXED_PATH(guard)                                                                \
    if (!(guard).allowed) {                                                                        \
        QSKIP("no namespace of our own, and not root or something is in /opt already");            \
    }

class DesktopApplicationTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void startedAsTheEntrySays();
    void workingDirectory_data();
    void workingDirectory();
    void programInPath();
    void environment();
    void descriptors();
    void signalsAndSession();
    void cannotBeStarted_data();
    void cannotBeStarted();
    void notInstalled_data();
    void notInstalled();
    void noEntryAnywhere();
    void firstEntryCounts_data();
    void firstEntryCounts();
    void applicationWithoutEnd();
    void launchMessage_data();
    void launchMessage();

    void fixedPathIsFirst();
    void fixedPathCannotBeRun_data();
    void fixedPathCannotBeRun();
    void danglingFixedPath();

private:
    /// Installs the desktop entry `lines` below `dataFolder`.
    void install(
        const QByteArray& lines, const QString& dataFolder = QStringLiteral("xdg_data_home"))
    {
        fixture.home.writeFile(dataFolder + QLatin1Char('/') + entryName,
            "[Desktop Entry]\nType=Application\nName=Tessaron Desktop\n" + lines + '\n');
    }
    /// Writes a file with these permissions and returns its path.
    QByteArray program(const QByteArray& content, QFile::Permissions permissions)
    {
        const QString path = fixture.home.writeFile(QStringLiteral("program"), content);
        QFile::setPermissions(path, permissions);
        return path.toUtf8();
    }
    /// The lines of the record that begin with `key`, without it.
    QByteArrayList recorded(const QByteArray& key) const
    {
        QByteArrayList found;
        QFile record(recordPath);
        record.open(QIODevice::ReadOnly);
        for (const QByteArray& line : record.readAll().split('\n')) {
            if (line.startsWith(key)) {
                found << line.mid(key.size()).trimmed();
            }
        }
        return found;
    }

    ServiceFixture fixture;
    const QString recordPath = fixture.home.path(QStringLiteral("record"));
    const QByteArray dataFolders = qgetenv("XDG_DATA_DIRS");
};

void DesktopApplicationTest::init()
{
    if (QFileInfo::exists(fixedPath)) {
        QSKIP("the real application is installed on this machine");
    }
    for (const char* name : {"xdg_data_home", "data one", "data two"}) {
        QDir(fixture.home.path(QString::fromUtf8(name))).removeRecursively();
    }
    qputenv("XDG_DATA_DIRS", dataFolders);
    QFile::remove(recordPath);
    qputenv("RECORD", recordPath.toUtf8());
    fixture.useNoServer();
}

void DesktopApplicationTest::cleanup()
{
    QVERIFY(hasNoChild());
    QCOMPARE(fixture.server.problem(), QString());
}

void DesktopApplicationTest::startedAsTheEntrySays()
{
    install("Icon=the icon\nExec=\"" START_RECORDER "\" %i \"a b\" %U %c \"\" \"\\\\$HOME\" 100%%");
    QCOMPARE(openDesktopApplication(), 0);
    QCOMPARE(waitForApplication(), 0);
    QCOMPARE(recorded("arg "),
        (QByteArrayList{
            START_RECORDER, "--icon", "the icon", "a b", "Tessaron Desktop", "", "$HOME", "100%"}));
}

void DesktopApplicationTest::workingDirectory_data()
{
    QTest::addColumn<bool>("told");
    QTest::newRow("the entry's") << true;
    QTest::newRow("the starter's") << false;
}

void DesktopApplicationTest::workingDirectory()
{
    QFETCH(bool, told);
    const QString folder = fixture.home.path(QStringLiteral("a b/ü"));
    QVERIFY(QDir().mkpath(folder));
    install("Exec=\"" START_RECORDER "\"" + (told ? "\nPath=" + folder.toUtf8() : QByteArray()));
    const QString former = QDir::currentPath();
    QCOMPARE(openDesktopApplication(), 0);
    QCOMPARE(waitForApplication(), 0);
    QCOMPARE(recorded("cwd "), QByteArrayList{(told ? folder : former).toUtf8()});
    QCOMPARE(QDir::currentPath(), former);
}

void DesktopApplicationTest::programInPath()
{
    QVERIFY(QDir().mkpath(fixture.home.path(QStringLiteral("bin"))));
    QVERIFY(QFile::link(
        QStringLiteral(START_RECORDER), fixture.home.path(QStringLiteral("bin/our-recorder"))));
    install("TryExec=our-recorder\nExec=our-recorder x");
    const QByteArray former = qgetenv("PATH");
    qputenv("PATH", fixture.home.path(QStringLiteral("bin")).toUtf8() + ':' + former);
    const int status = openDesktopApplication();
    qputenv("PATH", former);
    QCOMPARE(status, 0);
    QCOMPARE(waitForApplication(), 0);
    QCOMPARE(recorded("arg "), (QByteArrayList{"our-recorder", "x"}));
}

void DesktopApplicationTest::environment()
{
    install("Exec=\"" START_RECORDER "\"");
    qputenv("DESKTOP_STARTUP_ID", "id_TIME1");
    qputenv("XDG_ACTIVATION_TOKEN", "token");
    qputenv("DESKTOP_STARTUP_ID_2", "stays");
    qputenv("MY_XDG_ACTIVATION_TOKEN", "stays too");
    qputenv("EMPTY_ONE", "");
    QSet<QByteArray> expected;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        expected.insert(QByteArray(*variable).split('\n').first().trimmed());
    }
    QVERIFY(expected.remove("DESKTOP_STARTUP_ID=id_TIME1"));
    QVERIFY(expected.remove("XDG_ACTIVATION_TOKEN=token"));
    const int status = openDesktopApplication();
    // The bridge's own environment stays as it is.
    const QByteArray startupId = qgetenv("DESKTOP_STARTUP_ID");
    for (const char* name : {"DESKTOP_STARTUP_ID", "XDG_ACTIVATION_TOKEN", "DESKTOP_STARTUP_ID_2",
             "MY_XDG_ACTIVATION_TOKEN", "EMPTY_ONE"}) {
        qunsetenv(name);
    }
    QCOMPARE(status, 0);
    QCOMPARE(waitForApplication(), 0);
    QCOMPARE(startupId, QByteArray("id_TIME1"));
    const QByteArrayList recordedVariables = recorded("env ");
    QCOMPARE(QSet<QByteArray>(recordedVariables.begin(), recordedVariables.end()), expected);
}

void DesktopApplicationTest::descriptors()
{
    install("Exec=\"" START_RECORDER "\"");
    // What a parent may have left open: a pipe, and files without close-on-exec far up.
    int pipeEnds[2] = {-1, -1};
    QCOMPARE(pipe(pipeEnds), 0);
    const int high = fcntl(pipeEnds[1], F_DUPFD, 900);
    const auto closeAll = qScopeGuard([&] {
        close(pipeEnds[0]);
        close(pipeEnds[1]);
        close(high);
    });
    QVERIFY(high >= 900);
    QCOMPARE(openDesktopApplication(), 0);
    QCOMPARE(waitForApplication(), 0);
    QByteArrayList open = recorded("fd ");
    std::sort(open.begin(), open.end());
    QCOMPARE(open, (QByteArrayList{"0=/dev/null", "1=/dev/null", "2=/dev/null"}));
    // Ours are still open.
    QVERIFY(fcntl(pipeEnds[0], F_GETFD) >= 0 && fcntl(high, F_GETFD) >= 0);
}

void DesktopApplicationTest::signalsAndSession()
{
    install("Exec=\"" START_RECORDER "\"");
    sigset_t blocked;
    sigset_t former;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigaddset(&blocked, SIGTERM);
    QCOMPARE(pthread_sigmask(SIG_BLOCK, &blocked, &former), 0);
    const auto formerPipe = signal(SIGPIPE, SIG_IGN);
    const auto formerSize = signal(SIGXFSZ, SIG_IGN);
    const auto formerHangup = signal(SIGHUP, SIG_IGN);
    const int status = openDesktopApplication();
    const bool stillIgnored = signal(SIGPIPE, formerPipe) == SIG_IGN;
    signal(SIGXFSZ, formerSize);
    signal(SIGHUP, formerHangup);
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
    QCOMPARE(status, 0);
    QVERIFY(stillIgnored);
    QCOMPARE(waitForApplication(), 0);
    // Signals 32 and 33 are the C library's own; no program can set them.
    constexpr qulonglong ofTheLibrary = 0x180000000;
    bool isNumber = false;
    QCOMPARE(recorded("SigIgn:").value(0).toULongLong(&isNumber, 16) & ~ofTheLibrary, 0ULL);
    QVERIFY(isNumber);
    QCOMPARE(recorded("SigBlk:"), QByteArrayList{"0000000000000000"});
    QCOMPARE(recorded("pid ").size(), 1);
    QCOMPARE(recorded("session "), recorded("pid "));
}

void DesktopApplicationTest::cannotBeStarted_data()
{
    QTest::addColumn<QByteArray>("lines"); // with HOME for the home folder
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("runnable");
    QTest::addColumn<int>("number");

    const auto row = [](const char* name, const char* lines, const QByteArray& content,
                         bool runnable, int number) {
        QTest::newRow(name) << QByteArray(lines) << content << runnable << number;
    };
    row("not executable", "Exec=HOME/program", "#!/bin/sh\n", false, EACCES);
    row("a folder", "Exec=HOME", "", true, EACCES);
    row("not there", "Exec=HOME/nothing", "", true, ENOENT);
    row("name not in PATH", "Exec=no-such-program-anywhere", "", true, ENOENT);
    row("interpreter not there", "Exec=HOME/program", "#!/no/such/interpreter\n", true, ENOENT);
    row("folder to start in not there", "Exec=HOME/program\nPath=HOME/nothing", "#!/bin/sh\n", true,
        ENOENT);
    row("below a file", "Exec=HOME/program/x", "", true, ENOTDIR);
    row("folder to start in is a file", "Exec=/bin/true\nPath=HOME/program", "", true, ENOTDIR);
    row("not a program", "Exec=HOME/program", "no format of a program\n", true, ENOEXEC);
    row("empty file", "Exec=HOME/program", "", true, ENOEXEC);
}

void DesktopApplicationTest::cannotBeStarted()
{
    QFETCH(QByteArray, lines);
    QFETCH(QByteArray, content);
    QFETCH(bool, runnable);
    QFETCH(int, number);
    QFile::Permissions permissions = QFile::ReadOwner | QFile::WriteOwner;
    if (runnable) {
        permissions |= QFile::ExeOwner;
    }
    program(content, permissions);
    install(lines.replace("HOME", fixture.home.path(QString()).toUtf8()));
    const QByteArray former = qgetenv("PATH");
    qputenv("PATH", "/usr/bin:/bin");
    const int status = openDesktopApplication();
    qputenv("PATH", former);
    QCOMPARE(status, number);
}

void DesktopApplicationTest::notInstalled_data()
{
    QTest::addColumn<QByteArray>("lines");
    QTest::newRow("hidden") << QByteArray("Exec=\"" START_RECORDER "\"\nHidden=true");
    QTest::newRow("no program") << QByteArray("Icon=x");
    QTest::newRow("invalid program") << QByteArray("Exec=\"" START_RECORDER "\" %x");
    QTest::newRow("TryExec not there")
        << QByteArray("Exec=\"" START_RECORDER "\"\nTryExec=/no/such/program");
    QTest::newRow("malformed") << QByteArray("Exec=\"" START_RECORDER "\"\nnonsense");
}

void DesktopApplicationTest::notInstalled()
{
    QFETCH(QByteArray, lines);
    install(lines);
    QCOMPARE(openDesktopApplication(), notFound);
    QVERIFY(!QFileInfo::exists(recordPath));
}

void DesktopApplicationTest::noEntryAnywhere()
{
    QCOMPARE(openDesktopApplication(), notFound);
    // Names that are near do not count.
    for (const char* name : {"com.tessaron.desktop", "tessaron-desktop.desktop",
             "com.tessaron.Desktop.desktop", "../com.tessaron.desktop.desktop"}) {
        fixture.home.writeFile(
            QStringLiteral("xdg_data_home/applications/") + QString::fromUtf8(name),
            "[Desktop Entry]\nType=Application\nName=N\nExec=\"" START_RECORDER "\"\n");
    }
    QCOMPARE(openDesktopApplication(), notFound);
}

void DesktopApplicationTest::firstEntryCounts_data()
{
    QTest::addColumn<QByteArray>("inHome"); // empty for none
    QTest::addColumn<QByteArray>("inFirst");
    QTest::addColumn<QByteArray>("inSecond");
    QTest::addColumn<QByteArray>("started"); // empty for nothing

    const auto row = [](const char* name, const char* inHome, const char* inFirst,
                         const char* inSecond, const char* started) {
        QTest::newRow(name) << QByteArray(inHome) << QByteArray(inFirst) << QByteArray(inSecond)
                            << QByteArray(started);
    };
    row("the user's before the machine's", "Exec=R home", "Exec=R first", "Exec=R second", "home");
    row("the machine's first folder", "", "Exec=R first", "Exec=R second", "first");
    row("the machine's second folder", "", "", "Exec=R second", "second");
    row("hidden by the user", "Exec=R home\nHidden=true", "Exec=R first", "Exec=R second", "");
    row("hidden in the first folder", "", "Hidden=true", "Exec=R second", "");
    row("hidden in a later folder", "", "Exec=R first", "Exec=R second\nHidden=true", "first");
    row("malformed in the first folder", "", "nonsense", "Exec=R second", "");
}

void DesktopApplicationTest::firstEntryCounts()
{
    QFETCH(QByteArray, inHome);
    QFETCH(QByteArray, inFirst);
    QFETCH(QByteArray, inSecond);
    QFETCH(QByteArray, started);
    const QString first = QStringLiteral("data one");
    const QString second = QStringLiteral("data two");
    qputenv("XDG_DATA_DIRS",
        (fixture.home.path(first) + QLatin1Char(':') + fixture.home.path(second)).toUtf8());
    const auto installIfAny = [this](QByteArray lines, const QString& dataFolder) {
        if (!lines.isEmpty()) {
            install(lines.replace("=R ", "=\"" START_RECORDER "\" "), dataFolder);
        }
    };
    installIfAny(inHome, QStringLiteral("xdg_data_home"));
    installIfAny(inFirst, first);
    installIfAny(inSecond, second);

    QCOMPARE(openDesktopApplication(), started.isEmpty() ? notFound : 0);
    if (started.isEmpty()) {
        QVERIFY(hasNoChild());
    } else {
        QCOMPARE(waitForApplication(), 0);
        QCOMPARE(recorded("arg "), (QByteArrayList{START_RECORDER, started}));
    }
}

void DesktopApplicationTest::applicationWithoutEnd()
{
    // Starting does not wait for the application: this one ends only when it is told to.
    install("Exec=/bin/sh -c \"kill -STOP \\\\$\\\\$\"");
    QCOMPARE(openDesktopApplication(), 0);
    int status = 0;
    const pid_t application = waitpid(-1, &status, WUNTRACED);
    QVERIFY(application > 0);
    const bool stopped = WIFSTOPPED(status);
    kill(application, SIGKILL);
    waitpid(application, &status, 0);
    QVERIFY(stopped);
}

void DesktopApplicationTest::launchMessage_data()
{
    QTest::addColumn<QByteArray>("lines");
    QTest::addColumn<QString>("message");
    QTest::newRow("not found") << QByteArray()
                               << QStringLiteral("Unable to start Tessaron Desktop: -10814");
    QTest::newRow("hidden") << QByteArray("Exec=/bin/true\nHidden=true")
                            << QStringLiteral("Unable to start Tessaron Desktop: -10814");
    QTest::newRow("not there") << QByteArray("Exec=/no/such/program")
                               << QStringLiteral("Unable to start Tessaron Desktop: 2");
    QTest::newRow("not executable")
        << QByteArray("Exec=/") << QStringLiteral("Unable to start Tessaron Desktop: 13");
}

void DesktopApplicationTest::launchMessage()
{
    QFETCH(QByteArray, lines);
    QFETCH(QString, message);
    if (!lines.isEmpty()) {
        install(lines);
    }
    PluginComServer service;
    QVERIFY(!service.launchTessaron());
    QCOMPARE(service.lastError(), message);
}

// The fixed path

void DesktopApplicationTest::fixedPathIsFirst()
{
    const FixedPathGuard guard;
    NEEDS_THE_FIXED_PATH(guard);
    QVERIFY(QFile::copy(QStringLiteral(START_RECORDER), fixedPath));
    install("Exec=/no/such/program");
    QCOMPARE(openDesktopApplication(), 0);
    QCOMPARE(waitForApplication(), 0);
    QCOMPARE(recorded("arg "), QByteArrayList{fixedPath.toUtf8()});
    QCOMPARE(recorded("cwd "), QByteArrayList{QDir::currentPath().toUtf8()});
}

void DesktopApplicationTest::fixedPathCannotBeRun_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("runnable");
    QTest::addColumn<int>("number");
    QTest::newRow("not executable") << QByteArray("#!/bin/sh\n") << false << EACCES;
    QTest::newRow("interpreter not there") << QByteArray("#!/no/such/one\n") << true << ENOENT;
    QTest::newRow("not a program") << QByteArray("text\n") << true << ENOEXEC;
    QTest::newRow("empty") << QByteArray() << true << ENOEXEC;
}

void DesktopApplicationTest::fixedPathCannotBeRun()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, runnable);
    QFETCH(int, number);
    const FixedPathGuard guard;
    NEEDS_THE_FIXED_PATH(guard);
    QVERIFY(writeWhole(fixedPath.toUtf8().constData(), content));
    QVERIFY(QFile::setPermissions(fixedPath,
        runnable ? QFile::ReadOwner | QFile::ExeOwner : QFile::Permissions(QFile::ReadOwner)));
    // What exists counts as found: the desktop entry is not tried.
    install("Exec=\"" START_RECORDER "\"");
    QCOMPARE(openDesktopApplication(), number);
    QVERIFY(hasNoChild());
    QVERIFY(!QFileInfo::exists(recordPath));

    PluginComServer service;
    QVERIFY(!service.launchTessaron());
    QCOMPARE(service.lastError(),
        QStringLiteral("Unable to start Tessaron Desktop: ") + QString::number(number));
}

void DesktopApplicationTest::danglingFixedPath()
{
    const FixedPathGuard guard;
    NEEDS_THE_FIXED_PATH(guard);
    QVERIFY(QFile::link(fixture.home.path(QStringLiteral("nowhere")), fixedPath));
    install("Exec=\"" START_RECORDER "\" entry");
    QCOMPARE(openDesktopApplication(), 0);
    QCOMPARE(waitForApplication(), 0);
    QCOMPARE(recorded("arg "), (QByteArrayList{START_RECORDER, "entry"}));
}

int main(int argc, char** argv)
{
    hasOwnOpt = enterOwnOpt();
    QCoreApplication application(argc, argv);
    DesktopApplicationTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_desktopapplication_linux.moc"
