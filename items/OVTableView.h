#pragma once

#include <QTableView>

// The items table's view.
class OVTableView : public QTableView
{
    Q_OBJECT
public:
    explicit OVTableView(QWidget *parent = nullptr);
};
