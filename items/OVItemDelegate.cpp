// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVItemDelegate.h"

#include "OVBackupItemModel.h"
#include "OVLocalizedStrings.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QHelpEvent>
#include <QPainter>
#include <QToolTip>

namespace
{
constexpr int TagRole = Qt::UserRole + 1;

void fill(QComboBox *popUp, const QVector<OVBackupItemModel::MenuEntry> &menu)
{
    for (const auto &entry : menu) {
        if (entry.separator) {
            popUp->insertSeparator(popUp->count());
            continue;
        }
        popUp->addItem(OVBackupItemModel::iconFor(entry.iconPath), entry.title);
        popUp->setItemData(popUp->count() - 1, entry.tag, TagRole);
    }
}
}

QWidget *OVItemDelegate::createEditor(QWidget *parent, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const auto *model = qobject_cast<const OVBackupItemModel *>(index.model());
    if (!model || index.column() == OVBackupItemModel::CheckColumn) {
        return QStyledItemDelegate::createEditor(parent, option, index);
    }
    auto *popUp = new QComboBox(parent);
    popUp->setObjectName(QStringLiteral("cellPopUp"));
    switch (index.column()) {
    case OVBackupItemModel::FrequencyColumn: {
        const QStringList titles = model->frequencyTitles();
        for (int i = 0; i < titles.size(); ++i) {
            if (i == OVBackupItem::NoSchedule) {
                popUp->insertSeparator(i);
            } else {
                popUp->addItem(titles.at(i));
            }
        }
        break;
    }
    case OVBackupItemModel::SourceColumn:
        fill(popUp, model->sourceMenu(index.row()));
        break;
    case OVBackupItemModel::DestColumn:
        fill(popUp, model->destMenu(index.row()));
        break;
    }
    // A pop-up cell: one choice commits it.
    connect(popUp, qOverload<int>(&QComboBox::activated), this, [this, popUp] {
        auto *self = const_cast<OVItemDelegate *>(this);
        Q_EMIT self->commitData(popUp);
        Q_EMIT self->closeEditor(popUp);
    });
    return popUp;
}

void OVItemDelegate::initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    if (index.column() == OVBackupItemModel::CheckColumn && !(index.flags() & Qt::ItemIsUserCheckable)) {
        option->state &= ~QStyle::State_Enabled;
    }
}

void OVItemDelegate::setEditorData(QWidget *editor, const QModelIndex &index) const
{
    auto *popUp = qobject_cast<QComboBox *>(editor);
    if (!popUp) {
        QStyledItemDelegate::setEditorData(editor, index);
        return;
    }
    const QVariant value = index.data(Qt::EditRole);
    popUp->setCurrentIndex(value.isValid() ? value.toInt() : -1);
    QMetaObject::invokeMethod(popUp, &QComboBox::showPopup, Qt::QueuedConnection);
}

void OVItemDelegate::setModelData(QWidget *editor, QAbstractItemModel *model, const QModelIndex &index) const
{
    auto *popUp = qobject_cast<QComboBox *>(editor);
    if (!popUp) {
        QStyledItemDelegate::setModelData(editor, model, index);
        return;
    }
    const int chosen = popUp->currentIndex();
    if (chosen < 0) {
        return;
    }
    model->setData(index, chosen, Qt::EditRole);
    Q_EMIT entryChosen(index.row(), index.column(), popUp->itemData(chosen, TagRole).toInt());
}

QRect OVItemDelegate::exclusionsSignRect(const QRect &cell)
{
    const int side = qMin(16, cell.height() - 2);
    return QRect(cell.right() - side - 2, cell.center().y() - side / 2, side, side);
}

void OVItemDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const QStringList exclusions = index.data(OVBackupItemModel::ExclusionsRole).toStringList();
    if (exclusions.isEmpty()) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }
    const QRect sign = exclusionsSignRect(option.rect);
    QStyleOptionViewItem text = option;
    text.rect.setRight(sign.left() - 2);
    QStyledItemDelegate::paint(painter, text, index);
    const QIcon icon = QIcon::fromTheme(QStringLiteral("view-filter"));
    icon.paint(painter, sign, Qt::AlignCenter, option.state & QStyle::State_Enabled ? QIcon::Normal : QIcon::Disabled);
}

bool OVItemDelegate::helpEvent(QHelpEvent *event, QAbstractItemView *view, const QStyleOptionViewItem &option, const QModelIndex &index)
{
    const QStringList exclusions = index.data(OVBackupItemModel::ExclusionsRole).toStringList();
    if (event->type() == QEvent::ToolTip && !exclusions.isEmpty() && exclusionsSignRect(option.rect).contains(event->pos())) {
        QToolTip::showText(event->globalPos(), OVLocalized("ExclusionsTip") + QLatin1Char('\n') + exclusions.join(QLatin1Char('\n')), view);
        return true;
    }
    return QStyledItemDelegate::helpEvent(event, view, option, index);
}
