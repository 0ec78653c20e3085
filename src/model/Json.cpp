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

namespace {

template <class Record> Record readOver(Record record, const QJsonObject &object)
{
    forEachField<Record>([&](const auto &field) {
        auto &known = record.*field.member;
        using Value = std::decay_t<decltype(known)>;
        const QJsonValue value = object.value(QLatin1String(field.textKey));
        if constexpr (std::is_same_v<Value, bool>)
            known = value.toBool(known);
        else if constexpr (std::is_same_v<Value, int>)
            known = value.toInt(known);
        else if constexpr (std::is_same_v<Value, std::string>)
            known = value.isString() ? value.toString().toStdString() : known;
        else if (value.isDouble())
            known = Detail::toInteger(value);
    });
    return record;
}

} // namespace

template <> ClientOptions readInput(const QByteArray &text)
{
    const QJsonObject object = QJsonDocument::fromJson(text).object();
    const bool robust = object.value(QLatin1String(Schema<ClientOptions>::robustKey)).toBool();
    return readOver(robust ? ClientOptions::robust() : ClientOptions(), object);
}

template <> ProxyDefinition readInput(const QByteArray &text)
{
    ProxyDefinition none;
    none.proxyType = -1;
    return readOver(none, QJsonDocument::fromJson(text).object());
}

} // namespace Velmora
