#include "storage/Sink.h"

#include "base/PoolWork.h"

#include <algorithm>
#include <utility>

namespace Velmora {

namespace {

constexpr std::size_t bufferSize = 256 * 1024;
constexpr std::size_t mostHeld = 4 * bufferSize;
constexpr std::size_t mostSpare = 2;

} // namespace

Sink::Sink(std::shared_ptr<WorkingFile> file, const QByteArray &key)
    : m_file(std::move(file))
    , m_key(key)
{
    setCipher();
}

void Sink::setCipher()
{
    const CipherKey bytes(m_key);
    if (!m_key.isEmpty() && bytes.isValid())
        m_cipher = std::make_unique<Cipher>(Cipher::Direction::Decrypt, bytes.data(), fixedIv);
}

void Sink::begin(QThreadPool *pool, std::function<void()> onRoom)
{
    const std::lock_guard lock(m_mutex);
    m_pool = pool;
    m_onRoom = std::move(onRoom);
    m_full = false;
}

Sink::State Sink::put(const char *data, std::size_t size)
{
    const std::lock_guard lock(m_mutex);
    if (m_ended)
        return State::Failed;
    if (m_held > 0 && m_held + size > mostHeld) {
        m_full = true;
        return State::Full;
    }
    if (m_waiting.empty() || static_cast<std::size_t>(m_waiting.back().size()) + size > bufferSize)
        addBuffer();
    m_waiting.back().append(data, static_cast<int>(size));
    m_held += size;
    m_received += static_cast<qint64>(size);
    if (m_waiting.size() > 1 && !std::exchange(m_writing, true))
        startOnPool(m_pool, [self = shared_from_this()] { self->write(); });
    return State::Taken;
}

// A buffer that was written is used again, and one behind the first gets its size at once: small files stay cheap.
void Sink::addBuffer()
{
    if (m_spare.empty()) {
        m_waiting.emplace_back();
        if (m_received > 0)
            m_waiting.back().reserve(static_cast<int>(bufferSize));
    } else {
        m_waiting.push_back(std::move(m_spare.back()));
        m_spare.pop_back();
    }
}

bool Sink::hasFailed() const
{
    const std::lock_guard lock(m_mutex);
    return m_ended;
}

qint64 Sink::received() const
{
    const std::lock_guard lock(m_mutex);
    return m_received;
}

void Sink::restart()
{
    const std::lock_guard lock(m_mutex);
    for (const QByteArray &part : m_waiting)
        m_held -= static_cast<std::size_t>(part.size());
    m_waiting.clear();
    m_restart = m_restart || m_received > 0;
    m_received = 0;
}

void Sink::detach()
{
    const std::lock_guard lock(m_mutex);
    m_onRoom = nullptr;
}

// Takes the next part, unless no more than `left` wait.
bool Sink::next(QByteArray *part, std::size_t left)
{
    const std::lock_guard lock(m_mutex);
    m_held -= static_cast<std::size_t>(part->size()); // the one before
    if (part->capacity() >= static_cast<int>(bufferSize) && m_spare.size() < mostSpare) {
        part->resize(0); // keeps what is reserved
        m_spare.push_back(std::move(*part));
    }
    part->clear();
    if (m_full && m_held <= mostHeld / 2) {
        m_full = false;
        if (m_onRoom)
            m_onRoom();
    }
    if (m_ended || m_waiting.size() <= left) {
        m_writing = false;
        return false;
    }
    m_startsAnew = std::exchange(m_restart, false) || m_startsAnew;
    *part = std::move(m_waiting.front());
    m_waiting.pop_front();
    return true;
}

// Writes what is full and ends, so that many sinks share few threads.
void Sink::write()
{
    const CipherThreadState state;
    const std::lock_guard lock(m_work);
    QByteArray part;
    while (next(&part, 1) && write(part, false)) {
    }
}

bool Sink::finish()
{
    const CipherThreadState state;
    const std::lock_guard lock(m_work);
    QByteArray part;
    while (next(&part, 1)) {
        if (!write(part, false))
            return false;
    }
    next(&part, 0);
    {
        const std::lock_guard guard(m_mutex);
        m_spare.clear(); // a piece may wait long for its turn
        if (m_ended)
            return false;
    }
    if (m_received == 0)
        return fail(QStringLiteral("The service sent an empty piece."));
    if (m_received % cipherBlockSize != 0)
        return fail(QStringLiteral("The encrypted file is not a whole number of blocks"));
    const bool written = write(part, true);
    m_plain.clear();
    return written;
}

// Makes the file ready for the next part, which may be the first one once more.
bool Sink::open()
{
    if (!m_file->open())
        return false;
    if (m_start < 0)
        m_start = m_file->size();
    return m_start >= 0 && (!std::exchange(m_startsAnew, false) || m_file->truncate(m_start));
}

bool Sink::write(const QByteArray &part, bool isLast)
{
    if (m_startsAnew)
        setCipher();
    m_plain.resize(std::max(m_plain.size(), part.size() + 2 * cipherBlockSize));
    auto *const out = reinterpret_cast<unsigned char *>(m_plain.data());
    int produced = 0, closing = 0;
    if (!m_cipher ||
        !m_cipher->update(reinterpret_cast<const unsigned char *>(part.constData()), part.size(), out, &produced))
        return fail(QStringLiteral("The cipher could not be run"));
    if (isLast && !m_cipher->finish(out + produced, &closing))
        return fail(QStringLiteral("The file does not decrypt with this key"));
    const auto size = static_cast<std::size_t>(produced) + static_cast<std::size_t>(closing);
    if (!open() || !m_file->write(out, size))
        return fail(m_file->problem(), true);
    return true;
}

bool Sink::fail(const QString &problem, bool isUnwritable)
{
    const std::lock_guard lock(m_mutex);
    m_ended = true;
    m_writing = false;
    m_problem = problem;
    m_unwritable = isUnwritable;
    if (m_onRoom)
        m_onRoom();
    return false;
}

void Sink::abandon()
{
    {
        const std::lock_guard lock(m_mutex);
        m_ended = true;
        m_onRoom = nullptr;
        m_waiting.clear();
    }
    const std::lock_guard lock(m_work);
}

QString Sink::problem() const
{
    const std::lock_guard lock(m_mutex);
    return m_problem;
}

bool Sink::isUnwritable() const
{
    const std::lock_guard lock(m_mutex);
    return m_unwritable;
}

} // namespace Velmora
