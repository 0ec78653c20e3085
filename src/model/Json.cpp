#include "model/Json.h"

namespace Velmora {

QString withoutFixedSwitches(const QString &consoleParameters)
{
    return QString(consoleParameters).remove(QStringLiteral("-noterm -s")).trimmed();
}

// Qt reads a larger number as a `double`, whose conversion to an integer has no defined result.
long long Detail::toInteger(const QJsonValue &value)
{
    const QVariant number = value.toVariant();
    constexpr double limit = 9223372036854775808.0; // 2^63
    if (number.userType() == QMetaType::Double && !(number.toDouble() >= -limit && number.toDouble() < limit))
        return 0;
    return number.toLongLong();
}

template <> ClientOptions readInput(const QByteArray &text)
{
    const QJsonObject object = QJsonDocument::fromJson(text).object();
    ClientOptions options;
    if (object.value(QLatin1String(Schema<ClientOptions>::robustKey)).toBool())
        options = ClientOptions::robust();
    forEachField<ClientOptions>([&](const auto &field) {
        auto &option = options.*field.member;
        using Option = std::decay_t<decltype(option)>;
        const QJsonValue value = object.value(QLatin1String(field.textKey));
        if constexpr (std::is_same_v<Option, bool>)
            option = value.toBool(option);
        else if constexpr (std::is_same_v<Option, int>)
            option = value.toInt(option);
        else if constexpr (std::is_same_v<Option, std::string>)
            option = value.isString() ? value.toString().toStdString() : option;
        else if (value.isDouble())
            option = Detail::toInteger(value);
    });
    return options;
}

} // namespace Velmora
