#pragma once

#include <QMetaType>

/// What careless parent processes leave to their children. Each function runs in the child just
/// before it starts the program.
using Preparation = void (*)();
Q_DECLARE_METATYPE(Preparation)

void ignoreAllSignals();
void blockAllSignals();

/// Leaves both ends of a pipe and a file open, without close-on-exec.
void leaveFilesOpen();

/// Makes standard output a pipe without a reader.
void breakOutput();
