#pragma once

// A temporary folder, and the files in it by their names.

#include <QtCore>

#include <gtest/gtest.h>

/// Bytes of which no two parts are alike; another seed gives others.
inline QByteArray noise(int size, int seed = 0)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i % 4096 * 131 + i / 251 + seed) & 0xff);
    return bytes;
}

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
    std::string read(const std::string &name) const // empty when there is no such file
    {
        QFile file(at(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll().toStdString() : "";
    }
    std::set<std::string> below(const std::string &name) const // every file in that folder
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

/// A fixture with one, in Qt's types.
struct FolderTest : testing::Test {
    QString qt(const QString &name) const { return QDir(folder.root()).filePath(name); }
    std::string at(const QString &name) const { return qt(name).toStdString(); }
    std::string write(const QString &name, const QByteArray &content) const
    {
        return folder.write(name.toStdString(), content.toStdString());
    }
    QByteArray read(const QString &name) const { return QByteArray::fromStdString(folder.read(name.toStdString())); }
    QStringList filesIn(const QString &name) const
    {
        return QDir(qt(name)).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }

    const TestFolder folder;
};
