// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVExclusionsSheet.h"

#include "OVExclusions.h"
#include "OVLocalizedStrings.h"
#include "ui_exclusionssheet.h"

#include <QDir>
#include <QFileDialog>
#include <QInputDialog>
#include <QMessageBox>
#include <QPushButton>

OVExclusionsSheet::OVExclusionsSheet(const QString &source, const QStringList &entries, const QStringList &removedFromBackup, bool editable, QWidget *parent)
    : QDialog(parent)
    , m_ui(new Ui::OVExclusionsSheet)
    , m_source(source)
    , m_entries(entries)
    , m_removed(removedFromBackup)
{
    m_ui->setupUi(this);
    setWindowModality(Qt::WindowModal);
    m_ui->sourceLabel->setText(OVLocalized("ExclusionsOf").arg(source));
    m_ui->errorLabel->hide();
    m_ui->addFolderButton->setEnabled(editable);
    m_ui->addPatternButton->setEnabled(editable);
    m_ui->buttonBox->button(QDialogButtonBox::Ok)->setEnabled(editable);
    connect(m_ui->addFolderButton, &QPushButton::clicked, this, &OVExclusionsSheet::chooseFolder);
    connect(m_ui->addPatternButton, &QPushButton::clicked, this, &OVExclusionsSheet::askPattern);
    connect(m_ui->removeButton, &QPushButton::clicked, this, &OVExclusionsSheet::removeSelected);
    connect(m_ui->exclusionList, &QTreeWidget::itemSelectionChanged, this, [this, editable] {
        m_ui->removeButton->setEnabled(editable && !m_ui->exclusionList->selectedItems().isEmpty());
    });
    connect(m_ui->buttonBox, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(m_ui->buttonBox, &QDialogButtonBox::rejected, this, &QDialog::reject);
    fill();
}

OVExclusionsSheet::~OVExclusionsSheet() = default;

void OVExclusionsSheet::fill()
{
    m_ui->exclusionList->clear();
    for (const QString &entry : qAsConst(m_entries)) {
        auto *row = new QTreeWidgetItem(m_ui->exclusionList);
        row->setText(0, entry);
        row->setToolTip(0, entry);
        row->setText(1, OVLocalized(m_removed.contains(entry) ? "ExclusionRemovedFromBackup" : "ExclusionKeptInBackup"));
        row->setIcon(0, QIcon::fromTheme(OVExclusions::isPath(entry) ? QStringLiteral("folder") : QStringLiteral("view-filter")));
    }
    m_ui->exclusionList->resizeColumnToContents(0);
}

QString OVExclusionsSheet::problemWith(const QString &entry) const
{
    if (entry.trimmed().isEmpty()) {
        return OVLocalized("ExclusionEmpty");
    }
    if (OVExclusions::isPath(entry) && OVExclusions::relativeTo(entry, m_source).isEmpty()) {
        return OVLocalized("ExclusionOutsideSource").arg(entry, m_source);
    }
    if (m_entries.contains(entry)) {
        return OVLocalized("ExclusionAlreadyThere").arg(entry);
    }
    return QString();
}

void OVExclusionsSheet::add(const QString &entry)
{
    const QString problem = problemWith(entry);
    m_ui->errorLabel->setText(problem);
    m_ui->errorLabel->setVisible(!problem.isEmpty());
    if (!problem.isEmpty()) {
        return;
    }
    // What earlier runs copied stays in the backup unless the user says so.
    auto *question =
        new QMessageBox(QMessageBox::Question, OVLocalized("ExclusionAskTitle"), OVLocalized("ExclusionAsk").arg(entry), QMessageBox::NoButton, this);
    question->setObjectName(QStringLiteral("removeFromBackupQuestion"));
    question->setAttribute(Qt::WA_DeleteOnClose);
    question->setInformativeText(OVLocalized("ExclusionAskDetail"));
    QPushButton *remove = question->addButton(OVLocalized("ExclusionRemoveFromBackup"), QMessageBox::DestructiveRole);
    remove->setObjectName(QStringLiteral("removeFromBackupButton"));
    QPushButton *keep = question->addButton(OVLocalized("ExclusionKeepInBackup"), QMessageBox::AcceptRole);
    keep->setObjectName(QStringLiteral("keepInBackupButton"));
    question->setDefaultButton(keep);
    question->setEscapeButton(keep);
    connect(question, &QMessageBox::finished, this, [this, question, remove, entry] {
        addAnswered(entry, question->clickedButton() == remove);
    });
    question->open();
}

void OVExclusionsSheet::addAnswered(const QString &entry, bool removeFromBackup)
{
    if (!problemWith(entry).isEmpty()) {
        return;
    }
    m_entries.append(entry);
    if (removeFromBackup) {
        m_removed.append(entry);
    }
    fill();
}

void OVExclusionsSheet::removeSelected()
{
    const QList<QTreeWidgetItem *> rows = m_ui->exclusionList->selectedItems();
    for (QTreeWidgetItem *row : rows) {
        m_entries.removeAll(row->text(0));
        m_removed.removeAll(row->text(0));
    }
    fill();
    m_ui->removeButton->setEnabled(false);
}

void OVExclusionsSheet::chooseFolder()
{
    auto *panel = new QFileDialog(this);
    panel->setObjectName(QStringLiteral("exclusionFolderPanel"));
    panel->setAttribute(Qt::WA_DeleteOnClose);
    panel->setFileMode(QFileDialog::Directory);
    panel->setOption(QFileDialog::ShowDirsOnly);
    panel->setLabelText(QFileDialog::Accept, OVLocalized("Choose"));
    panel->setDirectory(QFileInfo(m_source).isDir() ? m_source : QDir::homePath());
    connect(panel, &QFileDialog::fileSelected, this, [this](const QString &path) {
        add(QDir::cleanPath(path));
    });
    panel->open();
}

void OVExclusionsSheet::askPattern()
{
    auto *dialog = new QInputDialog(this);
    dialog->setObjectName(QStringLiteral("exclusionPatternDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(OVLocalized("ExclusionPatternTitle"));
    dialog->setLabelText(OVLocalized("ExclusionPatternLabel"));
    connect(dialog, &QInputDialog::textValueSelected, this, [this](const QString &text) {
        add(text.trimmed());
    });
    dialog->open();
}
