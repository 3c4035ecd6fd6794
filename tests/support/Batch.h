#pragma once

#include "tests/support/JsonModel.h"

#include <QStringList>

/// One batch of random citations: the command's arguments, the expected request and the expected
/// results. The scripted application replies with the clusters that it should have received, each
/// written in another form, so every value passes through the program twice.
struct Batch {
    QString style;
    QString bibliography;
    std::vector<JsonValue> clusters;
    QStringList fieldCodes; ///< of the clusters, as a document might hold them
    QStringList texts;

    /// `clusterCount` clusters of about `size` values each.
    static Batch random(Generator* generator, int clusterCount, int size);

    int valueCount() const;
    /// The arguments of the command.
    QStringList arguments() const;
    /// The application's reply, as JSON.
    QByteArray reply(Generator* generator) const;

    /// Returns the first difference between the request that the application received and the
    /// expected one, or an empty string.
    QString requestProblem(const QByteArray& body, const QString& folder) const;
    /// Returns the first difference between the results, in the order of the results file, and the
    /// expected ones, or an empty string.
    QString resultsProblem(const QStringList& results) const;
};
