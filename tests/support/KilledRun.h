#pragma once

#include <QByteArray>
#include <QString>

class ExchangeFolder;

/// What the three files held before a run that is killed, and what a whole run would leave.
/// A null array stands for a file that is not there.
struct ExchangeState {
    QByteArray oldResults;
    QByteArray oldReady;
    QByteArray newResults;
    QByteArray newReady;
};

/// Says what a killed run left that no moment of a run explains; empty when all is well.
QByteArray wrongness(const ExchangeFolder& folder, const ExchangeState& state);

/// Puts the old files of `state` into `folder`, or takes away what is there.
void prepareFolder(const ExchangeFolder& folder, const ExchangeState& state);

/// Starts the bridge with `command` on `folder`, its output on the null device, and returns its
/// process id. `traced` has it stop at once, to be traced by this process.
int startBridge(const char* command, const ExchangeFolder& folder, bool traced = false);
