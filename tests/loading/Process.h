#pragma once

// What this test needs of the operating system.

#include <string>

/// A library taken into the process; let go on destruction.
class Module {
public:
    explicit Module(const std::string &path); ///< throws std::runtime_error
    ~Module();
    Module(const Module &) = delete;
    Module &operator=(const Module &) = delete;

    template <class Function> Function *function(const char *name) const
    {
        return reinterpret_cast<Function *>(address(name));
    }
    static bool isLoaded(const std::string &path);

private:
    void *address(const char *name) const;

    void *m_handle;
};

struct Figures {
    int threads = 0;
    int handles = 0;    ///< open files where all else is one, too
    long kilobytes = 0; ///< of memory: allocated
};
Figures figures();

void setVariable(const char *name, const std::string &value);
