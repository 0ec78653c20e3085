#include "storage/Source.h"

#include "base/PoolWork.h"

#include <QDir>

#include <algorithm>
#include <cstring>

namespace Velmora {

namespace {

constexpr qint64 bufferSize = 256 * 1024;
constexpr std::size_t buffers = 4;

} // namespace

Source::Source(const QString &path)
    : m_file(path)
    , m_path(QDir::toNativeSeparators(path))
{
}

bool Source::examine(const QByteArray &key)
{
    const CipherThreadState state; // first: released when the key has gone
    const auto refuse = [this](const QString &problem) {
        const std::lock_guard lock(m_mutex);
        m_problem = problem;
        return false;
    };
    switch (m_file.kind()) {
    case DiskFile::Kind::Folder:
        return refuse(unreadable(QStringLiteral("It is a folder.")));
    case DiskFile::Kind::Other: // to open a pipe would wait for a writer
        return refuse(unreadable(QStringLiteral("It is not a regular file.")));
    case DiskFile::Kind::Regular:
    case DiskFile::Kind::Missing: // opening says why
        break;
    }
    if (!m_file.openToRead())
        return refuse(unreadable(m_file.problem()));
    m_plainSize = m_file.size();
    m_modified = m_file.modified();
    m_file.close(); // of many that wait few are open
    if (m_plainSize < 0)
        return refuse(unreadable(m_file.problem()));
    const CipherKey bytes(key);
    if (!key.isEmpty() && bytes.isValid())
        m_cipher = std::make_unique<Cipher>(Cipher::Direction::Encrypt, bytes.data(), fixedIv);
    return (m_cipher && m_cipher->isReady()) || refuse(notEncrypted());
}

QString Source::problem() const
{
    const std::lock_guard lock(m_mutex);
    return m_problem;
}

void Source::frame(const QByteArray &head, const QByteArray &tail)
{
    m_head = head;
    m_tail = tail;
}

void Source::begin(QThreadPool *pool, std::function<void()> onReady)
{
    const std::lock_guard lock(m_mutex);
    m_pool = pool;
    m_onReady = std::move(onReady);
    if (!m_head.isEmpty())
        m_ready.push_back(m_head);
    fillLater();
}

// With the mutex held.
void Source::fillLater()
{
    if (m_filling || m_ended || m_ready.size() > buffers / 2)
        return;
    m_filling = true;
    startOnPool(m_pool, [self = shared_from_this()] { self->fill(); });
}

// Fills what is free and ends, so that many sources share few threads.
void Source::fill()
{
    const CipherThreadState state;
    for (;;) {
        {
            const std::lock_guard lock(m_mutex);
            if (m_ended || m_ready.size() >= buffers) {
                m_filling = false;
                if (m_ended && m_file.isOpen())
                    m_file.close();
                return;
            }
        }
        Part next = read();
        const std::lock_guard lock(m_mutex);
        if (!m_onReady)
            continue; // stopped
        if (!next.bytes.isEmpty())
            m_ready.push_back(std::move(next.bytes));
        m_problem = next.problem;
        m_ended = next.isLast || !m_problem.isEmpty();
        if (m_starved) {
            m_starved = false;
            m_onReady();
        }
    }
}

Source::Part Source::read()
{
    if (!m_file.isOpen() && !m_file.openToRead())
        return {{}, false, unreadable(m_file.problem())};
    const qint64 wanted = std::min(bufferSize, m_plainSize - m_read);
    const bool last = m_read + wanted == m_plainSize;
    QByteArray bytes(static_cast<int>(wanted + 2 * cipherBlockSize), Qt::Uninitialized);
    auto *const data = reinterpret_cast<unsigned char *>(bytes.data());
    const qint64 got = m_file.read(data, static_cast<std::size_t>(wanted));
    if (got < 0)
        return {{}, false, unreadable(m_file.problem())};
    m_read += got;
    if (got < wanted || last) {
        if (const QString change = changeOf(); !change.isEmpty())
            return {{}, false, QStringLiteral("%1 changed while it was being uploaded: %2").arg(m_path, change)};
    }
    int produced = 0; // in place: all but the last part are whole blocks
    int closing = 0;
    if (!m_cipher->update(data, static_cast<int>(got), data, &produced) ||
        (last && !m_cipher->finish(data + produced, &closing)))
        return {{}, false, notEncrypted()};
    bytes.truncate(produced + closing);
    if (last)
        bytes += m_tail;
    return {bytes, last, {}};
}

QString Source::unreadable(const QString &reason) const
{
    return QStringLiteral("%1 could not be read for upload: %2").arg(m_path, reason);
}

QString Source::notEncrypted() const { return QStringLiteral("%1 could not be encrypted for upload.").arg(m_path); }

// What happened to the file since it was examined; empty: nothing.
QString Source::changeOf() const
{
    const qint64 size = m_file.size();
    if (size < 0)
        return m_file.problem();
    if (size != m_plainSize)
        return QStringLiteral("It had %1 bytes, and now has %2.").arg(m_plainSize).arg(size);
    if (m_read != m_plainSize || m_file.modified() != m_modified)
        return QStringLiteral("It was written to.");
    return {};
}

Source::State Source::take(char *to, std::size_t room, std::size_t *count)
{
    *count = 0;
    const std::lock_guard lock(m_mutex);
    while (*count < room && !m_ready.empty()) {
        const QByteArray &first = m_ready.front();
        const std::size_t part = std::min(room - *count, static_cast<std::size_t>(first.size()) - m_taken);
        std::memcpy(to + *count, first.constData() + m_taken, part);
        *count += part;
        m_taken += part;
        if (m_taken == static_cast<std::size_t>(first.size())) {
            m_ready.pop_front();
            m_taken = 0;
        }
    }
    fillLater();
    if (*count > 0)
        return State::Taken;
    if (!m_problem.isEmpty())
        return State::Failed;
    if (m_ended)
        return State::Ended;
    m_starved = true;
    return State::NotReady;
}

void Source::stop()
{
    const std::lock_guard lock(m_mutex);
    if (!m_onReady)
        return; // not begun, or stopped before
    m_onReady = nullptr;
    m_ended = true;
    m_ready.clear();
    if (m_filling)
        return;
    m_filling = true; // the file is closed where it was read
    startOnPool(m_pool, [self = shared_from_this()] { self->fill(); });
}

} // namespace Velmora
