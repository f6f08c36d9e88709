#include "OVOptionsSheet.h"

#include "ui_optionssheet.h"

OVOptionsSheet::OVOptionsSheet(QWidget *parent)
    : QDialog(parent)
    , m_ui(std::make_unique<Ui::OVOptionsSheet>())
{
    m_ui->setupUi(this);
    setWindowModality(Qt::WindowModal);
}

OVOptionsSheet::~OVOptionsSheet() = default;

QComboBox *OVOptionsSheet::soundPopUp() const
{
    return m_ui->soundPopUp;
}
