// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QColor>
#include <QTableView>
#include <QVector>

// The items table: every other row tinted, thin light vertical lines between
// the columns, both painted beneath the cells and the selection.
class OVTableView : public QTableView
{
    Q_OBJECT
public:
    explicit OVTableView(QWidget *parent = nullptr);

    // The tint, made once for the process.
    static QColor stripeColor();

    // The stripes for a clip rectangle in the table's coordinates: rows 0,
    // 2, 4 … each one full row high (row height plus spacing).
    static QVector<QRectF> stripesInRect(const QRectF &clip, double rowHeight, double spacing);
    // The x of each grid line for a clip rectangle, from the column widths
    // (none after the last column). The boundary counts from the clip's left
    // edge but is checked against the clip's right edge in table
    // coordinates, as the original drawing does.
    static QVector<double> gridInClipRect(const QRectF &clip, const QVector<int> &columnWidths, int spacing);

    // Space between rows and between columns; none by default.
    QSize intercellSpacing() const
    {
        return m_spacing;
    }
    void setIntercellSpacing(const QSize &spacing)
    {
        m_spacing = spacing;
    }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QSize m_spacing;
};
