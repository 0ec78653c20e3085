#pragma once

// A temporary folder, and the files in it by their names.

#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>

#include <set>
#include <string>

class TestFolder {
public:
    QString root() const { return m_folder.path(); }
    std::string path(const std::string &name) const { return at(name).toStdString(); }
    /// Makes the folders that it needs. @return its path
    std::string write(const std::string &name, const std::string &bytes) const
    {
        QFile file(at(name));
        const bool made = QDir().mkpath(QFileInfo(file).path()) && file.open(QIODevice::WriteOnly);
        if (!made || file.write(bytes.data(), qint64(bytes.size())) != qint64(bytes.size()))
            qFatal("%s: %s", name.c_str(), qPrintable(file.errorString()));
        return path(name);
    }
    std::string read(const std::string &name) const
    {
        QFile file(at(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll().toStdString() : "no such file";
    }
    /// Every file below one of its folders.
    std::set<std::string> below(const std::string &name) const
    {
        std::set<std::string> names;
        QDirIterator each(at(name), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (each.hasNext())
            names.insert(QDir(at(name)).relativeFilePath(each.next()).toStdString());
        return names;
    }
    void remove(const std::string &name) const { QDir(at(name)).removeRecursively(); }

private:
    QString at(const std::string &name) const { return m_folder.filePath(QString::fromStdString(name)); }

    QTemporaryDir m_folder;
};
