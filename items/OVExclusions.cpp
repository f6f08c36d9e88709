// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVExclusions.h"

#include <QDir>
#include <QFile>

namespace
{
QString withoutTrailingSlash(QString path)
{
    while (path.size() > 1 && path.endsWith(QLatin1Char('/'))) {
        path.chop(1);
    }
    return path;
}

// "*" and "?" stay within a name, "**" crosses folders; a "**/" that
// begins a folder's name stands for any number of folders, none included.
QString regexFor(const QString &glob)
{
    QString re;
    for (int i = 0; i < glob.size(); ++i) {
        const QChar c = glob.at(i);
        if (c == QLatin1Char('*')) {
            if (glob.midRef(i, 3) == QLatin1String("**/") && (i == 0 || glob.at(i - 1) == QLatin1Char('/'))) {
                re += QStringLiteral("(?:.*/)?");
                i += 2;
            } else if (i + 1 < glob.size() && glob.at(i + 1) == QLatin1Char('*')) {
                re += QStringLiteral(".*");
                ++i;
            } else {
                re += QStringLiteral("[^/]*");
            }
        } else if (c == QLatin1Char('?')) {
            re += QStringLiteral("[^/]");
        } else {
            re += QRegularExpression::escape(QString(c));
        }
    }
    return QRegularExpression::anchoredPattern(re);
}

const QByteArray CacheDirSignature = QByteArrayLiteral("Signature: 8a477f597d28d172789f06886806bc55");
}

OVExclusions::OVExclusions(const QStringList &entries, const QString &source)
{
    for (const QString &entry : entries) {
        Rule rule;
        if (isPath(entry)) {
            rule.path = relativeTo(entry, source);
            // Outside the source, or the source itself: the backup ignores it.
            if (rule.path.isEmpty()) {
                continue;
            }
        } else {
            QString glob = entry;
            rule.foldersOnly = glob.endsWith(QLatin1Char('/'));
            while (glob.endsWith(QLatin1Char('/'))) {
                glob.chop(1);
            }
            if (glob.isEmpty()) {
                continue;
            }
            rule.anchored = glob.contains(QLatin1Char('/'));
            rule.pattern.setPattern(regexFor(glob));
            rule.pattern.optimize();
        }
        m_rules.append(rule);
    }
}

QString OVExclusions::relativeTo(const QString &path, const QString &source)
{
    const QString clean = withoutTrailingSlash(QDir::cleanPath(path));
    const QString root = withoutTrailingSlash(QDir::cleanPath(source));
    if (clean == root) {
        return QStringLiteral("");
    }
    const QString prefix = root == QLatin1String("/") ? root : root + QLatin1Char('/');
    return clean.startsWith(prefix) ? clean.mid(prefix.size()) : QString();
}

bool OVExclusions::matches(const QString &relativePath, bool isDir) const
{
    if (relativePath.isEmpty()) {
        return false;
    }
    const QString name = relativePath.mid(relativePath.lastIndexOf(QLatin1Char('/')) + 1);
    for (const Rule &rule : m_rules) {
        if (!rule.path.isNull()) {
            if (rule.path == relativePath) {
                return true;
            }
        } else if ((isDir || !rule.foldersOnly) && rule.pattern.match(rule.anchored ? relativePath : name).hasMatch()) {
            return true;
        }
    }
    return false;
}

bool OVExclusions::excludes(const QString &relativePath, bool isDir) const
{
    if (m_rules.isEmpty()) {
        return false;
    }
    for (int slash = relativePath.indexOf(QLatin1Char('/')); slash >= 0; slash = relativePath.indexOf(QLatin1Char('/'), slash + 1)) {
        if (matches(relativePath.left(slash), true)) {
            return true;
        }
    }
    return matches(relativePath, isDir);
}

QStringList OVExclusions::psyncArguments(const QStringList &entries, const QStringList &removedFromBackup, const QString &source)
{
    QStringList arguments;
    for (const QString &entry : entries) {
        const bool drop = removedFromBackup.contains(entry);
        if (isPath(entry)) {
            const QString relative = relativeTo(entry, source);
            if (!relative.isEmpty()) {
                arguments.append((drop ? QStringLiteral("--drop-path=") : QStringLiteral("--exclude-path=")) + relative);
            }
        } else {
            arguments.append((drop ? QStringLiteral("--drop=") : QStringLiteral("--exclude=")) + entry);
        }
    }
    return arguments;
}

QStringList OVExclusions::defaults(const QString &source, const QString &home)
{
    QStringList entries;
    const QString root = withoutTrailingSlash(home);
    for (const QString &folder : {QString(root + QStringLiteral("/.local/share/Trash")), QString(root + QStringLiteral("/.cache"))}) {
        if (!relativeTo(folder, source).isEmpty()) {
            entries.append(folder);
        }
    }
    return entries;
}

bool OVExclusions::hasCacheDirTag(const QString &folder)
{
    QFile tag(folder + QStringLiteral("/CACHEDIR.TAG"));
    return tag.open(QIODevice::ReadOnly) && tag.read(CacheDirSignature.size()) == CacheDirSignature;
}
