// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVBundle.h"

#include "OVPropertyList.h"
#include "ovconfig.h"
#include "ovfixedpaths.h"

QString OVBundle::bundlePath()
{
    return QString::fromUtf8(OVFixedPaths::BundlePath);
}

QString OVBundle::resourcesPath()
{
    return QString::fromUtf8(OVFixedPaths::ResourcesPath);
}

QString OVBundle::pathForResource(const QString &name, const QString &type)
{
    QString path = resourcesPath() + QLatin1Char('/') + name;
    if (!type.isEmpty()) {
        path += QLatin1Char('.') + type;
    }
    return path;
}

QString OVBundle::toolPath(const QString &tool)
{
    return pathForResource(tool, QString());
}

QVariantMap OVBundle::infoDictionary()
{
    return OVPropertyList::fromFile(QString::fromUtf8(OVFixedPaths::InfoPlistPath)).toMap();
}

QString OVBundle::identifier()
{
    const QString identifier = infoDictionary().value(QStringLiteral("CFBundleIdentifier")).toString();
    return identifier.isEmpty() ? QStringLiteral(OV_BUNDLE_IDENTIFIER) : identifier;
}

QString OVBundle::shortVersion()
{
    return infoDictionary().value(QStringLiteral("CFBundleShortVersionString")).toString();
}
