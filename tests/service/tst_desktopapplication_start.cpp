#include "tests/service/ApplicationStart.h"

#include <QDir>
#include <QScopeGuard>
#include <QSet>
#include <QtTest>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

/// What the started application receives, and the errno that a failed start returns.
class tst_DesktopApplication_Start : public ApplicationStartTest {
    Q_OBJECT

private Q_SLOTS:
    void passesArgumentsOfEntry();
    void startsInFolderOfEntry_data();
    void startsInFolderOfEntry();
    void findsProgramInPath();
    void passesEnvironmentWithoutActivation();
    void passesOnlyNullDevice();
    void opensNullDeviceForReadingAndWriting();
    void resetsSignalsAndStartsSession();
    void doesNotWaitForApplication();
    void returnsErrnoOfFailedStart_data();
    void returnsErrnoOfFailedStart();
};

void tst_DesktopApplication_Start::passesArgumentsOfEntry()
{
    install("Icon=the icon\nExec=\"" START_RECORDER "\" %i \"a b\" %U %c \"\" \"\\\\$HOME\" 100%%");
    QCOMPARE(openDesktopApplication(), 0);
    QCOMPARE(waitForApplication(), 0);
    QCOMPARE(recorded("arg "),
        (QByteArrayList{
            START_RECORDER, "--icon", "the icon", "a b", "Tessaron Desktop", "", "$HOME", "100%"}));
}

void tst_DesktopApplication_Start::startsInFolderOfEntry_data()
{
    QTest::addColumn<bool>("isNamed");
    QTest::newRow("named in the entry") << true;
    QTest::newRow("not named") << false;
}

void tst_DesktopApplication_Start::startsInFolderOfEntry()
{
    QFETCH(bool, isNamed);
    const QString folder = home.path(QStringLiteral("a b/ü"));
    QVERIFY(QDir().mkpath(folder));
    install("Exec=\"" START_RECORDER "\"" + (isNamed ? "\nPath=" + folder.toUtf8() : QByteArray()));
    const QString current = QDir::currentPath();
    QCOMPARE(openDesktopApplication(), 0);
    QCOMPARE(waitForApplication(), 0);
    QCOMPARE(recorded("cwd "), QByteArrayList{(isNamed ? folder : current).toUtf8()});
    QCOMPARE(QDir::currentPath(), current);
}

void tst_DesktopApplication_Start::findsProgramInPath()
{
    const QString folder = home.path(QStringLiteral("bin"));
    QVERIFY(QDir().mkpath(folder));
    QVERIFY(QFile::link(QStringLiteral(START_RECORDER), folder + QStringLiteral("/our-recorder")));
    install("TryExec=our-recorder\nExec=our-recorder x");
    const QByteArray former = qgetenv("PATH");
    qputenv("PATH", folder.toUtf8() + ':' + former);
    const int status = openDesktopApplication();
    qputenv("PATH", former);
    QCOMPARE(status, 0);
    QCOMPARE(waitForApplication(), 0);
    QCOMPARE(recorded("arg "), (QByteArrayList{"our-recorder", "x"}));
}

void tst_DesktopApplication_Start::passesEnvironmentWithoutActivation()
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
    const QByteArray ownStartupId = qgetenv("DESKTOP_STARTUP_ID");
    for (const char* name : {"DESKTOP_STARTUP_ID", "XDG_ACTIVATION_TOKEN", "DESKTOP_STARTUP_ID_2",
             "MY_XDG_ACTIVATION_TOKEN", "EMPTY_ONE"}) {
        qunsetenv(name);
    }
    QCOMPARE(status, 0);
    QCOMPARE(waitForApplication(), 0);
    QCOMPARE(ownStartupId, QByteArray("id_TIME1"));
    const QByteArrayList variables = recorded("env ");
    QCOMPARE(QSet<QByteArray>(variables.begin(), variables.end()), expected);
}

void tst_DesktopApplication_Start::passesOnlyNullDevice()
{
    install("Exec=\"" START_RECORDER "\"");
    // Descriptors that are inherited unless they are closed: the lowest one and a high one.
    constexpr int lowest = STDERR_FILENO + 1;
    int pipeEnds[2] = {-1, -1};
    QCOMPARE(pipe(pipeEnds), 0);
    const int high = fcntl(pipeEnds[1], F_DUPFD, 900);
    const int lowestFlags = fcntl(lowest, F_GETFD);
    const auto restore = qScopeGuard([&] {
        fcntl(lowest, F_SETFD, lowestFlags);
        close(pipeEnds[0]);
        close(pipeEnds[1]);
        close(high);
    });
    QVERIFY(high >= 900);
    QVERIFY(fcntl(lowest, F_SETFD, 0) == 0);
    QCOMPARE(openDesktopApplication(), 0);
    QCOMPARE(waitForApplication(), 0);
    QByteArrayList descriptors = recorded("fd ");
    std::sort(descriptors.begin(), descriptors.end());
    QCOMPARE(descriptors, (QByteArrayList{"0=/dev/null", "1=/dev/null", "2=/dev/null"}));
    QVERIFY(fcntl(pipeEnds[0], F_GETFD) >= 0 && fcntl(high, F_GETFD) >= 0);
}

