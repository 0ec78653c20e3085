#pragma once

#include "model/Schema.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <QVariant>

#include <list>
#include <type_traits>

// Readers never fail: a missing key or a value of another type reads as empty, zero or false, and
// text that is not JSON reads as an empty object or array.

namespace Velmora {

/// The three JSON forms of a record differ in key names and in how wide integers are.
enum class Form {
    Reply,  ///< what the service sends
    Input,  ///< what an application passes as text
    Output, ///< what applications receive as text; flags are the strings "true" and "false"
};

inline QString toQt(const std::string &text) { return QString::fromStdString(text); }

/// A request body, or text for an application: the indented form.
inline QByteArray toText(const QJsonObject &object) { return QJsonDocument(object).toJson(); }

template <class Record> Record readRecord(const QJsonObject &object, Form form);
template <class Record> QJsonObject writeRecord(const Record &record, Form form);

namespace Detail {

template <class T, class = void> struct IsRecord : std::false_type {
};
template <class T> struct IsRecord<T, std::void_t<decltype(Schema<T>::fields())>> : std::true_type {
};
template <class T> struct IsList : std::false_type {
};
template <class T> struct IsList<std::list<T>> : std::true_type {
};

/// An integer of 64 bits, also one that is written as a text; 0 for anything else.
long long toInteger(const QJsonValue &value);

template <class T> T readValue(const QJsonValue &value, Form form, Width width)
{
    if constexpr (std::is_same_v<T, std::string>) {
        return value.toString().toStdString();
    } else if constexpr (std::is_same_v<T, bool>) {
        return value.toBool();
    } else if constexpr (std::is_same_v<T, int> || std::is_enum_v<T>) {
        return static_cast<T>(value.toInt());
    } else if constexpr (std::is_same_v<T, long long>) {
        return width == Width::Int32 ? value.toInt() : toInteger(value);
    } else if constexpr (std::is_same_v<T, double>) {
        return value.toDouble();
    } else if constexpr (IsList<T>::value) {
        T list;
        const QJsonArray array = value.toArray();
        for (const QJsonValue &element : array)
            list.push_back(readValue<typename T::value_type>(element, form, width));
        return list;
    } else {
        static_assert(IsRecord<T>::value, "no JSON form for this type");
        return readRecord<T>(value.toObject(), form);
    }
}

template <class T> QJsonValue writeValue(const T &value, Form form)
{
    if constexpr (std::is_same_v<T, std::string>) {
        return toQt(value);
    } else if constexpr (std::is_same_v<T, bool>) {
        if (form == Form::Output)
            return value ? QStringLiteral("true") : QStringLiteral("false");
        return value;
    } else if constexpr (std::is_same_v<T, long long>) {
        return static_cast<qint64>(value);
    } else if constexpr (std::is_enum_v<T>) {
        return static_cast<int>(value);
    } else if constexpr (std::is_arithmetic_v<T>) {
        return value;
    } else if constexpr (IsList<T>::value) {
        QJsonArray array;
        for (const auto &element : value)
            array.append(writeValue(element, form));
        return array;
    } else {
        static_assert(IsRecord<T>::value, "no JSON form for this type");
        return writeRecord(value, form);
    }
}

} // namespace Detail

template <class Record> Record readRecord(const QJsonObject &object, Form form)
{
    Record record{};
    forEachField<Record>([&](const auto &field) {
        using Value = std::decay_t<decltype(record.*field.member)>;
        if (form == Form::Reply) {
            const QJsonValue value = field.replyObject
                                         ? object.value(QLatin1String(field.replyObject))[QLatin1String(field.replyKey)]
                                         : object.value(QLatin1String(field.replyKey));
            if constexpr (std::is_same_v<Value, std::string>) {
                if (field.clean) {
                    record.*field.member = field.clean(value.toString()).toStdString();
                    return;
                }
            }
            record.*field.member = Detail::readValue<Value>(value, form, field.replyWidth);
        } else if (field.input) {
            record.*field.member =
                Detail::readValue<Value>(object.value(QLatin1String(field.textKey)), form, field.inputWidth);
        }
    });
    return record;
}

template <class Record> QJsonObject writeRecord(const Record &record, Form form)
{
    QJsonObject object;
    forEachField<Record>([&](const auto &field) {
        const char *key = form == Form::Reply ? field.replyKey : field.textKey;
        object.insert(QLatin1String(key), Detail::writeValue(record.*field.member, form));
    });
    return object;
}

/// The key of a member in one of the forms.
template <class Record, class Value> QLatin1String keyOf(Value Record::*member, Form form)
{
    const char *key = nullptr;
    forEachField<Record>([&](const auto &field) {
        if constexpr (std::is_convertible_v<decltype(field.member), Value Record::*>)
            if (field.member == member)
                key = form == Form::Reply ? field.replyKey : field.textKey;
    });
    return QLatin1String(key);
}

/// Reads the top-level object of a reply's body.
template <class Record> Record readReply(const QByteArray &body)
{
    return readRecord<Record>(QJsonDocument::fromJson(body).object(), Form::Reply);
}

/// Reads an array of a reply; an element that is not an object becomes an empty record.
template <class Record> std::list<Record> readReplyList(const QJsonArray &array)
{
    return Detail::readValue<std::list<Record>>(array, Form::Reply, Width::Natural);
}

/// Reads the top-level array of a reply's body.
template <class Record> std::list<Record> readReplyList(const QByteArray &body)
{
    return readReplyList<Record>(QJsonDocument::fromJson(body).array());
}

/// Reads a record that an application passes as text.
template <class Record> Record readInput(const QByteArray &text)
{
    return readRecord<Record>(QJsonDocument::fromJson(text).object(), Form::Input);
}

// As above, but a key that is missing, or whose value has another type, leaves the field as it starts: an option as it
// is by default, a proxy without a type, which sets none.
template <> ClientOptions readInput(const QByteArray &text);
template <> ProxyDefinition readInput(const QByteArray &text);

/// The "message" of a refusal's body; empty when there is none.
inline QString bodyMessage(const QByteArray &body)
{
    return QJsonDocument::fromJson(body).object().value(QLatin1String("message")).toString();
}

/// The text that an application receives for one record.
template <class Record> std::string outputText(const Record &record)
{
    return toText(writeRecord(record, Form::Output)).toStdString();
}

/// The text that an application receives for a list: one object whose only key names the list.
template <class Record> std::string outputText(const std::list<Record> &records)
{
    return toText({{QLatin1String(Schema<Record>::listKey), Detail::writeValue(records, Form::Output)}}).toStdString();
}

} // namespace Velmora
