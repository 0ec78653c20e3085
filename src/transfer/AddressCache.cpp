#include "transfer/AddressCache.h"

namespace Velmora {

std::optional<AddressCache::Entry> AddressCache::find(const QString &key, qint64 now)
{
    const auto entry = m_entries.find(key);
    if (entry == m_entries.end())
        return {};
    if (timeLeft(entry->stored, now) < 0) {
        m_entries.erase(entry);
        return {};
    }
    return *entry;
}

void AddressCache::remove(const QString &key, const QJsonObject &address)
{
    if (const auto entry = m_entries.find(key); entry != m_entries.end() && entry->address == address)
        m_entries.erase(entry);
}

int AddressCache::removeIf(const std::function<bool(const QString &, const Entry &)> &wanted)
{
    int removed = 0;
    for (auto entry = m_entries.begin(); entry != m_entries.end();) {
        if (wanted(entry.key(), *entry)) {
            entry = m_entries.erase(entry);
            ++removed;
        } else {
            ++entry;
        }
    }
    return removed;
}

int AddressCache::removeStale(qint64 now)
{
    return removeIf([now](const QString &, const Entry &entry) { return timeLeft(entry.stored, now) < 0; });
}

} // namespace Velmora
