#pragma once

// A temporary folder, and the files that a test puts there.

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

/// Bytes of which no two parts are alike; another seed gives others.
inline QByteArray noise(int size, int seed = 0)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i % 4096 * 131 + i / 251 + seed) & 0xff);
    return bytes;
}

class FolderTest : public testing::Test {
protected:
    QString qt(const QString &name) const { return folder.filePath(name); }
    std::string at(const QString &name) const { return qt(name).toStdString(); }
    /// Makes the folder too.
    std::string write(const QString &name, const QByteArray &content) const
    {
        QFile file(qt(name));
        EXPECT_TRUE(QFileInfo(file).dir().mkpath(QStringLiteral(".")));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
        return at(name);
    }
    QByteArray read(const QString &name) const
    {
        QFile file(qt(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    QStringList filesIn(const QString &name) const
    {
        return QDir(qt(name)).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }

    QTemporaryDir folder;
};
