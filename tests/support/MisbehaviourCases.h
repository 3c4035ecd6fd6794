#pragma once

#include "tests/support/RawServer.h"

#include <QList>
#include <QString>

/// What the macro gets to read.
enum Outcome {
    Failed, ///< the command's failure result
    Nothing, ///< a success that holds nothing: the reply said 200 and was cut off
    FailedOrNothing, ///< a reset may overtake the bytes that were sent before it
};

/// One row of the tables below.
struct MisbehaviourCase {
    QByteArray name;
    Misbehaviour misbehaviour;
    Outcome outcome = Failed;
    /// The last error; null where it is in the transport's own words.
    QString error;
};

/// Everything that a server can do to a small request.
QList<MisbehaviourCase> misbehaviourCases();

/// What a server can do while 18 MB come in.
QList<MisbehaviourCase> cutUploadCases();
