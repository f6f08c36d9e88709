// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include "OVPreview.h"

#include <QDialog>
#include <QProcess>

#include <memory>

namespace Ui
{
class OVPreviewWindow;
}
class OVPreviewModel;

// "Preview…" of a row: the copy tool's dry run of the item, as the user, in
// the background; what it would copy, replace and delete, each with its
// count and size, and every entry. Nothing is changed. Closing stops it.
class OVPreviewWindow : public QDialog
{
    Q_OBJECT
public:
    OVPreviewWindow(const OVBackupItem &item, const OVPreview::Options &options, QWidget *parent = nullptr);
    ~OVPreviewWindow() override;

    // The copy tool; the installed one unless set (before start()).
    void setProgram(const QString &program)
    {
        m_program = program;
    }
    void start();

    bool isRunning() const;
    // What it shows, for those who drive it.
    const OVPreview &preview() const
    {
        return m_preview;
    }
    int recordCount() const;
    QString note() const;

Q_SIGNALS:
    void finished(bool ok);

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void readOutput();
    void ended(int exitCode, QProcess::ExitStatus status);
    void failedToStart();
    void showTotals();

    std::unique_ptr<Ui::OVPreviewWindow> m_ui;
    OVBackupItem m_item;
    OVPreview::Options m_options;
    OVPreview m_preview;
    OVPreviewModel *m_model;
    QProcess *m_process;
    QString m_program;
    QByteArray m_errors;
};
