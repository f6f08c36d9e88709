// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "ovfixedpaths.h"
#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QTest>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

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

// A new file, not the old one rewritten (root's tools replace by rename).
inline void writeFile(const QString &file, const QByteArray &contents, const QDateTime &modified = {})
{
    QDir().mkpath(QFileInfo(file).absolutePath());
    QFile::remove(file);
    QFile out(file);
    QVERIFY(out.open(QIODevice::WriteOnly));
    QCOMPARE(out.write(contents), qint64(contents.size()));
    QVERIFY(!modified.isValid() || (out.flush() && out.setFileTime(modified, QFileDevice::FileModificationTime)));
}

// "uid:gid mode", as ls would show what root runs or reads.
inline QString ownerAndMode(const char *file)
{
    struct stat st;
    return ::lstat(file, &st) != 0 ? QStringLiteral("missing") : QStringLiteral("%1:%2 %3").arg(st.st_uid).arg(st.st_gid).arg(st.st_mode & 07777, 0, 8);
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
    for (QDirIterator it(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden, QDirIterator::Subdirectories); it.hasNext();) {
        const QString file = it.next();
        lines.append(file.mid(root.size()) + QLatin1Char(' ') + stamp(file));
    }
    lines.sort();
    return lines;
}

// Drops root for good: everything after has only the user's rights.
inline bool becomeUser(const char *name, const QString &home)
{
    const struct passwd *pw = getpwnam(name);
    qputenv("HOME", home.toUtf8());
    return pw && setgroups(0, nullptr) == 0 && setresgid(pw->pw_gid, pw->pw_gid, pw->pw_gid) == 0 && setresuid(pw->pw_uid, pw->pw_uid, pw->pw_uid) == 0;
}
