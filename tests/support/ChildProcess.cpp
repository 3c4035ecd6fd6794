#include "tests/support/ChildProcess.h"

#include <QFile>
#include <QFileInfo>

#include <cstdio>
#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr uid_t ordinaryUser = 65534;

QByteArray warnings;

void keepWarning(QtMsgType, const QMessageLogContext&, const QString& message)
{
    warnings += '|' + message.toUtf8();
}

void writeAll(int file, const QByteArray& bytes)
{
    for (int done = 0; done < bytes.size();) {
        const ssize_t count = write(file, bytes.constData() + done, size_t(bytes.size() - done));
        if (count <= 0) {
            _exit(1);
        }
        done += int(count);
    }
}

bool putText(const char* path, const QByteArray& text)
{
    const int file = open(path, O_WRONLY);
    const bool done = file >= 0 && write(file, text.constData(), size_t(text.size())) > 0;
    close(file);
    return done;
}

} // namespace

QByteArray inChildProcess(const std::function<QByteArray()>& work)
{
    int ends[2];
    std::fflush(nullptr);
    if (pipe(ends) != 0) {
        return "no pipe";
    }
    // A high number, because the work may close the standard streams.
    const int resultEnd = fcntl(ends[1], F_DUPFD_CLOEXEC, 100);
    close(ends[1]);
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        qInstallMessageHandler(keepWarning);
        const QByteArray result = work();
        writeAll(resultEnd, result + warnings);
        _exit(0);
    }
    close(resultEnd);
    QFile reader;
    QByteArray result;
    if (reader.open(ends[0], QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        result = reader.readAll();
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0 ? result : "the child ended with " + QByteArray::number(status);
}

bool becomeOrdinaryUser()
{
    return geteuid() != 0
        || (setgroups(0, nullptr) == 0 && setgid(ordinaryUser) == 0 && setuid(ordinaryUser) == 0);
}

void giveToOrdinaryUser(const QString& path)
{
    if (geteuid() != 0) {
        return;
    }
    const QByteArray parent = QFile::encodeName(QFileInfo(path).path());
    if (chown(QFile::encodeName(path).constData(), ordinaryUser, gid_t(-1)) != 0
        || chmod(parent.constData(), 0755) != 0) {
        qFatal("Cannot change the owner of %s", qPrintable(path));
    }
}

bool limitFileSize(quint64 bytes)
{
    const rlimit limit{bytes, bytes};
    return setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

bool mountSmallDisk(const QByteArray& path, int bytes)
{
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (user != 0) {
        // An ordinary user may mount as root of a new user namespace.
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 || !putText("/proc/self/setgroups", "deny")
            || !putText("/proc/self/uid_map", "0 " + QByteArray::number(user) + " 1")
            || !putText("/proc/self/gid_map", "0 " + QByteArray::number(group) + " 1")) {
            return false;
        }
    } else if (unshare(CLONE_NEWNS) != 0) {
        return false;
    }
    return mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0
        && mount("none", path.constData(), "tmpfs", 0, "size=" + QByteArray::number(bytes)) == 0;
}
