// The field code reader. Input: the text of a field, as UTF-8 if it is valid, otherwise as UTF-16.

#include "service/FieldCode.h"
#include "tests/fuzz/Check.h"
#include "tests/fuzz/JsonProperties.h"
#include "tests/support/Utf8.h"

namespace {

QString textFrom(const QByteArray& bytes)
{
    const std::optional<QString> text = textFromUtf8(bytes);
    return text ? *text
                : QString::fromUtf16(
                    reinterpret_cast<const char16_t*>(bytes.constData()), bytes.size() / 2);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size));
    const QString fieldCode = textFrom(bytes);
    const QVariantMap cluster = jsonFromFieldCode(fieldCode);

    const QString written = clusterToFieldCode({{QStringLiteral("citationCluster"), cluster}});
    check(
        written.startsWith(QLatin1String("ADDIN CSL_CITATION {")), "writes a cluster as an object");
    check(isSameValue(jsonFromFieldCode(written), cluster),
        "keeps a cluster that is written and read");
    check(
        isSameValue(jsonFromFieldCode(QStringLiteral("\"[]") + fieldCode + QStringLiteral("[]\"")),
            cluster),
        "ignores the text around the braces");

    checkJsonProperties(bytes);
    checkJsonProperties(fieldCode.mid(fieldCode.indexOf(QLatin1Char('{'))).toUtf8());
    return 0;
}
