// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVSettingsDomain.h"

#include "OVBundle.h"
#include "OVPropertyList.h"
#include "ovcommon_debug.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QStandardPaths>

QString OVSettingsDomain::path()
{
    // Computed here alone: the pane and the notice program read one file.
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QLatin1Char('/') + OVBundle::identifier() + QStringLiteral(".plist");
}

std::optional<QVariantMap> OVSettingsDomain::read()
{
    const QVariant domain = OVPropertyList::fromFile(path());
    if (domain.userType() != QMetaType::QVariantMap) {
        return std::nullopt;
    }
    // Only the stored types count; anything else in the file is not ours.
    QVariantMap values = domain.toMap();
    for (auto it = values.begin(); it != values.end();) {
        const int type = it.value().userType();
        if (type == QMetaType::Bool || type == QMetaType::LongLong || type == QMetaType::Double || type == QMetaType::QString) {
            ++it;
        } else {
            it = values.erase(it);
        }
    }
    return values;
}

bool OVSettingsDomain::replace(const QVariantMap &domain)
{
    QDir().mkpath(QFileInfo(path()).absolutePath());
    QSaveFile file(path());
    if (!file.open(QIODevice::WriteOnly)) {
        qCWarning(OVLOG_COMMON) << "cannot write the settings" << path() << file.errorString();
        return false;
    }
    file.write(OVPropertyList::toXml(domain));
    if (!file.commit()) {
        qCWarning(OVLOG_COMMON) << "cannot write the settings" << path() << file.errorString();
        return false;
    }
    return true;
}

void OVSettingsDomain::remove()
{
    QFile::remove(path());
}
