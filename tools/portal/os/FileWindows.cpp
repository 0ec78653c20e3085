#include "portal/os/File.h"

#include "portal/os/Crypto.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include <windows.h>

namespace VelmoraPortal {
namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const std::string &what)
{
    throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(), what);
}

HANDLE native(std::intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

DWORD step(std::size_t size) { return static_cast<DWORD>(std::min<std::size_t>(size, 1U << 30)); }

} // namespace

File::File(const std::string &path, Mode mode)
    // Others may remove an open file, as on POSIX.
    : m_handle(reinterpret_cast<std::intptr_t>(
          ::CreateFileW(fs::path(path).c_str(), mode == Mode::Read ? GENERIC_READ : GENERIC_WRITE,
                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                        mode == Mode::Read ? OPEN_EXISTING : CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr)))
{
    if (native(m_handle) == INVALID_HANDLE_VALUE)
        fail("Cannot open a stored file");
}

File::~File()
{
    if (native(m_handle) != INVALID_HANDLE_VALUE)
        ::CloseHandle(native(m_handle));
}

long long File::size() const
{
    LARGE_INTEGER size = {};
    if (!::GetFileSizeEx(native(m_handle), &size))
        fail("Cannot look at a stored file");
    return size.QuadPart;
}

std::size_t File::read(char *to, std::size_t size, long long offset) const
{
    std::size_t done = 0;
    while (done < size) {
        const auto from = static_cast<unsigned long long>(offset) + done;
        OVERLAPPED place = {};
        place.Offset = static_cast<DWORD>(from);
        place.OffsetHigh = static_cast<DWORD>(from >> 32);
        DWORD count = 0;
        if (!::ReadFile(native(m_handle), to + done, step(size - done), &count, &place) &&
            ::GetLastError() != ERROR_HANDLE_EOF)
            fail("Cannot read a stored file");
        if (count == 0)
            break;
        done += count;
    }
    return done;
}

void File::write(const char *data, std::size_t size)
{
    while (size > 0) {
        DWORD count = 0;
        if (!::WriteFile(native(m_handle), data, step(size), &count, nullptr))
            fail("Cannot store the file");
        data += count;
        size -= count;
    }
}

void File::close()
{
    if (!::CloseHandle(native(std::exchange(m_handle, -1))))
        fail("Cannot store the file");
}

void removeFile(const std::string &path) { ::DeleteFileW(fs::path(path).c_str()); }

void removeFolder(const std::string &path)
{
    // remove_all repeats forever while a removed file is still open.
    std::error_code ignored;
    std::vector<fs::path> found = {path};
    for (fs::recursive_directory_iterator each(path, ignored), end; each != end; each.increment(ignored))
        found.push_back(each->path());
    std::for_each(found.rbegin(), found.rend(), [&](const fs::path &each) { fs::remove(each, ignored); });
}

// Folders below the user's own are private to the user.
bool makePrivateFolder(const std::string &path)
{
    std::error_code error;
    return fs::create_directory(path, error);
}

std::string makeTemporaryFolder(const std::string &beginning)
{
    const std::string path = beginning + hexOf(randomBytes(8));
    return makePrivateFolder(path) ? path : std::string();
}

Ownership ownershipOf(const std::string &folder)
{
    std::error_code error;
    return fs::is_directory(folder, error) ? Ownership::Private : Ownership::NoFolder;
}

} // namespace VelmoraPortal
