// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVToast.h"

#include "OVPropertyList.h"

#include <QDir>
#include <QUrl>

namespace
{
QStringList bundlesIn(const QString &folder)
{
    QStringList bundles;
    const QDir dir(folder);
    for (const QString &name : dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QString path = dir.filePath(name);
        if (name.endsWith(QLatin1String(".app"))) {
            bundles.append(path);
        } else {
            for (const QString &inner : QDir(path).entryList({QStringLiteral("*.app")}, QDir::Dirs | QDir::NoDotAndDotDot)) {
                bundles.append(QDir(path).filePath(inner));
            }
        }
    }
    return bundles;
}

// Leading digits only: "6.0.1" is 6.
int majorVersion(const QString &version)
{
    int digits = 0;
    while (digits < version.size() && version.at(digits).isDigit()) {
        ++digits;
    }
    return version.left(digits).toInt();
}
}

QStringList OVToast::applicationFolders()
{
    return {QStringLiteral("/Applications"), QDir::homePath() + QStringLiteral("/Applications")};
}

OVToast::Detection OVToast::detect(const QStringList &folders)
{
    Detection result;
    for (const QString &folder : folders) {
        for (const QString &bundle : bundlesIn(folder)) {
            const QVariantMap info = OVPropertyList::fromFile(bundle + QStringLiteral("/Contents/Info.plist")).toMap();
            if (info.value(QStringLiteral("CFBundleSignature")).toString() != QLatin1String("CDr3")) {
                continue;
            }
            result.installed = info.value(QStringLiteral("CFBundleName")).toString() == QLatin1String("Toast Titanium")
                && majorVersion(info.value(QStringLiteral("CFBundleShortVersionString")).toString()) > 5;
            if (!result.installed) {
                return result;
            }
            // The bundle's file URL, as the platform writes it for a folder.
            const QString url = QStringLiteral("file://localhost") + QString::fromLatin1(QUrl::toPercentEncoding(bundle, "/")) + QLatin1Char('/');
            result.fullPath = QString(url).replace(QStringLiteral("%20"), QStringLiteral(" ")).remove(QStringLiteral("file://localhost"));
            QString name = QFileInfo(bundle).fileName();
            name.truncate(name.lastIndexOf(QLatin1Char('.')));
            result.applicationName = name;
            return result;
        }
    }
    return result;
}
