#include "Process.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <vector>

#ifdef _WIN32

#include <windows.h>

#include <tlhelp32.h>
#include <winternl.h>

namespace {

// Not GetProcessHandleCount, which Wine always answers with 0.
int handlesOf(DWORD process)
{
    ULONG needed = 0;
    std::vector<char> list(1 << 20);
    if (::NtQuerySystemInformation(SystemProcessInformation, list.data(), static_cast<ULONG>(list.size()), &needed) < 0)
        return -1;
    for (const char *at = list.data();;) {
        const auto *entry = reinterpret_cast<const SYSTEM_PROCESS_INFORMATION *>(at);
        if (reinterpret_cast<std::uintptr_t>(entry->UniqueProcessId) == process)
            return static_cast<int>(entry->HandleCount);
        if (entry->NextEntryOffset == 0)
            return -1;
        at += entry->NextEntryOffset;
    }
}

// In use in all heaps. What is resident varies by more than a megabyte from one run to the next.
long bytesAllocated()
{
    HANDLE heaps[64];
    const DWORD count = std::min<DWORD>(::GetProcessHeaps(64, heaps), 64);
    SIZE_T bytes = 0;
    for (DWORD i = 0; i < count; ++i) {
        PROCESS_HEAP_ENTRY entry = {};
        ::HeapLock(heaps[i]);
        while (::HeapWalk(heaps[i], &entry))
            bytes += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0 ? entry.cbData : 0;
        ::HeapUnlock(heaps[i]);
    }
    return static_cast<long>(bytes);
}

} // namespace

Module::Module(const std::string &path)
    : m_handle(::LoadLibraryW(std::filesystem::path(path).make_preferred().c_str()))
{
    if (!m_handle)
        throw std::runtime_error(path + ": error " + std::to_string(::GetLastError()));
}

Module::~Module() { ::FreeLibrary(static_cast<HMODULE>(m_handle)); }

void *Module::address(const char *name) const
{
    return reinterpret_cast<void *>(::GetProcAddress(static_cast<HMODULE>(m_handle), name));
}

bool Module::isLoaded(const std::string &path)
{
    return ::GetModuleHandleW(std::filesystem::path(path).filename().c_str()) != nullptr;
}

Figures figures()
{
    Figures found;
    const HANDLE threads = ::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof entry;
    for (BOOL more = ::Thread32First(threads, &entry); more; more = ::Thread32Next(threads, &entry))
        found.threads += entry.th32OwnerProcessID == ::GetCurrentProcessId() ? 1 : 0;
    ::CloseHandle(threads);
    found.handles = handlesOf(::GetCurrentProcessId());
    found.kilobytes = bytesAllocated() / 1024;
    return found;
}

void setVariable(const char *name, const std::string &value) { ::_putenv_s(name, value.c_str()); }

#else

#include <dlfcn.h>
#include <malloc.h>
#include <stdlib.h>

namespace {

int entriesOf(const char *folder)
{
    int count = 0;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        static_cast<void>(entry);
        ++count;
    }
    return count;
}

} // namespace

Module::Module(const std::string &path)
    : m_handle(::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL))
{
    if (!m_handle)
        throw std::runtime_error(::dlerror());
}

Module::~Module() { ::dlclose(m_handle); }

void *Module::address(const char *name) const { return ::dlsym(m_handle, name); }

bool Module::isLoaded(const std::string &path)
{
    void *handle = ::dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (handle)
        ::dlclose(handle);
    return handle != nullptr;
}

Figures figures()
{
    Figures found;
    found.threads = entriesOf("/proc/self/task");
    found.handles = entriesOf("/proc/self/fd");
    found.kilobytes = static_cast<long>(::mallinfo2().uordblks / 1024);
    return found;
}

void setVariable(const char *name, const std::string &value) { ::setenv(name, value.c_str(), 1); }

#endif
