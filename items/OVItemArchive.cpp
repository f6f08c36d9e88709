// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVItemArchive.h"

#include "OVPropertyList.h"
#include "ovfixedpaths.h"

#include <QFile>
#include <QHash>

namespace
{
const QString ClassKey = QStringLiteral("$class");
const QString ItemClass = QStringLiteral("OVBackupItem");

QVariant uid(quint64 value)
{
    return QVariant::fromValue(OVPlistUid{value});
}

// Builds "$objects" the way the keyed archiver does: "$null" first, every
// distinct string and class stored once and referred to by index.
class Encoder
{
public:
    Encoder()
    {
        m_objects.append(QStringLiteral("$null"));
    }

    quint64 reserve()
    {
        m_objects.append(QVariant());
        return static_cast<quint64>(m_objects.size() - 1);
    }

    void set(quint64 index, const QVariant &object)
    {
        m_objects[static_cast<int>(index)] = object;
    }

    QVariant string(const QString &value)
    {
        if (value.isNull()) {
            return uid(0);
        }
        if (!m_strings.contains(value)) {
            m_objects.append(value);
            m_strings.insert(value, static_cast<quint64>(m_objects.size() - 1));
        }
        return uid(m_strings.value(value));
    }

    QVariant classReference(const QString &name, const QStringList &hierarchy)
    {
        if (!m_classes.contains(name)) {
            m_objects.append(
                QVariantMap{{QStringLiteral("$classname"), name}, {QStringLiteral("$classes"), QVariant(QVariantList(hierarchy.cbegin(), hierarchy.cend()))}});
            m_classes.insert(name, static_cast<quint64>(m_objects.size() - 1));
        }
        return uid(m_classes.value(name));
    }

    // An NSArray of strings, as the archiver stores a string list.
    QVariant stringArray(const QStringList &values)
    {
        const quint64 index = reserve();
        QVariantList references;
        for (const QString &value : values) {
            references.append(string(value));
        }
        const QVariant cls = classReference(QStringLiteral("NSArray"), {QStringLiteral("NSArray"), QStringLiteral("NSObject")});
        set(index, QVariantMap{{QStringLiteral("NS.objects"), references}, {ClassKey, cls}});
        return uid(index);
    }

    QVariantList objects() const
    {
        return m_objects;
    }

private:
    QVariantList m_objects;
    QHash<QString, quint64> m_strings;
    QHash<QString, quint64> m_classes;
};

class Decoder
{
public:
    explicit Decoder(const QVariantList &objects)
        : m_objects(objects)
    {
    }

    // A reference, in binary (UID) or XML ({"CF$UID": n}) form.
    static std::optional<quint64> reference(const QVariant &value)
    {
        if (value.userType() == qMetaTypeId<OVPlistUid>()) {
            return value.value<OVPlistUid>().value;
        }
        const QVariantMap map = value.toMap();
        if (value.userType() == QMetaType::QVariantMap && map.size() == 1 && map.contains(QStringLiteral("CF$UID"))) {
            bool ok = false;
            const qint64 index = map.value(QStringLiteral("CF$UID")).toLongLong(&ok);
            if (ok && index >= 0) {
                return static_cast<quint64>(index);
            }
        }
        return std::nullopt;
    }

    std::optional<QVariant> object(const QVariant &ref) const
    {
        const auto index = reference(ref);
        if (!index || *index >= static_cast<quint64>(m_objects.size())) {
            return std::nullopt;
        }
        return m_objects.at(static_cast<int>(*index));
    }

    QString className(const QVariantMap &object) const
    {
        const auto cls = this->object(object.value(ClassKey));
        return cls ? cls->toMap().value(QStringLiteral("$classname")).toString() : QString();
    }

    // A string, or a null string for "$null"; nothing when it is not a string.
    std::optional<QString> string(const QVariantMap &owner, const QString &key) const
    {
        if (!owner.contains(key)) {
            return QString();
        }
        const auto index = reference(owner.value(key));
        if (index && *index == 0) {
            return QString();
        }
        const auto value = object(owner.value(key));
        if (!value) {
            return std::nullopt;
        }
        if (value->userType() == QMetaType::QString) {
            return value->toString();
        }
        // NSMutableString may be archived as an object of its own.
        const QVariantMap map = value->toMap();
        if (map.value(QStringLiteral("NS.string")).userType() == QMetaType::QString) {
            return map.value(QStringLiteral("NS.string")).toString();
        }
        return std::nullopt;
    }

    // A list of strings: empty when the key is absent or "$null"; nothing
    // when it is no array of strings.
    std::optional<QStringList> stringList(const QVariantMap &owner, const QString &key) const
    {
        if (!owner.contains(key)) {
            return QStringList();
        }
        const auto index = reference(owner.value(key));
        if (index && *index == 0) {
            return QStringList();
        }
        const auto value = object(owner.value(key));
        if (!value || value->userType() != QMetaType::QVariantMap) {
            return std::nullopt;
        }
        const QVariantMap array = value->toMap();
        const QString cls = className(array);
        if (cls != QLatin1String("NSArray") && cls != QLatin1String("NSMutableArray")) {
            return std::nullopt;
        }
        QStringList list;
        const QVariantList references = array.value(QStringLiteral("NS.objects")).toList();
        for (const QVariant &reference : references) {
            const auto entry = string(QVariantMap{{key, reference}}, key);
            if (!entry || entry->isNull()) {
                return std::nullopt;
            }
            list.append(*entry);
        }
        return list;
    }

