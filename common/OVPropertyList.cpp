// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVPropertyList.h"

#include <QDateTime>
#include <QFile>

#include <algorithm>
#include <memory>
#include <plist/plist.h>
#include <vector>

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

// What libplist 2.2 would build is measured on the bytes first, without
// recursion, and lists beyond these bounds are refused before it sees them:
// it parses recursively, so a list nested deep enough overflows the stack,
// and it copies an object for every reference to it, so a binary list whose
// arrays refer twice to the next one ("billion laughs": 26 levels in 180
// bytes) expands to a hundred million objects. 20,000 items in the archive
// expand to 520,000 objects and 4 MB of strings; the bounds take four times
// that, at most some 450 MB read (2 million objects: 8 s on a busy machine).
constexpr int MaxDepth = 32;
constexpr quint64 MaxObjects = 2000000;
constexpr quint64 MaxBytes = 64 * 1024 * 1024;

quint64 bigEndian(const uchar *bytes, int size)
{
    quint64 value = 0;
    for (int i = 0; i < size; ++i) {
        value = (value << 8) | bytes[i];
    }
    return value;
}

// A list's size as libplist would build it: objects and the bytes of their
// strings and data, every reference counted again.
struct Expansion {
    quint64 objects = 0;
    quint64 bytes = 0;
    Expansion &operator+=(const Expansion &other)
    {
        // Saturating: past the bounds the exact figure no longer matters.
        objects = std::min(objects + other.objects, MaxObjects + 1);
        bytes = std::min(bytes + other.bytes, MaxBytes + 1);
        return *this;
    }
    bool tooLarge() const
    {
        return objects > MaxObjects || bytes > MaxBytes;
    }
};

// Whether a binary list stays within the bounds: well formed, acyclic, at
// most MaxDepth deep and at most MaxObjects and MaxBytes expanded. Each
// object is measured once (an iterative walk that remembers each object's
// depth and expansion), so the time is linear in the objects and references.
bool binaryWithinBounds(const QByteArray &data)
{
    const auto *bytes = reinterpret_cast<const uchar *>(data.constData());
    const quint64 size = static_cast<quint64>(data.size());
    if (size < 8 + 32) {
        return false;
    }
    const uchar *trailer = bytes + size - 32;
    const int offsetSize = trailer[6];
    const int refSize = trailer[7];
    const quint64 count = bigEndian(trailer + 8, 8);
    const quint64 top = bigEndian(trailer + 16, 8);
    const quint64 table = bigEndian(trailer + 24, 8);
    if (offsetSize < 1 || offsetSize > 8 || refSize < 1 || refSize > 8 || count == 0 || top >= count || table >= size - 32
        || count > (size - 32 - table) / static_cast<quint64>(offsetSize)) {
        return false;
    }
    auto offsetOf = [&](quint64 object) {
        return bigEndian(bytes + table + object * static_cast<quint64>(offsetSize), offsetSize);
    };
    // The length that follows a marker: its low nibble, or an integer object
    // after it when that is 0xf. first moves past it.
    auto lengthAt = [&](uchar marker, quint64 &first, quint64 &n) {
        n = marker & 0x0f;
        if (n != 0x0f) {
            return true;
        }
        if (first >= table || (bytes[first] & 0xf0) != 0x10) {
            return false;
        }
        const int width = 1 << (bytes[first] & 0x0f);
        if (width > 8 || first + 1 + static_cast<quint64>(width) > table) {
            return false;
        }
        n = bigEndian(bytes + first + 1, width);
        first += 1 + static_cast<quint64>(width);
        return true;
    };
    // An object's own size, and where its references start and how many.
    auto inspect = [&](quint64 object, Expansion &own, quint64 &first, quint64 &n) {
        const quint64 at = offsetOf(object);
        if (at >= table) {
            return false;
        }
        const uchar marker = bytes[at];
        const int kind = marker & 0xf0;
        own = {1, 0};
        n = 0;
        first = at + 1;
        switch (kind) {
        case 0x40: // data
        case 0x50: // ASCII string
        case 0x60: // UTF-16 string, up to 3 bytes of UTF-8 per unit
        case 0x70: { // UTF-8 string
            quint64 length = 0;
            if (!lengthAt(marker, first, length)) {
                return false;
            }
            own.bytes = std::min(length, MaxBytes + 1) * (kind == 0x60 ? 3 : 1);
            return true;
        }
        case 0xa0: // array
        case 0xc0: // set
        case 0xd0: // dictionary: keys, then values
            if (!lengthAt(marker, first, n)) {
                return false;
            }
            if (kind == 0xd0) {
                n *= 2;
            }
            return n <= (table - first) / static_cast<quint64>(refSize);
        default:
            return true;
        }
    };

    // depth: 0 not seen, -1 on the path (a cycle if met again), else depth + 1.
    std::vector<int> depth(count, 0);
    std::vector<Expansion> expansion(count);
    struct Frame {
        quint64 object, first, n, next;
        int deepest;
        Expansion total;
    };
    std::vector<Frame> stack;
    auto enter = [&](quint64 object) {
        Frame frame{object, 0, 0, 0, 0, {}};
        if (!inspect(object, frame.total, frame.first, frame.n)) {
            return false;
        }
        depth[object] = -1;
        stack.push_back(frame);
        return static_cast<int>(stack.size()) <= MaxDepth + 1;
    };
    if (!enter(top)) {
        return false;
    }
    while (!stack.empty()) {
        Frame &frame = stack.back();
        if (frame.next == frame.n) {
            depth[frame.object] = frame.deepest + 1;
            expansion[frame.object] = frame.total;
            const Frame done = frame;
            stack.pop_back();
            if (!stack.empty()) {
                stack.back().deepest = std::max(stack.back().deepest, done.deepest + 1);
                stack.back().total += done.total;
                if (stack.back().total.tooLarge()) {
                    return false;
                }
            }
            continue;
        }
        const quint64 child = bigEndian(bytes + frame.first + frame.next * static_cast<quint64>(refSize), refSize);
        ++frame.next;
        if (child >= count || depth[child] == -1) {
            return false;
        }
        if (depth[child] > 0) {
            frame.deepest = std::max(frame.deepest, depth[child]);
            frame.total += expansion[child];
            if (frame.total.tooLarge()) {
                return false;
            }
        } else if (!enter(child)) {
            return false;
        }
    }
    return depth[top] - 1 <= MaxDepth && !expansion[top].tooLarge();
}

