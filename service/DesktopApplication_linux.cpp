#include "service/DesktopApplication.h"

#include "service/DesktopEntry.h"

#include <QFile>
#include <QStandardPaths>

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <spawn.h>
#include <unistd.h>
#include <vector>

namespace {

// The number of macOS, so that a macro knows it on every platform.
constexpr int applicationNotFound = -10814;

/// The environment of the application: the bridge's own without what would have a desktop
/// activate the window that is about to open.
std::vector<char*> quietEnvironment()
{
    std::vector<char*> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const QByteArray text = QByteArray::fromRawData(*variable, int(std::strlen(*variable)));
        if (!text.startsWith("DESKTOP_STARTUP_ID=") && !text.startsWith("XDG_ACTIVATION_TOKEN=")) {
            variables.push_back(*variable);
        }
    }
    variables.push_back(nullptr);
    return variables;
}

struct SpawnAttributes {
    SpawnAttributes()
    {
        posix_spawnattr_init(&attributes);
        // A session of its own, so that it outlives the bridge and its terminal; no signal
        // ignored or blocked, whatever the bridge or its parent set.
        posix_spawnattr_setflags(
            &attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
        sigset_t signalSet;
        sigfillset(&signalSet);
        posix_spawnattr_setsigdefault(&attributes, &signalSet);
        sigemptyset(&signalSet);
        posix_spawnattr_setsigmask(&attributes, &signalSet);
    }
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes); }
    Q_DISABLE_COPY(SpawnAttributes)

    posix_spawnattr_t attributes{};
};

struct SpawnFileActions {
    explicit SpawnFileActions(const QByteArray& workingDirectory)
    {
        posix_spawn_file_actions_init(&actions);
        // The macro reads the bridge's output to its end: the application must not hold it open.
        for (int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", O_RDWR, 0);
        }
        posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
        if (!workingDirectory.isEmpty()) {
            posix_spawn_file_actions_addchdir_np(&actions, workingDirectory.constData());
        }
    }
    ~SpawnFileActions() { posix_spawn_file_actions_destroy(&actions); }
    Q_DISABLE_COPY(SpawnFileActions)

    posix_spawn_file_actions_t actions{};
};

/// Starts `entry` detached and returns 0 or the errno of the failure.
int start(const DesktopEntry& entry)
{
    std::vector<char*> arguments;
    for (const QByteArray& argument : entry.command) {
        arguments.push_back(const_cast<char*>(argument.constData()));
    }
    arguments.push_back(nullptr);
    const SpawnAttributes spawn;
    const SpawnFileActions files(entry.workingDirectory);
    pid_t processId = 0;
    return posix_spawnp(&processId, arguments.front(), &files.actions, &spawn.attributes,
        arguments.data(), quietEnvironment().data());
}

} // namespace

int openDesktopApplication()
{
    const QString fixedPath = QStringLiteral("/opt/Tessaron Desktop/tessaron-desktop");
    if (QFile::exists(fixedPath)) {
        return start({{QFile::encodeName(fixedPath)}, {}});
    }
    // The first entry in the search order counts, also when it says "not installed".
    const QString entryPath = QStandardPaths::locate(
        QStandardPaths::ApplicationsLocation, QStringLiteral("com.tessaron.desktop.desktop"));
    const auto entry = entryPath.isEmpty() ? std::nullopt : readDesktopEntry(entryPath);
    return entry ? start(*entry) : applicationNotFound;
}
