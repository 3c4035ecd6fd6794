#pragma once

#include "tests/support/JsonModel.h"

#include <QStringList>

/// One batch of random citations: what goes in, what the application is to be told, and what is
/// to come out. The application of these tests is scripted: it answers with the clusters that it
/// is to be told, each written anew, so what comes out has passed through twice.
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
    /// The application's answer, as JSON.
    QByteArray reply(Generator* generator) const;

    /// Says what is wrong with the request that the application got; empty when all is well.
    QString wrongRequest(const QByteArray& body, const QString& folder) const;
    /// Says what is wrong with the results, in the order in which the macro gets them.
    QString wrongResults(const QStringList& results) const;
};
