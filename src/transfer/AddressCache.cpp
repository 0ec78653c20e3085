#include "transfer/AddressCache.h"

namespace Velmora {

std::optional<QJsonValue> AddressCache::find(const QString &key, qint64 now)
{
    const auto entry = m_entries.find(key);
    if (entry == m_entries.end())
        return {};
    if (isStale(*entry, now)) {
        m_entries.erase(entry);
        return {};
    }
    return entry->address;
}

int AddressCache::removeStale(qint64 now)
{
    int removed = 0;
    for (auto entry = m_entries.begin(); entry != m_entries.end();) {
        if (isStale(*entry, now)) {
            entry = m_entries.erase(entry);
            ++removed;
        } else {
            ++entry;
        }
    }
    return removed;
}

} // namespace Velmora
