#pragma once

#include "tests/support/RawServer.h"

#include <QList>
#include <QString>

/// The results that the macro reads.
enum Outcome {
    Failed, ///< the command's failure result
    EmptySuccess, ///< a success without content: status 200 with an empty or cut-off body
    FailedOrEmptySuccess, ///< either: a reset may overtake the bytes sent before it
};

/// One row of the tables below.
struct MisbehaviourCase {
    QByteArray name;
    Misbehaviour misbehaviour;
    Outcome outcome = Failed;
    /// The last error; null if it is the transport's text.
    QString error;
};

/// What a server can do to a small request.
QList<MisbehaviourCase> misbehaviourCases();

/// What a server can do while it receives 18 MB.
QList<MisbehaviourCase> cutUploadCases();
