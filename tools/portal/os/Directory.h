#pragma once

#include <string>

namespace VelmoraPortal {

/// The portal's private directory (mode 0700). With an empty path it is a temporary one, removed with the
/// object. A given one is created when missing, must be private when it exists, and is not removed.
class Directory {
public:
    /// Throws std::runtime_error when it cannot get a private directory.
    explicit Directory(const std::string &path);
    ~Directory();
    Directory(const Directory &) = delete;
    Directory &operator=(const Directory &) = delete;

    /// Writes a file that is removed with this object; returns its path.
    std::string write(const std::string &name, const std::string &text);

    const std::string &path() const { return m_path; }

private:
    std::string m_path;
    std::string m_written;
    bool m_temporary;
};

} // namespace VelmoraPortal
