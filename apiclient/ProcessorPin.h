#pragma once

#include <QByteArray>

/// Keeps the calling thread, and every thread that it starts, on the current processor while this
/// object exists. This suits threads that only take turns: one thread then hands over to the other
/// without waking a sleeping processor. Afterwards the calling thread may run on the same
/// processors as before; a thread that it started stays on its one.
///
/// Does nothing if the system does not permit it, and on macOS.
class ProcessorPin {
public:
    ProcessorPin();
    ~ProcessorPin();
    Q_DISABLE_COPY(ProcessorPin)

private:
    QByteArray former; // the thread's former set of processors; empty if it is not pinned
};
