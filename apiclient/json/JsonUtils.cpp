#include "apiclient/json/JsonUtils.h"

namespace JsonUtils {

QVariant getValueAtPath(const QVariantMap& map, const QString& path)
{
    const QVariantMap* current = &map;
    int keyStart = 0;
    for (;;) {
        const int keyEnd = int(path.indexOf(QLatin1Char('.'), keyStart));
        const auto found =
            current->constFind(path.mid(keyStart, keyEnd < 0 ? -1 : keyEnd - keyStart));
        if (found == current->constEnd()) {
            return {};
        }
        if (keyEnd < 0) {
            return found.value();
        }
        if (found->userType() != QMetaType::QVariantMap) {
            return {};
        }
        current = static_cast<const QVariantMap*>(found->constData());
        keyStart = keyEnd + 1;
    }
}

} // namespace JsonUtils
