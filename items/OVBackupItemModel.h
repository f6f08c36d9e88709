#pragma once

#include "OVBackupItem.h"

#include <QAbstractTableModel>
#include <QStringList>
#include <QVector>

// Owns the pane's item list in table order and answers the whole-list
// questions the scripts, schedules and the backup button ask.
class OVBackupItemModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column { CheckColumn = 0, FrequencyColumn, SourceColumn, DestColumn, ColumnCount };

    explicit OVBackupItemModel(QObject *parent = nullptr);

    // "checkColumn", "frequencyColumn", "sourceColumn", "destColumn".
    static QString columnIdentifier(int column);
    static int columnForIdentifier(const QString &identifier);

    const QVector<OVBackupItem> &items() const { return m_items; }
    void setItems(const QVector<OVBackupItem> &items);
    const OVBackupItem &item(int row) const { return m_items.at(row); }

    // Appends the default item: ticked, manual, no labels, paths or Toast.
    void createNewBackupItem();
    void removeItem(int row);

    // A ticked item of that schedule ("daily", "weekly", "monthly") with a
    // source and a destination or the Toast flag.
    bool hasBackupType(const QString &type) const;
    // At least one complete, ticked and enabled manual item, and no ticked
    // and enabled item incomplete.
    bool validateBackupItems(bool toastInstalled) const;

    // Rows can be selected and edited only while the pane is unlocked and
    // backups are on.
    void setEditable(bool editable);
    bool isEditable() const { return m_editable; }
    Qt::ItemFlags flags(const QModelIndex &index) const override;

    // The frequency menu's titles by value, shown in the frequency column.
    void setFrequencyTitles(const QStringList &titles);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    QVector<OVBackupItem> m_items;
    QStringList m_frequencyTitles;
    bool m_editable = false;
};
