#pragma once

#include <QHash>
#include <QJsonObject>
#include <QString>

#include <functional>
#include <optional>

namespace Velmora {

/// Transfer addresses that the portal gave, for as long as they may be used again. Times are milliseconds since the
/// epoch.
class AddressCache {
public:
    struct Entry {
        QJsonObject address;
        qint64 stored = 0;
    };

    /// For which an address that was stored then may still be used; below 0: it may not. One from the future may not:
    /// the clock was set back, and nobody knows how old it is.
    static qint64 timeLeft(qint64 stored, qint64 now) { return stored > now ? -1 : stored + lifetime - now; }

    using Entries = QHash<QString, Entry>;

    std::optional<Entry> find(const QString &key, qint64 now);
    void store(const QString &key, const QJsonObject &address, qint64 now) { m_entries[key] = {address, now}; }
    /// Takes over the addresses of a listing, which are as old as `now`. Leaves in `listing` what they replace and what
    /// has expired: whoever has it releases it, which takes a while for thousands. Returns how many had expired.
    int take(Entries &listing, qint64 now);
    /// Removes this address, unless another one has taken its place.
    void remove(const QString &key, const QJsonObject &address);
    /// Returns how many entries were removed.
    int removeIf(const std::function<bool(const QString &key, const Entry &)> &wanted);

private:
    static constexpr qint64 lifetime = 30 * 60 * 1000;

    Entries m_entries;
};

} // namespace Velmora
