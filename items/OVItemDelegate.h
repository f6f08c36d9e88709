// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QStyledItemDelegate>

// Edits the frequency, source and destination cells with pop-up menus made
// from the row's item each time; a chosen entry's tag tells the pane what
// to do next (open the folder dialog, set or clear Toast).
class OVItemDelegate : public QStyledItemDelegate
{
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QWidget *createEditor(QWidget *parent, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    void setEditorData(QWidget *editor, const QModelIndex &index) const override;
    void setModelData(QWidget *editor, QAbstractItemModel *model, const QModelIndex &index) const override;
    // A tick box that cannot be used is drawn disabled.
    void initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const override;
    // A source that leaves something out carries a sign at the cell's end,
    // whose tool tip lists what.
    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    bool helpEvent(QHelpEvent *event, QAbstractItemView *view, const QStyleOptionViewItem &option, const QModelIndex &index) override;
    static QRect exclusionsSignRect(const QRect &cell);

Q_SIGNALS:
    // After the chosen entry's index is stored in the item.
    void entryChosen(int row, int column, int tag) const;
};
