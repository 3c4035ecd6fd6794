// The reply reader. Input: one byte that chooses the status, and the body.

#include "apiclient/PluginApiClient.h"
#include "tests/fuzz/Check.h"
#include "tests/fuzz/JsonProperties.h"

#include <QCoreApplication>
#include <QJsonObject>

namespace {

constexpr int statuses[] = {200, 0, 100, 201, 204, 302, 404, 500, 599, -1};
constexpr char formerError[] = "the error before";

struct Client {
    int argumentCount = 1;
    char name[5] = "fuzz";
    char* arguments[2] = {name, nullptr};
    QCoreApplication application{argumentCount, arguments};
    PluginApiClient api{50002};
};

void checkLastError(int status, const QByteArray& body, const QString& error)
{
    if (status == 200) {
        check(error == QLatin1String(formerError), "keeps the last error after a success");
        return;
    }
    const auto document = readByQt(body);
    if (!document) {
        return;
    }
    const QJsonValue reported = document->object().value(QStringLiteral("error"));
    if (reported.isString()) {
        check(error == reported.toString(), "takes the object's error");
    } else if (reported.isUndefined()) {
        check(error == QString::fromUtf8(body.constData(), body.size()),
            "takes the body as the error otherwise");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static Client client;
    if (size == 0) {
        return 0;
    }
    const int status = statuses[data[0] % std::size(statuses)];
    // Not copied, so that the address sanitizer reports a read past the end.
    const QByteArray body =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data) + 1, int(size) - 1);

    client.api.setLastError(QLatin1String(formerError));
    const QVariantMap map = client.api.parseResponse(status, body);
    checkLastError(status, body, client.api.lastError());
    check(isSameValue(map, client.api.parseResponse(200, body)),
        "returns the same map for every status");
    checkSurvivesWriting(map);
    checkJsonProperties(body);
    return 0;
}
