// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QByteArray>
#include <QMetaType>
#include <QVariant>

// A keyed archive's object reference.
struct OVPlistUid {
    quint64 value = 0;
    bool operator==(const OVPlistUid &other) const
    {
        return value == other.value;
    }
};
Q_DECLARE_METATYPE(OVPlistUid)

// Property lists as QVariant trees: QVariantMap, QVariantList, QString, bool,
// qint64, double, QByteArray, QDateTime and OVPlistUid. Binary and XML lists
// are read alike.
namespace OVPropertyList
{
// An invalid QVariant when the data is no property list.
QVariant fromData(const QByteArray &data);
QVariant fromFile(const QString &path);
QByteArray toBinary(const QVariant &value);
QByteArray toXml(const QVariant &value);
}
