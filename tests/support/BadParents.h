#pragma once

#include <QMetaType>

/// What careless parents leave their children with. Each runs in the child just before it starts
/// the program.
using Preparation = void (*)();
Q_DECLARE_METATYPE(Preparation)

void ignoreAllSignals();
void blockAllSignals();

/// Leaves two ends of a pipe and a file open, without close-on-exec.
void leaveFilesOpen();

/// Makes standard output a pipe that nobody reads any more.
void breakOutput();
