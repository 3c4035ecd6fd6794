// The field code reader. Input: the text of a field, in UTF-8 where it can be, else in UTF-16.

#include "service/FieldCode.h"
#include "tests/fuzz/Check.h"
#include "tests/fuzz/JsonProperties.h"

#include <QTextCodec>

namespace {

QString textFrom(const QByteArray& bytes)
{
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    const QString text =
        QTextCodec::codecForName("UTF-8")->toUnicode(bytes.constData(), bytes.size(), &state);
    return state.invalidChars + state.remainingChars == 0
        ? text
        : QString::fromUtf16(reinterpret_cast<const ushort*>(bytes.constData()), bytes.size() / 2);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size));
    const QString fieldCode = textFrom(bytes);
    const QVariantMap cluster = jsonFromFieldCode(fieldCode);

    const QString written = clusterToFieldCode({{QStringLiteral("citationCluster"), cluster}});
    check(written.startsWith(QLatin1String("ADDIN CSL_CITATION {")), "a cluster is an object");
    check(isSameValue(jsonFromFieldCode(written), cluster), "read(write(cluster)) is cluster");
    check(
        isSameValue(jsonFromFieldCode(QStringLiteral("\"[]") + fieldCode + QStringLiteral("[]\"")),
            cluster),
        "what stands around the braces does not matter");

    checkJsonProperties(bytes);
    checkJsonProperties(fieldCode.mid(fieldCode.indexOf(QLatin1Char('{'))).toUtf8());
    return 0;
}
