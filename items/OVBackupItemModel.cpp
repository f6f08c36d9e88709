#include "OVBackupItemModel.h"

#include "OVLocalizedStrings.h"

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
    endResetModel();
}

void OVBackupItemModel::createNewBackupItem()
{
    const OVBackupItem item = OVBackupItem::initWithValues({
        {QStringLiteral("CheckColumn"), true},
        {QStringLiteral("FrequencyColumn"), OVBackupItem::Manual},
        {QStringLiteral("SourceColumn"), 0},
        {QStringLiteral("DestColumn"), 0},
    });
    beginInsertRows(QModelIndex(), m_items.size(), m_items.size());
    m_items.append(item);
    endInsertRows();
}

void OVBackupItemModel::removeItem(int row)
{
    if (row < 0 || row >= m_items.size()) {
        return;
    }
    beginRemoveRows(QModelIndex(), row, row);
    m_items.removeAt(row);
    endRemoveRows();
}

bool OVBackupItemModel::hasBackupType(const QString &type) const
{
    int frequency;
    if (type == QLatin1String("daily")) {
        frequency = OVBackupItem::Daily;
    } else if (type == QLatin1String("weekly")) {
        frequency = OVBackupItem::Weekly;
    } else if (type == QLatin1String("monthly")) {
        frequency = OVBackupItem::Monthly;
    } else {
        return false;
    }
    return std::any_of(m_items.cbegin(), m_items.cend(), [frequency](const OVBackupItem &item) {
        return item.frequencyColumn() == frequency && item.checkColumn() && item.isComplete();
    });
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
        } else if (item.frequencyColumn() == OVBackupItem::Manual) {
            hasManual = true;
        }
    }
    return allValid && hasManual;
}

void OVBackupItemModel::setEditable(bool editable)
{
    if (editable == m_editable) {
        return;
    }
    m_editable = editable;
    if (!m_items.isEmpty()) {
        Q_EMIT dataChanged(index(0, 0), index(m_items.size() - 1, ColumnCount - 1));
    }
}

Qt::ItemFlags OVBackupItemModel::flags(const QModelIndex &index) const
{
    if (!index.isValid()) {
        return Qt::NoItemFlags;
    }
    return m_editable ? Qt::ItemIsEnabled | Qt::ItemIsSelectable : Qt::NoItemFlags;
}

void OVBackupItemModel::setFrequencyTitles(const QStringList &titles)
{
    m_frequencyTitles = titles;
    if (!m_items.isEmpty()) {
        Q_EMIT dataChanged(index(0, FrequencyColumn), index(m_items.size() - 1, FrequencyColumn));
    }
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
    const OVBackupItem &item = m_items.at(index.row());
    switch (index.column()) {
    case CheckColumn:
        return role == Qt::CheckStateRole ? QVariant(item.checkColumn() ? Qt::Checked : Qt::Unchecked) : QVariant();
    case FrequencyColumn:
        if (role == Qt::EditRole) {
            return item.frequencyColumn();
        }
        if (role == Qt::DisplayRole) {
            return m_frequencyTitles.value(item.frequencyColumn());
        }
        return QVariant();
    case SourceColumn:
        return role == Qt::DisplayRole ? item.backupSource() : QVariant();
    case DestColumn:
        return role == Qt::DisplayRole ? item.backupDestination() : QVariant();
    }
    return QVariant();
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
