// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QDir>
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
