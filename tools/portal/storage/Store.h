#pragma once

#include "portal/storage/CipherFile.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace VelmoraPortal {

/// A file of a job, stored encrypted. `name` is the path below the job: the names of a simulation's files begin
/// with its id.
struct StoredFile {
    std::string name;
    long long number = 0; ///< never used twice
    std::string path;     ///< on disk
    std::int64_t size = 0;
    std::int64_t plainSize = -1; ///< -1: not encrypted with the job's key
    std::int64_t date = 0;       ///< milliseconds since the epoch
    std::string hash;
};

/// The jobs' keys and files, in a folder of its own. On disk the files are named by numbers only.
/// `freshPath` may be called from any thread; everything else belongs to the portal's thread.
class Store {
public:
    /// Throws std::runtime_error when the folder cannot be created.
    explicit Store(const std::string &directory);
    /// Removes the folder.
    ~Store();
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;

    /// A path for a file that is still being written.
    std::string freshPath();
    /// Takes over a complete file under that name; it replaces an earlier one.
    void keep(const std::string &jobId, const std::string &name, const std::string &path, std::int64_t date);
    bool remove(const std::string &jobId, const std::string &name);

    const std::map<std::string, StoredFile> &files(const std::string &jobId) const;
    const StoredFile *find(const std::string &jobId, const std::string &name) const;
    const StoredFile *find(const std::string &jobId, long long number) const;

    /// Created on first use.
    const Key &key(const std::string &jobId);

private:
    std::string m_directory;
    std::atomic<long long> m_fresh{0};
    long long m_number = 0;
    std::map<std::string, std::map<std::string, StoredFile>> m_files;
    std::map<std::string, Key> m_keys;
};

} // namespace VelmoraPortal
