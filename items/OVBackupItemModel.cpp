// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVBackupItemModel.h"

#include "OVExclusions.h"
#include "OVItemArchive.h"

#include "OVLocalizedStrings.h"

#include <QDir>
#include <QFileIconProvider>
#include <QFileInfo>

#include <algorithm>

namespace
{
const char *const Identifiers[] = {"checkColumn", "frequencyColumn", "sourceColumn", "destColumn"};
}

OVBackupItemModel::OVBackupItemModel(QObject *parent)
    : QAbstractTableModel(parent)
{
}

QString OVBackupItemModel::columnIdentifier(int column)
{
    return column >= 0 && column < ColumnCount ? QString::fromLatin1(Identifiers[column]) : QString();
}

int OVBackupItemModel::columnForIdentifier(const QString &identifier)
{
    for (int column = 0; column < ColumnCount; ++column) {
        if (identifier == QLatin1String(Identifiers[column])) {
            return column;
        }
    }
    return -1;
}

void OVBackupItemModel::setItems(const QVector<OVBackupItem> &items)
{
    beginResetModel();
    m_items = items;
    m_made = QVector<bool>(m_items.size(), false);
    for (int row = 0; row < m_items.size(); ++row) {
        updateCheckEnabled(row);
    }
    endResetModel();
}

void OVBackupItemModel::createNewBackupItem()
{
    const OVBackupItem item = OVBackupItem::initWithValues({
        {QStringLiteral("CheckColumn"), true},
        {QStringLiteral("FrequencyColumn"), int(OVFrequency::Manual)},
        {QStringLiteral("SourceColumn"), 0},
        {QStringLiteral("DestColumn"), 0},
    });
    beginInsertRows(QModelIndex(), m_items.size(), m_items.size());
    m_items.append(item);
    m_made.append(true);
    endInsertRows();
}

void OVBackupItemModel::removeItem(int row)
{
    if (row < 0 || row >= m_items.size()) {
        return;
    }
    beginRemoveRows(QModelIndex(), row, row);
    m_items.removeAt(row);
    m_made.removeAt(row);
    endRemoveRows();
}

bool OVBackupItemModel::hasBackupType(const QString &type) const
{
    for (const OVFixedPaths::FrequencyFiles &files : OVFixedPaths::Scheduled) {
        if (type == QLatin1String(files.word)) {
            return hasBackupType(files.frequency);
        }
    }
    return false;
}

bool OVBackupItemModel::hasBackupType(OVFrequency frequency) const
{
    return std::any_of(m_items.cbegin(), m_items.cend(), [frequency](const OVBackupItem &item) {
        return item.qualifiesFor(frequency);
    });
}

std::array<bool, 3> OVBackupItemModel::scheduledTypes() const
{
    std::array<bool, 3> types{};
    for (std::size_t i = 0; i < OVFixedPaths::ScheduledCount; ++i) {
        types[i] = hasBackupType(OVFixedPaths::Scheduled[i].frequency);
    }
    return types;
}

bool OVBackupItemModel::validateBackupItems(bool toastInstalled) const
{
    bool allValid = true;
    bool hasManual = false;
    for (const OVBackupItem &item : m_items) {
        if (!item.checkColumn() || !item.checkEnabled()) {
            continue;
        }
        if (item.sourcePath().isNull()) {
            allValid = false;
        } else if (item.destPath().isNull() && !(item.toast() && toastInstalled)) {
            allValid = false;
        } else if (item.frequencyColumn() == int(OVFrequency::Manual)) {
            hasManual = true;
        }
    }
    return allValid && hasManual;
}

void OVBackupItemModel::setEditable(bool editable)
{
    m_editable = editable;
    for (int row = 0; row < m_items.size(); ++row) {
        updateCheckEnabled(row);
    }
    if (!m_items.isEmpty()) {
        Q_EMIT dataChanged(index(0, 0), index(m_items.size() - 1, ColumnCount - 1));
    }
}

void OVBackupItemModel::setToast(bool installed, const QString &fullPathToToast)
{
    m_toastInstalled = installed;
    m_fullPathToToast = fullPathToToast;
}

