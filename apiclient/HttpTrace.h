#pragma once

#include "apiclient/NetworkClient.h"

#include <QByteArray>
#include <QString>

/// The trace of the requests and replies, as Qt debug messages. Tracing is off by default.
///
/// The category "tessaron.http" prints one human-readable line per event: method, path and size of
/// a request; status, size, duration and transport error of a reply.
///
/// The category "tessaron.http.body" adds the bodies, which hold the document's text. It prints
/// only if the environment variable QT_LOGGING_RULES itself names this category, for example
/// "tessaron.http.body.debug=true". A wildcard or a logging configuration file does not enable it.
///
/// Each line of "tessaron.http.body" is a JSON object. The first line of an event has:
/// - "process", the process id, and "exchange", the number of the request within the process, from
///   1;
/// - "at", the time in UTC, and "bytes", the size of the body;
/// - "method" and "path" for a request, or "status", "elapsedMs" and, if the transport reported
///   one, "error" for a reply;
/// - the start of the body: "text", or "textBase64" for bytes that are not valid UTF-8.
/// Lines with "process", "exchange", "offset" (in bytes) and "text" or "textBase64" follow until
/// the body is complete. Each line is short enough for a single write, so that several processes
/// can trace into one file.
///
/// A request whose network thread could not be started has no reply event.

/// Traces a request that is about to be sent. An empty `body` is a GET.
void traceRequest(int exchange, const QString& path, const QByteArray& body);

/// Traces the reply to that request. `error` is the transport's error text, empty if there was no
/// error.
void traceReply(
    int exchange, const NetworkResponse& response, qint64 elapsedMs, const QString& error);