    std::optional<OVBackupItem> item(const QVariant &ref) const
    {
        const auto value = object(ref);
        if (!value || value->userType() != QMetaType::QVariantMap) {
            return std::nullopt;
        }
        const QVariantMap map = value->toMap();
        if (className(map) != ItemClass) {
            return std::nullopt;
        }
        OVBackupItem item;
        item.setToast(map.value(QStringLiteral("OVToast")).toBool());
        item.setCheckColumn(map.value(QStringLiteral("OVCheckColumn")).toBool());
        item.setCheckEnabled(map.value(QStringLiteral("OVCheckEnabled")).toBool());
        item.setFrequencyColumn(map.value(QStringLiteral("OVFrequencyColumn")).toInt());
        item.setSourceColumn(map.value(QStringLiteral("OVSourceColumn")).toInt());
        item.setDestColumn(map.value(QStringLiteral("OVDestColumn")).toInt());
        const auto source = string(map, QStringLiteral("OVBackupSource"));
        const auto destination = string(map, QStringLiteral("OVBackupDestination"));
        const auto sourcePath = string(map, QStringLiteral("OVSourcePath"));
        const auto destPath = string(map, QStringLiteral("OVDestPath"));
        if (!source || !destination || !sourcePath || !destPath) {
            return std::nullopt;
        }
        item.setBackupSource(*source);
        item.setBackupDestination(*destination);
        item.setSourcePath(*sourcePath);
        item.setDestPath(*destPath);
        const auto exclusions = stringList(map, QStringLiteral("OVExclusions"));
        const auto removed = stringList(map, QStringLiteral("OVExclusionsRemovedFromBackup"));
        if (!exclusions || !removed) {
            return std::nullopt;
        }
        item.setExclusions(*exclusions, *removed);
        return item;
    }

private:
    const QVariantList &m_objects;
};
}

QByteArray OVItemArchive::archive(const QVector<OVBackupItem> &items)
{
    Encoder encoder;
    const quint64 arrayIndex = encoder.reserve();
    QVariantList references;
    for (const OVBackupItem &item : items) {
        const quint64 itemIndex = encoder.reserve();
        QVariantMap object;
        object.insert(QStringLiteral("OVToast"), item.toast());
        object.insert(QStringLiteral("OVCheckColumn"), item.checkColumn());
        object.insert(QStringLiteral("OVCheckEnabled"), item.checkEnabled());
        object.insert(QStringLiteral("OVFrequencyColumn"), item.frequencyColumn());
        object.insert(QStringLiteral("OVSourceColumn"), item.sourceColumn());
        object.insert(QStringLiteral("OVDestColumn"), item.destColumn());
        object.insert(QStringLiteral("OVBackupSource"), encoder.string(item.backupSource()));
        object.insert(QStringLiteral("OVBackupDestination"), encoder.string(item.backupDestination()));
        object.insert(QStringLiteral("OVSourcePath"), encoder.string(item.sourcePath()));
        object.insert(QStringLiteral("OVDestPath"), encoder.string(item.destPath()));
        // Only an item that leaves something out has the keys: the archive
        // of one that does not stays as it always was.
        if (!item.exclusions().isEmpty()) {
            object.insert(QStringLiteral("OVExclusions"), encoder.stringArray(item.exclusions()));
        }
        if (!item.exclusionsRemovedFromBackup().isEmpty()) {
            object.insert(QStringLiteral("OVExclusionsRemovedFromBackup"), encoder.stringArray(item.exclusionsRemovedFromBackup()));
        }
        object.insert(ClassKey, encoder.classReference(ItemClass, {ItemClass, QStringLiteral("NSObject")}));
        encoder.set(itemIndex, object);
        references.append(uid(itemIndex));
    }
    const QVariant arrayClass =
        encoder.classReference(QStringLiteral("NSMutableArray"), {QStringLiteral("NSMutableArray"), QStringLiteral("NSArray"), QStringLiteral("NSObject")});
    encoder.set(arrayIndex, QVariantMap{{QStringLiteral("NS.objects"), references}, {ClassKey, arrayClass}});

    const QVariantMap root{
        {QStringLiteral("$archiver"), QStringLiteral("NSKeyedArchiver")},
        {QStringLiteral("$version"), 100000},
        {QStringLiteral("$top"), QVariantMap{{QStringLiteral("root"), uid(arrayIndex)}}},
        {QStringLiteral("$objects"), encoder.objects()},
    };
    return OVPropertyList::toBinary(root);
}

std::optional<QVector<OVBackupItem>> OVItemArchive::unarchive(const QByteArray &data)
{
    const QVariantMap root = OVPropertyList::fromData(data).toMap();
    if (root.value(QStringLiteral("$archiver")).toString() != QLatin1String("NSKeyedArchiver")) {
        return std::nullopt;
    }
    const QVariantList objects = root.value(QStringLiteral("$objects")).toList();
    const Decoder decoder(objects);
    const auto array = decoder.object(root.value(QStringLiteral("$top")).toMap().value(QStringLiteral("root")));
    if (!array || array->userType() != QMetaType::QVariantMap) {
        return std::nullopt;
    }
    const QVariantMap arrayMap = array->toMap();
    const QString arrayClass = decoder.className(arrayMap);
    if (arrayClass != QLatin1String("NSMutableArray") && arrayClass != QLatin1String("NSArray")) {
        return std::nullopt;
    }
    QVector<OVBackupItem> items;
    const QVariantList references = arrayMap.value(QStringLiteral("NS.objects")).toList();
    for (const QVariant &reference : references) {
        const auto item = decoder.item(reference);
        if (!item) {
            return std::nullopt;
        }
        items.append(*item);
    }
    return items;
}

std::optional<QVector<OVBackupItem>> OVItemArchive::load(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > 16 * 1024 * 1024) {
        return std::nullopt;
    }
    return unarchive(file.readAll());
}
