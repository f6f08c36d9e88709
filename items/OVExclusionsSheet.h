// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QDialog>
#include <QStringList>

#include <memory>

namespace Ui
{
class OVExclusionsSheet;
}

// "Exclusions…" of a row: what the item leaves out of its backups, with Add
// Folder…, Add Pattern… and Remove. Each addition asks whether what earlier
// runs already copied goes from the backup too. OK hands the lists back
// (accepted()); locked, the sheet only shows them.
class OVExclusionsSheet : public QDialog
{
    Q_OBJECT
public:
    OVExclusionsSheet(const QString &source, const QStringList &entries, const QStringList &removedFromBackup, bool editable, QWidget *parent = nullptr);
    ~OVExclusionsSheet() override;

    QStringList entries() const
    {
        return m_entries;
    }
    QStringList removedFromBackup() const
    {
        return m_removed;
    }

    // A folder or file inside the source, or a pattern: the reason in words
    // when it cannot be one (empty when it can).
    QString problemWith(const QString &entry) const;
    // Adds it, then asks about the earlier copies (a question that the
    // user, or a test, answers).
    void add(const QString &entry);
    void addAnswered(const QString &entry, bool removeFromBackup);
    void removeSelected();

    void chooseFolder();
    void askPattern();

private:
    void fill();

    std::unique_ptr<Ui::OVExclusionsSheet> m_ui;
    QString m_source;
    QStringList m_entries;
    QStringList m_removed;
};
