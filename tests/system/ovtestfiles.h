// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <sys/stat.h>

// Files the system tests lay out and read back at the fixed paths.
inline QString path(const char *fixed)
{
    return QString::fromUtf8(fixed);
}

inline QByteArray readFile(const QString &file)
{
    QFile in(file);
    return in.open(QIODevice::ReadOnly) ? in.readAll() : QByteArray();
}

inline QByteArray readFile(const char *fixed)
{
    return readFile(path(fixed));
}

// A new file (not the old one rewritten: root's tools replace by rename),
// its folder made first.
inline void writeFile(const QString &file, const QByteArray &contents)
{
    QDir().mkpath(QFileInfo(file).absolutePath());
    QFile::remove(file);
    QFile out(file);
    QVERIFY(out.open(QIODevice::WriteOnly));
    QCOMPARE(out.write(contents), qint64(contents.size()));
}

// "uid:gid mode", as ls would show what root runs or reads.
inline QString ownerAndMode(const char *file)
{
    struct stat st;
    if (::lstat(file, &st) != 0) {
        return QStringLiteral("missing");
    }
    return QStringLiteral("%1:%2 %3").arg(st.st_uid).arg(st.st_gid).arg(st.st_mode & 07777, 0, 8);
}

// What a copy must keep of a file: mode, time to the nanosecond, content.
inline QString stamp(const QString &file)
{
    struct stat st;
    if (::lstat(QFile::encodeName(file).constData(), &st) != 0) {
        return QStringLiteral("missing");
    }
    QString line = QStringLiteral("mode=%1").arg(st.st_mode & 0777, 0, 8);
    if (S_ISREG(st.st_mode)) {
        line += QStringLiteral(" mtime=%1.%2 md5=%3")
                    .arg(st.st_mtim.tv_sec)
                    .arg(st.st_mtim.tv_nsec, 9, 10, QLatin1Char('0'))
                    .arg(QString::fromLatin1(QCryptographicHash::hash(readFile(file), QCryptographicHash::Md5).toHex()));
    }
    return line;
}

// Every name below a folder with its stamp, sorted.
inline QStringList tree(const QString &root)
{
    QStringList lines;
    QDirIterator it(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString file = it.next();
        lines.append(file.mid(root.size()) + QLatin1Char(' ') + stamp(file));
    }
    lines.sort();
    return lines;
}
