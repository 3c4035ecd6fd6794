#pragma once

#include <QString>
#include <QVariantMap>

/// A field code is the text of a citation field in a Word document: "ADDIN CSL_CITATION " followed
/// by the JSON of one citation cluster. Neither function sends a request or reports an error.

/// Returns the field code of the cluster under the key "citationCluster" of `response`, a reply of
/// the application. The JSON has its keys in ascending order. The value may be of any type. Without
/// the key, or if the cluster is too large for a QString, returns "ADDIN CSL_CITATION null".
QString clusterToFieldCode(const QVariantMap& response);

/// Returns the cluster in `fieldCode`: the JSON object from the first "{" to the last "}". The text
/// before and after it is ignored. Returns an empty map if there is no such object or it is
/// malformed.
QVariantMap jsonFromFieldCode(const QString& fieldCode);
