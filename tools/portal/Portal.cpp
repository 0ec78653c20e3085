#include "portal/Portal.h"

#include "portal/Core.h"

#include <algorithm>
#include <fstream>

namespace VelmoraPortal {

Portal::Portal(Options options)
    : m_core(std::make_unique<Core>(std::move(options)))
{
}
Portal::~Portal() = default;

std::uint16_t Portal::port() const { return m_core->server.port(); }
std::string Portal::host() const { return "127.0.0.1:" + std::to_string(port()); }
std::string Portal::caFile() const { return m_core->caFile; }
std::string Portal::caPem() const { return m_core->certificates.caPem; }

namespace {

/// Runs `work` on the portal's thread and returns its result.
template <typename Work> auto on(Server &server, Work work)
{
    decltype(work()) result{};
    server.call([&] { result = work(); });
    return result;
}

} // namespace

void Portal::inject(const Fault &fault)
{
    m_core->server.call([&] { m_core->addFault(fault); });
}

void Portal::clearFaults()
{
    m_core->server.call([&] { m_core->dropFaults(); });
}

std::size_t Portal::faultCount() const
{
    return on(m_core->server, [&] { return m_core->faults.all().size(); });
}

std::vector<SeenRequest> Portal::requests() const
{
    return on(m_core->server, [&] {
        const auto &seen = m_core->journal.requests();
        return std::vector<SeenRequest>(seen.begin(), seen.end());
    });
}

void Portal::clearRequests()
{
    m_core->server.call([&] { m_core->dropRequests(); });
}

std::size_t Portal::requestCount(const std::string &path) const
{
    return on(m_core->server, [&] {
        const auto &seen = m_core->journal.requests();
        return static_cast<std::size_t>(std::count_if(
            seen.begin(), seen.end(), [&](const SeenRequest &request) { return faultPath(request.target) == path; }));
    });
}

std::string Portal::stateJson() const
{
    return on(m_core->server, [&] {
        m_core->service.advance();
        return dump(m_core->stateOf());
    });
}

std::size_t Portal::jobCount() const
{
    return on(m_core->server, [&] { return m_core->service.state().jobs.size(); });
}

std::size_t Portal::jobCount(const std::string &status) const
{
    return on(m_core->server, [&] {
        m_core->service.advance();
        const auto &jobs = m_core->service.state().jobs;
        return static_cast<std::size_t>(
            std::count_if(jobs.begin(), jobs.end(), [&](const Job &job) { return job.status() == status; }));
    });
}

std::string Portal::jobStatus(const std::string &jobId) const
{
    return on(m_core->server, [&]() -> std::string {
        m_core->service.advance();
        for (const Job &job : m_core->service.state().jobs)
            if (job.id == jobId)
                return job.status();
        return {};
    });
}

void Portal::expireTokens()
{
    m_core->server.call([&] { m_core->invalidateTokens(); });
}

void Portal::setTokenLifetime(std::chrono::seconds lifetime)
{
    m_core->server.call([&] { m_core->changeTokenLifetime(lifetime); });
}

void Portal::setJobDuration(std::chrono::milliseconds duration)
{
    m_core->server.call([&] { m_core->changeJobDuration(duration); });
}

std::size_t Portal::sendToSockets(const std::string &jobId, const std::string &text)
{
    return on(m_core->server, [&] { return m_core->touchSockets("send", jobId, text, 0); });
}

std::size_t Portal::closeSockets(const std::string &jobId, int code, const std::string &reason)
{
    return on(m_core->server, [&] { return m_core->touchSockets("close", jobId, reason, code); });
}

std::size_t Portal::dropSockets(const std::string &jobId)
{
    return on(m_core->server, [&] { return m_core->touchSockets("drop", jobId, {}, 0); });
}

std::size_t Portal::silenceSockets(const std::string &jobId)
{
    return on(m_core->server, [&] { return m_core->touchSockets("silence", jobId, {}, 0); });
}

std::size_t Portal::openSocketCount(const std::string &jobId) const
{
    return on(m_core->server, [&] { return m_core->openSockets(jobId).size(); });
}

std::vector<SeenSocket> Portal::sockets() const
{
    return on(m_core->server, [&] {
        std::vector<SeenSocket> list;
        for (const auto &item : m_core->journal.sockets())
            list.push_back(item.second);
        return list;
    });
}

std::vector<SeenFile> Portal::files(const std::string &jobId) const
{
    return on(m_core->server, [&] {
        std::vector<SeenFile> list;
        for (const auto &[name, file] : m_core->store.files(jobId))
            list.push_back({name, file.size, file.plainSize, file.hash});
        return list;
    });
}

std::string Portal::jobKey(const std::string &jobId) const
{
    return on(m_core->server, [&] {
        const Key &key = m_core->store.key(jobId);
        return std::string(key.begin(), key.end());
    });
}

namespace {

/// The file's plain bytes, opened on the portal's thread and read on the caller's; null when there is no such file.
std::shared_ptr<BodySource> plainSource(Core &core, const std::string &jobId, const std::string &name)
{
    return on(core.server, [&]() -> std::shared_ptr<BodySource> {
        const StoredFile *file = core.store.find(jobId, name);
        if (!file || file->plainSize < 0)
            return nullptr;
        return plainBytes(file->path, core.store.key(jobId), 0, file->plainSize);
    });
}

constexpr std::size_t bufferSize = 256 * 1024;

} // namespace

std::optional<std::string> Portal::plainFile(const std::string &jobId, const std::string &name) const
{
    const auto source = plainSource(*m_core, jobId, name);
    if (!source)
        return {};
    std::string text;
    std::string buffer(bufferSize, '\0');
    while (const std::size_t count = source->give(buffer.data(), buffer.size()))
        text.append(buffer, 0, count);
    return text;
}

bool Portal::savePlainFile(const std::string &jobId, const std::string &name, const std::string &path) const
{
    const auto source = plainSource(*m_core, jobId, name);
    if (!source)
        return false;
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    std::string buffer(bufferSize, '\0');
    while (const std::size_t count = source->give(buffer.data(), buffer.size()))
        file.write(buffer.data(), static_cast<std::streamsize>(count));
    file.close();
    return static_cast<bool>(file);
}

void Portal::addFile(const std::string &jobId, const std::string &name, const std::string &plain)
{
    m_core->addFile(jobId, name, [&](CipherWriter &writer) { writer.write(plain); });
}

void Portal::addFileFrom(const std::string &jobId, const std::string &name, const std::string &plainPath)
{
    const File source(plainPath, File::Mode::Read);
    m_core->addFile(jobId, name, [&](CipherWriter &writer) {
        std::string buffer(bufferSize, '\0');
        long long offset = 0;
        while (const std::size_t count = source.read(buffer.data(), buffer.size(), offset)) {
            writer.write(buffer.data(), count);
            offset += static_cast<long long>(count);
        }
    });
}

bool Portal::removeFile(const std::string &jobId, const std::string &name)
{
    return on(m_core->server, [&] { return m_core->store.remove(jobId, name); });
}

StorageOptions Portal::storage() const
{
    return on(m_core->server, [&] { return m_core->storageOptions(); });
}

void Portal::setStorage(const StorageOptions &options)
{
    m_core->server.call([&] { m_core->changeStorage(options); });
}

} // namespace VelmoraPortal
