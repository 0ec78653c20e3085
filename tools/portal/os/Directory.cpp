#include "portal/os/Directory.h"

#include "portal/os/File.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace VelmoraPortal {
namespace fs = std::filesystem;

Directory::Directory(const std::string &path)
    : m_path(path)
    , m_temporary(path.empty())
{
    if (m_temporary) {
        m_path = makeTemporaryFolder((fs::temp_directory_path() / "velmora-portal-").string());
        if (m_path.empty())
            throw std::runtime_error("Cannot create a temporary directory for the portal");
        return;
    }
    std::error_code ignored;
    m_path = fs::absolute(m_path, ignored).lexically_normal().string();
    fs::create_directories(fs::path(m_path).parent_path(), ignored);
    if (makePrivateFolder(m_path))
        return;
    const Ownership ownership = ownershipOf(m_path);
    if (ownership == Ownership::NoFolder)
        throw std::runtime_error("Cannot create the directory " + m_path);
    if (ownership == Ownership::Shared)
        throw std::runtime_error("The directory " + m_path + " must be yours alone (mode 0700)");
}

Directory::~Directory()
{
    if (m_temporary)
        removeFolder(m_path);
    else if (!m_written.empty())
        removeFile(m_written);
}

std::string Directory::write(const std::string &name, const std::string &text)
{
    m_written = (fs::path(m_path) / name).string();
    std::ofstream file(m_written, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (!file)
        throw std::runtime_error("Cannot write " + m_written);
    return m_written;
}

} // namespace VelmoraPortal
