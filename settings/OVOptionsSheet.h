#pragma once

#include <QDialog>
#include <memory>

class QComboBox;

namespace Ui
{
class OVOptionsSheet;
}

// The options dialog, window-modal over the pane.
class OVOptionsSheet : public QDialog
{
    Q_OBJECT
public:
    explicit OVOptionsSheet(QWidget *parent = nullptr);
    ~OVOptionsSheet() override;

    QComboBox *soundPopUp() const;

private:
    std::unique_ptr<Ui::OVOptionsSheet> m_ui;
};
