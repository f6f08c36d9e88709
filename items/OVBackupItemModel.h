// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include "OVBackupItem.h"

#include <QAbstractTableModel>
#include <QIcon>
#include <QStringList>
#include <QVector>
#include <array>

// Owns the pane's item list in table order, answers the whole-list
// questions the scripts, schedules and the backup button ask, and gives the
// table its cells: the tick box, the frequency and the source and
// destination menus, which are made afresh for each row from its item.
class OVBackupItemModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column { CheckColumn = 0, FrequencyColumn, SourceColumn, DestColumn, ColumnCount };
    // The source cell's exclusions (a QStringList), for the sign the row
    // shows of them.
    static constexpr int ExclusionsRole = Qt::UserRole + 10;
    // Tags of the menu entries that act.
    enum Tag { LabelTag = 0, ChooseSourceTag = 1, ChooseDestinationTag = 2, ToastTag = 6 };

    struct MenuEntry {
        QString title;
        int tag = LabelTag;
        bool separator = false;
        QString iconPath;
    };

    explicit OVBackupItemModel(QObject *parent = nullptr);

    // "checkColumn", "frequencyColumn", "sourceColumn", "destColumn".
    static QString columnIdentifier(int column);
    static int columnForIdentifier(const QString &identifier);

    const QVector<OVBackupItem> &items() const
    {
        return m_items;
    }
    void setItems(const QVector<OVBackupItem> &items);
    const OVBackupItem &item(int row) const
    {
        return m_items.at(row);
    }

    // Appends the default item: ticked, manual, no labels, paths or Toast.
    void createNewBackupItem();
    void removeItem(int row);

    // A ticked item of that schedule ("daily", "weekly", "monthly") with a
    // source and a destination or the Toast flag.
    bool hasBackupType(const QString &type) const;
    bool hasBackupType(OVFrequency frequency) const;
    // hasBackupType for daily, weekly and monthly, in that order.
    std::array<bool, 3> scheduledTypes() const;
    // Takes the items of the installed archive; false, with no items, when
    // there is none or it cannot be decoded (archive_table keeps such a
    // file beside the next one saved, so it is not lost).
    bool loadArchive();
    // At least one complete, ticked and enabled manual item, and no ticked
    // and enabled item incomplete.
    bool validateBackupItems(bool toastInstalled) const;

    // Rows can be selected and edited only while the pane is unlocked and
    // backups are on.
    void setEditable(bool editable);
    bool isEditable() const
    {
        return m_editable;
    }

    void setToast(bool installed, const QString &fullPathToToast);
    bool isToastInstalled() const
    {
        return m_toastInstalled;
    }

    // The frequency menu's titles by value (index 3 is its separator).
    void setFrequencyTitles(const QStringList &titles);
    QStringList frequencyTitles() const
    {
        return m_frequencyTitles;
    }

    // A row's menus: [label, separator,] "Choose Folder…", and for the
    // destination [separator, Toast] while Toast is installed. An item's
    // stored index is an index in these menus.
    QVector<MenuEntry> sourceMenu(int row) const;
    // The file manager's icon of a menu entry's folder.
    static QIcon iconFor(const QString &path);
    QVector<MenuEntry> destMenu(int row) const;
    // The destination entry shown: Toast for a Toast item while it is there.
    int selectedDestIndex(int row) const;

    // A folder taken from the folder dialog, as source (1) or destination (2).
    void setFolder(int row, int cell, const QString &path, const QString &label);
    void setToastFlag(int row, bool toast);
    // What the row's item leaves out; removedFromBackup is part of entries.
    void setExclusions(int row, const QStringList &entries, const QStringList &removedFromBackup);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

Q_SIGNALS:
    // An edit in the table changed an item: the backup button may change.
    void itemEdited(int row);

private:
    // The tick box may be used once the item has both labels (or Toast) and
    // the row is editable.
    void updateCheckEnabled(int row);
    void rowChanged(int row);

    QVector<OVBackupItem> m_items;
    // Rows made in the table since the list was set: choosing their source
    // gives them the default exclusions.
    QVector<bool> m_made;
    QStringList m_frequencyTitles;
    bool m_editable = false;
    bool m_toastInstalled = false;
    QString m_fullPathToToast;
};