void OVBackupItemModel::setFrequencyTitles(const QStringList &titles)
{
    m_frequencyTitles = titles;
    if (!m_items.isEmpty()) {
        Q_EMIT dataChanged(index(0, FrequencyColumn), index(m_items.size() - 1, FrequencyColumn));
    }
}

QIcon OVBackupItemModel::iconFor(const QString &path)
{
    static QFileIconProvider provider;
    return path.isEmpty() ? QIcon() : provider.icon(QFileInfo(path));
}

// [label, separator,] "Choose Folder…"
static QVector<OVBackupItemModel::MenuEntry> folderMenu(const QString &label, const QString &path, int chooseTag)
{
    QVector<OVBackupItemModel::MenuEntry> menu;
    if (!label.isNull()) {
        menu.append({label, OVBackupItemModel::LabelTag, false, path});
        menu.append({QString(), OVBackupItemModel::LabelTag, true, QString()});
    }
    menu.append({OVLocalized("ChooseFolder"), chooseTag, false, QString()});
    return menu;
}

QVector<OVBackupItemModel::MenuEntry> OVBackupItemModel::sourceMenu(int row) const
{
    const OVBackupItem &item = m_items.at(row);
    return folderMenu(item.backupSource(), item.sourcePath(), ChooseSourceTag);
}

QVector<OVBackupItemModel::MenuEntry> OVBackupItemModel::destMenu(int row) const
{
    const OVBackupItem &item = m_items.at(row);
    QVector<MenuEntry> menu = folderMenu(item.backupDestination(), item.destPath(), ChooseDestinationTag);
    if (m_toastInstalled) {
        menu.append({QString(), LabelTag, true, QString()});
        menu.append({OVLocalized("ToastMenuItem"), ToastTag, false, m_fullPathToToast});
    }
    return menu;
}

int OVBackupItemModel::selectedDestIndex(int row) const
{
    const OVBackupItem &item = m_items.at(row);
    if (item.toast() && m_toastInstalled) {
        const auto menu = destMenu(row);
        for (int i = 0; i < menu.size(); ++i) {
            if (menu.at(i).tag == ToastTag) {
                return i;
            }
        }
    }
    return item.destColumn();
}

void OVBackupItemModel::setFolder(int row, int cell, const QString &path, const QString &label)
{
    if (row < 0 || row >= m_items.size()) {
        return;
    }
    OVBackupItem &item = m_items[row];
    // The chosen folder is the row's menu's first entry from now on.
    if (cell == ChooseSourceTag) {
        if (m_made.value(row)) {
            // A new item leaves out the user's Trash and cache in its source;
            // another source takes the place of the first one's defaults.
            const QString home = QDir::homePath();
            QStringList entries = item.exclusions();
            for (const QString &old : OVExclusions::defaults(item.sourcePath(), home)) {
                entries.removeAll(old);
            }
            for (const QString &entry : OVExclusions::defaults(path, home)) {
                if (!entries.contains(entry)) {
                    entries.append(entry);
                }
            }
            item.setExclusions(entries, item.exclusionsRemovedFromBackup());
        }
        item.setSourcePath(path);
        item.setBackupSource(label);
        item.setSourceColumn(0);
    } else if (cell == ChooseDestinationTag) {
        item.setDestPath(path);
        item.setBackupDestination(label);
        item.setDestColumn(0);
    } else {
        return;
    }
    rowChanged(row);
}

void OVBackupItemModel::setToastFlag(int row, bool toast)
{
    if (row < 0 || row >= m_items.size()) {
        return;
    }
    m_items[row].setToast(toast);
    rowChanged(row);
}

void OVBackupItemModel::setExclusions(int row, const QStringList &entries, const QStringList &removedFromBackup)
{
    if (row < 0 || row >= m_items.size()) {
        return;
    }
    m_items[row].setExclusions(entries, removedFromBackup);
    rowChanged(row);
}

void OVBackupItemModel::updateCheckEnabled(int row)
{
    OVBackupItem &item = m_items[row];
    item.setCheckEnabled(!item.backupSource().isNull() && (!item.backupDestination().isNull() || item.toast()) && m_editable);
}

void OVBackupItemModel::rowChanged(int row)
{
    updateCheckEnabled(row);
    Q_EMIT dataChanged(index(row, 0), index(row, ColumnCount - 1));
    Q_EMIT itemEdited(row);
}

int OVBackupItemModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_items.size();
}

int OVBackupItemModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant OVBackupItemModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_items.size()) {
        return QVariant();
    }
    const int row = index.row();
    const OVBackupItem &item = m_items.at(row);
    auto entryTitle = [](const QVector<MenuEntry> &menu, int at) {
        return at >= 0 && at < menu.size() && !menu.at(at).separator ? menu.at(at).title : QString();
    };
    auto entryIcon = [](const QVector<MenuEntry> &menu, int at) {
        return at >= 0 && at < menu.size() ? iconFor(menu.at(at).iconPath) : QIcon();
    };
    auto pathTip = [](const QString &path) {
        return path.isNull() || path == QLatin1String("/") ? QVariant() : QVariant(path);
    };
    switch (index.column()) {
    case CheckColumn:
        return role == Qt::CheckStateRole ? QVariant(item.checkColumn() ? Qt::Checked : Qt::Unchecked) : QVariant();
    case FrequencyColumn:
        if (role == Qt::EditRole) {
            return item.frequencyColumn();
        }
        return role == Qt::DisplayRole ? QVariant(m_frequencyTitles.value(item.frequencyColumn())) : QVariant();
    case SourceColumn:
        switch (role) {
        case Qt::EditRole:
            return item.sourceColumn();
        case Qt::DisplayRole:
            return entryTitle(sourceMenu(row), item.sourceColumn());
        case Qt::DecorationRole:
            return entryIcon(sourceMenu(row), item.sourceColumn());
        case Qt::ToolTipRole:
            return pathTip(item.sourcePath());
        case ExclusionsRole:
            return item.exclusions();
        case Qt::AccessibleDescriptionRole:
            return item.exclusions().isEmpty() ? QVariant() : QVariant(OVLocalized("ExclusionsCount").arg(item.exclusions().size()));
        }
        return QVariant();
    case DestColumn:
        // A Toast item shows nothing while Toast is not there.
        if (item.toast() && !m_toastInstalled) {
            return QVariant();
        }
        switch (role) {
        case Qt::EditRole:
            return selectedDestIndex(row);
        case Qt::DisplayRole:
            return entryTitle(destMenu(row), selectedDestIndex(row));
        case Qt::DecorationRole:
            return entryIcon(destMenu(row), selectedDestIndex(row));
        case Qt::ToolTipRole:
            return item.toast() ? QVariant() : pathTip(item.destPath());
        }
        return QVariant();
    }
    return QVariant();
}

bool OVBackupItemModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (!index.isValid() || index.row() >= m_items.size() || !(flags(index) & (Qt::ItemIsEditable | Qt::ItemIsUserCheckable))) {
        return false;
    }
    const QString key = columnIdentifier(index.column());
    if (index.column() == CheckColumn) {
        if (role != Qt::CheckStateRole) {
            return false;
        }
        m_items[index.row()].setValueForKey(key, value.toInt() == Qt::Checked);
    } else {
        if (role != Qt::EditRole) {
            return false;
        }
        m_items[index.row()].setValueForKey(key, value.toInt());
    }
    rowChanged(index.row());
    return true;
}

Qt::ItemFlags OVBackupItemModel::flags(const QModelIndex &index) const
{
    if (!index.isValid() || !m_editable) {
        return Qt::NoItemFlags;
    }
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (index.column() == CheckColumn) {
        if (m_items.at(index.row()).checkEnabled()) {
            flags |= Qt::ItemIsUserCheckable;
        }
    } else {
        flags |= Qt::ItemIsEditable;
    }
    return flags;
}

QVariant OVBackupItemModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) {
        return QVariant();
    }
    switch (section) {
    case FrequencyColumn:
        return OVLocalized("FrequencyHeader");
    case SourceColumn:
        return OVLocalized("SourceHeader");
    case DestColumn:
        return OVLocalized("DestinationHeader");
    }
    return QVariant();
}

bool OVBackupItemModel::loadArchive()
{
    const auto items = OVItemArchive::load(QString::fromUtf8(OVFixedPaths::ItemsArchive));
    setItems(items ? *items : QVector<OVBackupItem>());
    return items.has_value();
}
