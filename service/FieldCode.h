#pragma once

#include <QString>
#include <QVariantMap>

/// The text of a citation field in a document: "ADDIN CSL_CITATION " and behind it the JSON of
/// one citation cluster.

/// Returns the field code of the cluster that a reply of the application holds under
/// "citationCluster", its keys in ascending order. Nothing is checked: without that key the
/// field code is "ADDIN CSL_CITATION null".
QString clusterToFieldCode(const QVariantMap& response);

/// Returns the cluster in `fieldCode`: the JSON object from the first "{" to the last "}",
/// whatever stands before and behind. An empty map when there is none or it is malformed.
QVariantMap jsonFromFieldCode(const QString& fieldCode);
