#include "OVPropertyList.h"

#include <QDateTime>
#include <QFile>

#include <memory>
#include <plist/plist.h>

namespace
{
// Apple's reference date for property-list dates.
constexpr qint64 ReferenceDateOffset = 978307200;

struct PlistDeleter {
    void operator()(plist_t node) const
    {
        plist_free(node);
    }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

QString stringFrom(const char *text)
{
    return QString::fromUtf8(text);
}

QVariant toVariant(plist_t node, int depth)
{
    // Archives nest a few levels; anything deeper is not ours.
    if (!node || depth > 64) {
        return QVariant();
    }
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return QVariant(value != 0);
    }
    case PLIST_UINT: {
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        return QVariant(static_cast<qint64>(value));
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return QVariant(value);
    }
    case PLIST_STRING: {
        char *value = nullptr;
        plist_get_string_val(node, &value);
        const QString result = value ? stringFrom(value) : QString(QLatin1String(""));
        free(value);
        return result;
    }
    case PLIST_DATA: {
        char *value = nullptr;
        uint64_t length = 0;
        plist_get_data_val(node, &value, &length);
        const QByteArray result(value, static_cast<int>(length));
        free(value);
        return result;
    }
    case PLIST_DATE: {
        int32_t seconds = 0;
        int32_t microseconds = 0;
        plist_get_date_val(node, &seconds, &microseconds);
        return QDateTime::fromMSecsSinceEpoch((ReferenceDateOffset + seconds) * 1000 + microseconds / 1000, Qt::UTC);
    }
    case PLIST_UID: {
        uint64_t value = 0;
        plist_get_uid_val(node, &value);
        return QVariant::fromValue(OVPlistUid{value});
    }
    case PLIST_ARRAY: {
        QVariantList list;
        const uint32_t size = plist_array_get_size(node);
        for (uint32_t i = 0; i < size; ++i) {
            list.append(toVariant(plist_array_get_item(node, i), depth + 1));
        }
        return list;
    }
    case PLIST_DICT: {
        QVariantMap map;
        plist_dict_iter it = nullptr;
        plist_dict_new_iter(node, &it);
        for (;;) {
            char *key = nullptr;
            plist_t value = nullptr;
            plist_dict_next_item(node, it, &key, &value);
            if (!key) {
                break;
            }
            map.insert(stringFrom(key), toVariant(value, depth + 1));
            free(key);
        }
        free(it);
        return map;
    }
    default:
        return QVariant();
    }
}

plist_t fromVariant(const QVariant &value)
{
    if (value.userType() == qMetaTypeId<OVPlistUid>()) {
        return plist_new_uid(value.value<OVPlistUid>().value);
    }
    switch (static_cast<QMetaType::Type>(value.userType())) {
    case QMetaType::Bool:
        return plist_new_bool(value.toBool());
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return plist_new_uint(static_cast<uint64_t>(value.toLongLong()));
    case QMetaType::Double:
        return plist_new_real(value.toDouble());
    case QMetaType::QByteArray: {
        const QByteArray data = value.toByteArray();
        return plist_new_data(data.constData(), static_cast<uint64_t>(data.size()));
    }
    case QMetaType::QVariantList: {
        plist_t array = plist_new_array();
        const QVariantList list = value.toList();
        for (const QVariant &item : list) {
            plist_array_append_item(array, fromVariant(item));
        }
        return array;
    }
    case QMetaType::QVariantMap: {
        plist_t dict = plist_new_dict();
        const QVariantMap map = value.toMap();
        for (auto it = map.constBegin(); it != map.constEnd(); ++it) {
            plist_dict_set_item(dict, it.key().toUtf8().constData(), fromVariant(it.value()));
        }
        return dict;
    }
    default:
        return plist_new_string(value.toString().toUtf8().constData());
    }
}
}

namespace OVPropertyList
{
QVariant fromData(const QByteArray &data)
{
    if (data.isEmpty()) {
        return QVariant();
    }
    plist_t root = nullptr;
    if (data.startsWith("bplist00")) {
        plist_from_bin(data.constData(), static_cast<uint32_t>(data.size()), &root);
    } else {
        plist_from_xml(data.constData(), static_cast<uint32_t>(data.size()), &root);
    }
    const PlistPtr owner(root);
    return toVariant(root, 0);
}

QVariant fromFile(const QString &path)
{
    QFile file(path);
    // Nothing we read is anywhere near this size; refuse rather than load it.
    if (!file.open(QIODevice::ReadOnly) || file.size() > 64 * 1024 * 1024) {
        return QVariant();
    }
    return fromData(file.readAll());
}

QByteArray toBinary(const QVariant &value)
{
    const PlistPtr root(fromVariant(value));
    char *data = nullptr;
    uint32_t length = 0;
    plist_to_bin(root.get(), &data, &length);
    const QByteArray result(data, static_cast<int>(length));
    free(data);
    return result;
}

QByteArray toXml(const QVariant &value)
{
    const PlistPtr root(fromVariant(value));
    char *data = nullptr;
    uint32_t length = 0;
    plist_to_xml(root.get(), &data, &length);
    const QByteArray result(data, static_cast<int>(length));
    free(data);
    return result;
}
}
