#pragma once

#include <QJsonValue>
#include <QMap>
#include <QString>

#include <optional>

namespace Velmora {

/// Transfer addresses that the portal gave, for as long as they may be used again. Times are milliseconds since the
/// epoch.
class AddressCache {
public:
    static constexpr qint64 lifetime = 30 * 60 * 1000;

    std::optional<QJsonValue> find(const QString &key, qint64 now);
    void store(const QString &key, const QJsonValue &address, qint64 now) { m_entries[key] = {address, now}; }
    void remove(const QString &key) { m_entries.remove(key); }
    /// Returns how many entries had expired.
    int removeStale(qint64 now);

private:
    struct Entry {
        QJsonValue address;
        qint64 stored = 0;
    };
    static bool isStale(const Entry &entry, qint64 now) { return entry.stored + lifetime < now; }

    QMap<QString, Entry> m_entries;
};

} // namespace Velmora
