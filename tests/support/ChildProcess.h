#pragma once

#include <QByteArray>
#include <QString>

#include <functional>

/// Runs `work` in a copy of this process and returns what it returned; when the copy did not end
/// by itself, a text that says so. For what would spoil the test's own process: another user, a
/// limit, closed streams. The copy's warnings stand behind its answer, each after a "|".
QByteArray inChildProcess(const std::function<QByteArray()>& work);

/// Ends being root, for good; does nothing for another user. False when it does not work.
bool becomeOrdinaryUser();

/// Gives `path` to the user that becomeOrdinaryUser() becomes, and lets that user come by
/// through its parent folder.
void giveToOrdinaryUser(const QString& path);

/// Lets no file grow beyond `bytes`.
bool limitFileSize(quint64 bytes);

/// Puts a disk of `bytes` (whole pages) at the folder `path`, seen by this process and its
/// children only. False where the system does not allow it.
bool mountSmallDisk(const QByteArray& path, int bytes);
