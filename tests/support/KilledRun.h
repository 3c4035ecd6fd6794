#pragma once

#include <QByteArray>
#include <QString>

class ExchangeFolder;

/// The files before a run that is killed, and the files that a complete run would leave. A null
/// array stands for a missing file.
struct ExchangeState {
    QByteArray oldResults;
    QByteArray oldReady;
    QByteArray newResults;
    QByteArray newReady;
};

/// Checks that a run killed at some point can have left the files in `folder`. Returns what is
/// wrong, or an empty array.
QByteArray problemAfterKill(const ExchangeFolder& folder, const ExchangeState& state);

/// Writes the old files of `state` into `folder`, and removes those that `state` lacks.
void prepareFolder(const ExchangeFolder& folder, const ExchangeState& state);

/// Starts the bridge with `command` on `folder`, its output on the null device, and returns its
/// process id. If `traced`, it stops before its first instruction, to be traced by this process.
int startBridge(const char* command, const ExchangeFolder& folder, bool traced = false);
