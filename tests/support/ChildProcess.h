#pragma once

#include <QByteArray>
#include <QString>

#include <functional>

/// Runs `work` in a fork of this process and returns its result, followed by the fork's log
/// messages, each after a "|". Returns "the child ended with STATUS" if the fork did not end with
/// status 0. For work that would change the test's process: another user, a limit, closed streams.
QByteArray inChildProcess(const std::function<QByteArray()>& work);

/// Changes from root to an ordinary user for the rest of the process. Does nothing for another
/// user. Returns false on failure.
bool becomeOrdinaryUser();

/// Gives `path` to the ordinary user of becomeOrdinaryUser(), and makes its parent folder
/// accessible. Does nothing unless this process runs as root.
void giveToOrdinaryUser(const QString& path);

/// Limits the size of each file that this process writes. Returns false on failure.
bool limitFileSize(quint64 bytes);

/// Mounts a disk of `bytes` (whole pages) at the folder `path`, visible only to this process and
/// its children. Returns false if the system does not allow it.
bool mountSmallDisk(const QByteArray& path, int bytes);
