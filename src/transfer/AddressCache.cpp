#include "transfer/AddressCache.h"

#include <algorithm>

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

int AddressCache::take(Entries &listing, qint64 now)
{
    Entries expired;
    const auto isExpired = [&](const QString &key, const Entry &entry) {
        const bool is = timeLeft(entry.stored, now) < 0;
        if (is)
            expired.insert(key, entry);
        return is;
    };
    const int removed = removeIf(isExpired);
    m_entries.reserve(std::max(m_entries.size(), listing.size()));
    for (auto entry = listing.begin(); entry != listing.end(); ++entry) {
        entry->stored = now;
        std::swap(m_entries[entry.key()], *entry);
    }
    listing.insert(expired);
    return removed;
}

} // namespace Velmora
