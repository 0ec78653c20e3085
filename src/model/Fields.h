#pragma once

#include <string>
#include <tuple>

class QString;

namespace Velmora {

/// How wide an integer is read. Some 64-bit fields have always been read as 32 bits.
enum class Width { Natural, Int32 };

/// One field of a record: where it lives, what it is called in each JSON form, how it is read.
/// `Schema<Record>::fields()` lists them in the record's own order; every reader, writer and view
/// walks that list.
template <class Record, class Value> struct Field {
    Value Record::*member;
    const char *replyKey;
    const char *textKey;
    const char *replyObject = nullptr; ///< the reply's member object that holds the key; null: the reply itself
    Width replyWidth = Width::Natural;
    bool input = false; ///< read when an application passes the record as text
    Width inputWidth = Width::Natural;
    QString (*clean)(const QString &) = nullptr; ///< applied to text from a reply

    constexpr Field within(const char *object) const
    {
        Field copy = *this;
        copy.replyObject = object;
        return copy;
    }
    constexpr Field narrowReply() const
    {
        Field copy = *this;
        copy.replyWidth = Width::Int32;
        return copy;
    }
    constexpr Field asInput(Width width = Width::Natural) const
    {
        Field copy = *this;
        copy.input = true;
        copy.inputWidth = width;
        return copy;
    }
    constexpr Field cleaned(QString (*with)(const QString &)) const
    {
        Field copy = *this;
        copy.clean = with;
        return copy;
    }
};

/// A field with different names in the service's reply and in the application's text.
template <class Record, class Value>
constexpr Field<Record, Value> field(Value Record::*member, const char *replyKey, const char *textKey)
{
    return {member, replyKey, textKey};
}

/// A field with one name everywhere.
template <class Record, class Value> constexpr Field<Record, Value> field(Value Record::*member, const char *key)
{
    return {member, key, key};
}

/// The fields of a record; specialised in Schema.h.
template <class Record> struct Schema;

/// Calls `visit` with each field of the record, in the record's order.
template <class Record, class Visitor> constexpr void forEachField(Visitor &&visit)
{
    std::apply([&](const auto &...each) { (visit(each), ...); }, Schema<Record>::fields());
}

} // namespace Velmora
