#pragma once

#include <QMetaType>

/// Process state that a badly behaved parent passes to its child. Each function runs in the child
/// just before it starts the program.
using Preparation = void (*)();
Q_DECLARE_METATYPE(Preparation)

void ignoreAllSignals();
void blockAllSignals();

/// Leaves both ends of a pipe and a file open, without close-on-exec.
void leaveFilesOpen();

/// Makes standard output a pipe without a reader.
void breakOutput();