void tst_DesktopApplication_Start::opensNullDeviceForReadingAndWriting()
{
    install("Exec=/bin/sh -c \"cat && echo output && echo error >&2\"");
    QCOMPARE(openDesktopApplication(), 0);
    QCOMPARE(waitForApplication(), 0);
}

void tst_DesktopApplication_Start::resetsSignalsAndStartsSession()
{
    install("Exec=\"" START_RECORDER "\"");
    sigset_t blocked;
    sigset_t former;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigaddset(&blocked, SIGTERM);
    QCOMPARE(pthread_sigmask(SIG_BLOCK, &blocked, &former), 0);
    const auto formerPipe = signal(SIGPIPE, SIG_IGN);
    const auto formerHangup = signal(SIGHUP, SIG_IGN);
    const int status = openDesktopApplication();
    const bool isStillIgnored = signal(SIGPIPE, formerPipe) == SIG_IGN;
    signal(SIGHUP, formerHangup);
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
    QCOMPARE(status, 0);
    QVERIFY(isStillIgnored);
    QCOMPARE(waitForApplication(), 0);
    // The C library keeps signals 32 and 33 for itself. An application cannot set them.
    constexpr qulonglong librarySignals = 0x180000000;
    bool isNumber = false;
    QCOMPARE(recorded("SigIgn:").value(0).toULongLong(&isNumber, 16) & ~librarySignals, 0ULL);
    QVERIFY(isNumber);
    QCOMPARE(recorded("SigBlk:"), QByteArrayList{"0000000000000000"});
    QCOMPARE(recorded("pid ").size(), 1);
    QCOMPARE(recorded("session "), recorded("pid "));
}

void tst_DesktopApplication_Start::doesNotWaitForApplication()
{
    const QByteArray pipePath = home.path(QStringLiteral("pipe")).toUtf8();
    QCOMPARE(mkfifo(pipePath.constData(), 0600), 0);
    install("Exec=timeout 4 head -c 1 " + pipePath);
    QCOMPARE(openDesktopApplication(), 0);
    const bool isRunning = waitpid(-1, nullptr, WNOHANG) == 0;
    const int pipeEnd = open(pipePath.constData(), O_RDWR);
    const auto closePipe = qScopeGuard([pipeEnd] { close(pipeEnd); });
    QCOMPARE(write(pipeEnd, "x", 1), ssize_t(1));
    QCOMPARE(waitForApplication(), 0);
    QVERIFY(isRunning);
}

void tst_DesktopApplication_Start::returnsErrnoOfFailedStart_data()
{
    QTest::addColumn<QByteArray>("lines"); // with HOME for the home folder
    QTest::addColumn<QByteArray>("content"); // of the file HOME/program
    QTest::addColumn<bool>("executable");
    QTest::addColumn<int>("errorNumber");

    const auto row = [](const char* name, const char* lines, const char* content, bool executable,
                         int errorNumber) {
        QTest::newRow(name) << QByteArray(lines) << QByteArray(content) << executable
                            << errorNumber;
    };
    row("not executable", "Exec=HOME/program", "#!/bin/sh\n", false, EACCES);
    row("folder", "Exec=HOME", "", true, EACCES);
    row("missing", "Exec=HOME/missing", "", true, ENOENT);
    row("name not in PATH", "Exec=no-such-program-anywhere", "", true, ENOENT);
    row("interpreter missing", "Exec=HOME/program", "#!/no/such/interpreter\n", true, ENOENT);
    row("working directory missing", "Exec=HOME/program\nPath=HOME/missing", "#!/bin/sh\n", true,
        ENOENT);
    row("below a file", "Exec=HOME/program/x", "", true, ENOTDIR);
    row("not a program", "Exec=HOME/program", "text\n", true, ENOEXEC);
}

void tst_DesktopApplication_Start::returnsErrnoOfFailedStart()
{
    QFETCH(QByteArray, lines);
    QFETCH(QByteArray, content);
    QFETCH(bool, executable);
    QFETCH(int, errorNumber);
    const QString path = home.writeFile(QStringLiteral("program"), content);
    QVERIFY(QFile::setPermissions(path,
        executable ? QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner
                   : QFile::ReadOwner | QFile::WriteOwner));
    install(lines.replace("HOME", home.path(QString()).toUtf8()));
    // Folders in PATH that this user may not read would change the errno.
    const QByteArray former = qgetenv("PATH");
    qputenv("PATH", "/usr/bin:/bin");
    const int status = openDesktopApplication();
    qputenv("PATH", former);
    QCOMPARE(status, errorNumber);
}

QTEST_GUILESS_MAIN(tst_DesktopApplication_Start)
#include "tst_desktopapplication_start.moc"
