#pragma once

// What this test needs of the operating system.

#include <cstdint>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

struct Figures {
    int threads = 0;
    int handles = 0;    ///< or file descriptors
    long kilobytes = 0; ///< of memory: what is allocated
};

#ifdef _WIN32

#include <windows.h>

#include <tlhelp32.h>
#include <winternl.h>

inline bool isLoaded(const std::string &path)
{
    return ::GetModuleHandleW(std::filesystem::path(path).filename().c_str()) != nullptr;
}

// Not GetProcessHandleCount, which Wine always answers with 0.
inline int handlesOf(DWORD process)
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
inline long bytesAllocated()
{
    std::vector<HANDLE> heaps(64);
    heaps.resize(::GetProcessHeaps(64, heaps.data()));
    SIZE_T bytes = 0;
    for (const HANDLE heap : heaps) {
        PROCESS_HEAP_ENTRY entry = {};
        ::HeapLock(heap);
        while (::HeapWalk(heap, &entry))
            bytes += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0 ? entry.cbData : 0;
        ::HeapUnlock(heap);
    }
    return static_cast<long>(bytes);
}

inline Figures figures()
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

inline void setVariable(const char *name, const std::string &value) { ::_putenv_s(name, value.c_str()); }

#else

#include <dlfcn.h>
#include <malloc.h>
#include <stdlib.h>

inline bool isLoaded(const std::string &path) { return ::dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD) != nullptr; }

inline Figures figures()
{
    const auto entriesOf = [](const char *folder) {
        return static_cast<int>(std::distance(std::filesystem::directory_iterator(folder), {}));
    };
    return {entriesOf("/proc/self/task"), entriesOf("/proc/self/fd"), static_cast<long>(::mallinfo2().uordblks / 1024)};
}

inline void setVariable(const char *name, const std::string &value) { ::setenv(name, value.c_str(), 1); }

#endif
