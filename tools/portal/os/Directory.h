#pragma once

#include <string>

namespace VelmoraPortal {

/// The portal's private directory (mode 0700). An empty path makes a temporary one that goes with the
/// object; a given one is created when missing, must otherwise be private already, and stays.
class Directory {
public:
    /// Throws std::runtime_error when there is no private directory to be had.
    explicit Directory(const std::string &path);
    ~Directory();
    Directory(const Directory &) = delete;
    Directory &operator=(const Directory &) = delete;

    /// Writes a file that is removed again with this object; returns its path.
    std::string write(const std::string &name, const std::string &text);

    const std::string &path() const { return m_path; }

private:
    std::string m_path;
    std::string m_written;
    bool m_temporary;
};

} // namespace VelmoraPortal
