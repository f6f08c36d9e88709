// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVTableView.h"

#include "OVAccessibleTable.h"
#include "OVTint.h"

#include <QApplication>
#include <QHeaderView>
#include <QPaintEvent>
#include <QPainter>

OVTableView::OVTableView(QWidget *parent)
    : QTableView(parent)
{
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::SingleSelection);
    // A click selects a row (for "−"); a cell's menu opens on a deliberate
    // act: a double-click, a click on the selected row's cell, or F2.
    setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::SelectedClicked | QAbstractItemView::EditKeyPressed);
    setShowGrid(false);
    verticalHeader()->hide();
    // A screen reader hears a tick box that cannot be used as disabled.
    OVAccessibleTable::install(metaObject()->className());
}

QColor OVTableView::stripeColor()
{
    static const QColor color = ovStripeTint(QApplication::palette());
    return color;
}

QVector<QRectF> OVTableView::stripesInRect(const QRectF &clip, double rowHeight, double spacing)
{
    QVector<QRectF> stripes;
    const double height = rowHeight + spacing;
    if (height <= 0) {
        return stripes;
    }
    const int row = static_cast<int>(clip.y() / height);
    const int first = row % 2 == 0 ? row : row + 1;
    for (float top = static_cast<float>(first * height); clip.y() + clip.height() > top; top = static_cast<float>(top + 2.0 * height)) {
        stripes.append(QRectF(clip.x(), top, clip.width(), height));
    }
    return stripes;
}

QVector<double> OVTableView::gridInClipRect(const QRectF &clip, const QVector<int> &columnWidths, int spacing)
{
    QVector<double> lines;
    int position = static_cast<int>(-clip.x());
    for (int column = 0; column + 1 < columnWidths.size(); ++column) {
        position = static_cast<int>(position + columnWidths.at(column) + spacing);
        if (position <= 0) {
            continue;
        }
        if (position > clip.x() + clip.width()) {
            break;
        }
        lines.append(position + clip.x() - 0.5);
    }
    return lines;
}

void OVTableView::paintEvent(QPaintEvent *event)
{
    // Table coordinates: the viewport scrolled by the offsets.
    const QPointF offset(horizontalOffset(), verticalOffset());
    const QRectF clip = QRectF(event->rect()).translated(offset);
    {
        QPainter painter(viewport());
        painter.translate(-offset);
        const int rowHeight = verticalHeader()->defaultSectionSize();
        for (const QRectF &stripe : stripesInRect(clip, rowHeight, m_spacing.height())) {
            painter.fillRect(stripe, stripeColor());
        }
        QVector<int> widths;
        for (int column = 0; column < horizontalHeader()->count(); ++column) {
            widths.append(columnWidth(column));
        }
        painter.setPen(QPen(QColor(Qt::lightGray), 0.3));
        for (double x : gridInClipRect(clip, widths, m_spacing.width())) {
            painter.drawLine(QPointF(x, clip.top()), QPointF(x, clip.bottom()));
        }
    }
    QTableView::paintEvent(event);
}