// Whether an XML list stays within the bounds: its <array> and <dict> tags
// nest at most MaxDepth deep, and it holds at most MaxObjects elements (XML
// has no references: its bytes bound the rest).
bool xmlWithinBounds(const QByteArray &data)
{
    int depth = 0;
    quint64 elements = 0;
    int at = 0;
    while ((at = data.indexOf('<', at)) >= 0) {
        if (data.mid(at, 4) == "<!--") {
            const int end = data.indexOf("-->", at);
            if (end < 0) {
                return false;
            }
            at = end + 3;
            continue;
        }
        const int end = data.indexOf('>', at);
        if (end < 0) {
            return false;
        }
        const QByteArray tag = data.mid(at + 1, end - at - 1).trimmed();
        if (tag == "array" || tag == "dict") {
            if (++depth > MaxDepth) {
                return false;
            }
        } else if (tag == "/array" || tag == "/dict") {
            --depth;
        }
        if (!tag.startsWith('/') && !tag.startsWith('?') && !tag.startsWith('!') && ++elements > MaxObjects) {
            return false;
        }
        at = end + 1;
    }
    return true;
}

QVariant toVariant(plist_t node, int depth)
{
    if (!node || depth > MaxDepth) {
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
        // By iterator: libplist 2.2 finds an item by index from the start,
        // which made long lists quadratic.
        QVariantList list;
        list.reserve(static_cast<int>(plist_array_get_size(node)));
        plist_array_iter it = nullptr;
        plist_array_new_iter(node, &it);
        for (;;) {
            plist_t item = nullptr;
            plist_array_next_item(node, it, &item);
            if (!item) {
                break;
            }
            list.append(toVariant(item, depth + 1));
        }
        free(it);
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
    const bool binary = data.startsWith("bplist00");
    if (!(binary ? binaryWithinBounds(data) : xmlWithinBounds(data))) {
        return QVariant();
    }
    if (binary) {
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
