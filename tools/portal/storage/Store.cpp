#include "portal/storage/Store.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

namespace VelmoraPortal {
namespace fs = std::filesystem;

Store::Store(const std::string &directory)
    : m_directory(makeTemporaryFolder((fs::path(directory) / "storage-").string()))
{
    if (m_directory.empty())
        throw std::runtime_error("Cannot create the storage folder in " + directory);
}

Store::~Store() { removeFolder(m_directory); }

std::string Store::freshPath() { return m_directory + "/new-" + std::to_string(++m_fresh); }

void Store::keep(const std::string &jobId, const std::string &name, const std::string &path, std::int64_t date)
{
    const CipherFacts facts = inspect(path, key(jobId));
    StoredFile file;
    file.name = name;
    file.number = ++m_number;
    file.path = m_directory + '/' + std::to_string(file.number);
    file.size = facts.size;
    file.plainSize = facts.plainSize;
    file.date = date;
    file.hash = facts.hash;
    fs::rename(path, file.path);
    remove(jobId, name);
    m_files[jobId][name] = std::move(file);
}

bool Store::remove(const std::string &jobId, const std::string &name)
{
    auto &files = m_files[jobId];
    const auto found = files.find(name);
    if (found == files.end())
        return false;
    removeFile(found->second.path);
    files.erase(found);
    return true;
}

const std::map<std::string, StoredFile> &Store::files(const std::string &jobId) const
{
    static const std::map<std::string, StoredFile> none;
    const auto found = m_files.find(jobId);
    return found == m_files.end() ? none : found->second;
}

const StoredFile *Store::find(const std::string &jobId, const std::string &name) const
{
    const auto &all = files(jobId);
    const auto found = all.find(name);
    return found == all.end() ? nullptr : &found->second;
}

const StoredFile *Store::find(const std::string &jobId, long long number) const
{
    for (const auto &item : files(jobId))
        if (item.second.number == number)
            return &item.second;
    return nullptr;
}

const Key &Store::key(const std::string &jobId)
{
    const auto [entry, fresh] = m_keys.try_emplace(jobId);
    if (fresh) {
        const std::string random = randomBytes(entry->second.size());
        std::copy(random.begin(), random.end(), entry->second.begin());
    }
    return entry->second;
}

} // namespace VelmoraPortal
