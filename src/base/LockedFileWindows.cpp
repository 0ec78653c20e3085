#ifdef _WIN32

#include "base/DiskFile.h"
#include "base/LockedFile.h"

#include <algorithm>
#include <system_error>
#include <utility>
#include <vector>

#include <windows.h>

namespace Velmora {

namespace {

constexpr DWORD bufferSize = 1024 * 1024;

HANDLE handleOf(std::intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

} // namespace

bool LockedFile::noted(bool success)
{
    if (!success)
        m_problem = QString::fromLocal8Bit(std::system_category().message(static_cast<int>(::GetLastError())).c_str());
    return success;
}

LockedFile::Created LockedFile::create(const QString &path)
{
    // Others may read it, and this process may rename it; nobody else may open it to write.
    const HANDLE made =
        ::CreateFileW(nativePath(path).c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE,
                      nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (!noted(made != INVALID_HANDLE_VALUE))
        return ::GetLastError() == ERROR_FILE_EXISTS ? Created::Exists : Created::Failed;
    m_handle = reinterpret_cast<std::intptr_t>(made);
    m_path = path;
    m_problem.clear();
    m_unsynced = 0;
    return Created::Yes;
}

bool LockedFile::removeAbandoned(const QString &path)
{
    const HANDLE found = ::CreateFileW(nativePath(path).c_str(), GENERIC_WRITE | DELETE, 0, nullptr, OPEN_EXISTING,
                                       FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (found == INVALID_HANDLE_VALUE)
        return ::GetLastError() == ERROR_FILE_NOT_FOUND;
    ::CloseHandle(found);
    return true;
}

bool LockedFile::write(const void *data, std::size_t size)
{
    const char *next = static_cast<const char *>(data);
    for (std::size_t left = size; left > 0;) {
        DWORD count = 0;
        const auto part = static_cast<DWORD>(std::min<std::size_t>(left, bufferSize));
        if (!noted(::WriteFile(handleOf(m_handle), next, part, &count, nullptr) != 0))
            return false;
        next += count;
        left -= count;
    }
    return wrote(size);
}

std::int64_t LockedFile::size() const
{
    LARGE_INTEGER size = {};
    return ::GetFileSizeEx(handleOf(m_handle), &size) != 0 ? std::int64_t{size.QuadPart} : -1;
}

bool LockedFile::truncate(std::int64_t size)
{
    LARGE_INTEGER end = {};
    end.QuadPart = size;
    return noted(::SetFilePointerEx(handleOf(m_handle), end, nullptr, FILE_BEGIN) != 0 &&
                 ::SetEndOfFile(handleOf(m_handle)) != 0);
}

bool LockedFile::copy(LockedFile &other, const std::atomic<bool> &stop)
{
    if (!other.noted(::SetFilePointerEx(handleOf(other.m_handle), {}, nullptr, FILE_BEGIN) != 0))
        return false;
    std::vector<char> buffer(bufferSize);
    while (!stop) {
        DWORD count = 0;
        if (!other.noted(::ReadFile(handleOf(other.m_handle), buffer.data(), bufferSize, &count, nullptr) != 0))
            return false;
        if (count == 0)
            return true;
        if (!write(buffer.data(), count))
            return false;
    }
    return false;
}

bool LockedFile::sync()
{
    m_unsynced = 0;
    return noted(::FlushFileBuffers(handleOf(m_handle)) != 0);
}

// Permissions are those of the folder, for the old file and the new one.
bool LockedFile::prepareFor(const QString &) { return true; }

// The system keeps a journal of its folders.
void LockedFile::syncFolder(const QString &) {}

void LockedFile::close()
{
    if (isOpen())
        ::CloseHandle(handleOf(std::exchange(m_handle, closed)));
}

void LockedFile::remove()
{
    const bool owned = isOpen() && !m_path.isEmpty();
    close(); // an open file stays until then
    if (owned)
        ::DeleteFileW(nativePath(m_path).c_str());
    m_path.clear();
}

} // namespace Velmora

#endif
