// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVPreviewWindow.h"

#include "OVLocalizedStrings.h"
#include "ovfixedpaths.h"
#include "ui_previewwindow.h"

#include <QAbstractTableModel>
#include <QCloseEvent>
#include <QFile>
#include <QFileInfo>
#include <QHeaderView>
#include <QLocale>
#include <QSortFilterProxyModel>

// The records in arrival order; the view sorts.
class OVPreviewModel : public QAbstractTableModel
{
public:
    using QAbstractTableModel::QAbstractTableModel;

    void append(const QVector<OVPreview::Record> &records)
    {
        if (records.isEmpty()) {
            return;
        }
        beginInsertRows(QModelIndex(), m_records.size(), m_records.size() + records.size() - 1);
        m_records += records;
        endInsertRows();
    }
    int rowCount(const QModelIndex &parent = QModelIndex()) const override
    {
        return parent.isValid() ? 0 : m_records.size();
    }
    int columnCount(const QModelIndex &parent = QModelIndex()) const override
    {
        return parent.isValid() ? 0 : 3;
    }
    QVariant data(const QModelIndex &index, int role) const override
    {
        if (!index.isValid() || index.row() >= m_records.size()) {
            return QVariant();
        }
        const OVPreview::Record &record = m_records.at(index.row());
        static const char *const Kinds[] = {"PreviewCopy", "PreviewReplace", "PreviewDelete"};
        if (role == Qt::DisplayRole || role == Qt::ToolTipRole) {
            switch (index.column()) {
            case 0:
                return OVLocalized(Kinds[record.kind]);
            case 1:
                return QLocale().formattedDataSize(record.size);
            case 2:
                return QFile::decodeName(record.path);
            }
        }
        // Sizes sort by bytes, not by their text.
        if (role == Qt::UserRole) {
            return index.column() == 1 ? QVariant(record.size) : data(index, Qt::DisplayRole);
        }
        return QVariant();
    }
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override
    {
        static const char *const Headers[] = {"PreviewWhatHeader", "PreviewSizeHeader", "PreviewPathHeader"};
        if (orientation == Qt::Horizontal && role == Qt::DisplayRole && section >= 0 && section < 3) {
            return OVLocalized(Headers[section]);
        }
        return QVariant();
    }

private:
    QVector<OVPreview::Record> m_records;
};

OVPreviewWindow::OVPreviewWindow(const OVBackupItem &item, const OVPreview::Options &options, QWidget *parent)
    : QDialog(parent)
    , m_ui(new Ui::OVPreviewWindow)
    , m_item(item)
    , m_options(options)
    , m_model(new OVPreviewModel(this))
    , m_process(new QProcess(this))
    , m_program(QString::fromLatin1(OVFixedPaths::PsyncTool))
{
    m_ui->setupUi(this);
    setWindowTitle(OVLocalized("PreviewTitle").arg(QFileInfo(item.sourcePath()).fileName()));
    m_ui->pairLabel->setText(OVLocalized("PreviewPair").arg(item.sourcePath(), item.destPath()));
    auto *sorted = new QSortFilterProxyModel(this);
    sorted->setSourceModel(m_model);
    sorted->setSortRole(Qt::UserRole);
    m_ui->recordView->setModel(sorted);
    m_ui->recordView->sortByColumn(-1, Qt::AscendingOrder);
    m_ui->recordView->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    m_ui->recordView->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    m_ui->noteLabel->hide();
    connect(m_ui->closeButton, &QPushButton::clicked, this, &QWidget::close);
    connect(m_process, &QProcess::readyReadStandardOutput, this, &OVPreviewWindow::readOutput);
    connect(m_process, &QProcess::readyReadStandardError, this, [this] {
        m_errors += m_process->readAllStandardError();
    });
    connect(m_process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this, &OVPreviewWindow::ended);
    connect(m_process, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart) {
            failedToStart();
        }
    });
    showTotals();
}

OVPreviewWindow::~OVPreviewWindow()
{
    if (m_process->state() != QProcess::NotRunning) {
        m_process->kill();
        m_process->waitForFinished(2000);
    }
}

void OVPreviewWindow::start()
{
    if (m_item.toast() || m_item.destPath().isEmpty() || m_item.sourcePath().isEmpty()) {
        m_ui->busyBar->hide();
        m_ui->noteLabel->setText(OVLocalized("PreviewNoDestination"));
        m_ui->noteLabel->show();
        Q_EMIT finished(false);
        return;
    }
    m_process->setProcessChannelMode(QProcess::SeparateChannels);
    m_process->start(m_program, OVPreview::arguments(m_item, m_options), QIODevice::ReadOnly);
}

bool OVPreviewWindow::isRunning() const
{
    return m_process->state() != QProcess::NotRunning;
}

int OVPreviewWindow::recordCount() const
{
    return m_model->rowCount();
}

QString OVPreviewWindow::note() const
{
    return m_ui->noteLabel->isHidden() ? QString() : m_ui->noteLabel->text();
}

void OVPreviewWindow::readOutput()
{
    m_model->append(m_preview.feed(m_process->readAllStandardOutput()));
    showTotals();
}

void OVPreviewWindow::showTotals()
{
    const QLocale locale;
    QLabel *const labels[] = {m_ui->copyLabel, m_ui->replaceLabel, m_ui->deleteLabel};
    for (int kind = 0; kind < OVPreview::KindCount; ++kind) {
        const auto k = OVPreview::Kind(kind);
        labels[kind]->setText(OVLocalized("PreviewTotal").arg(locale.toString(m_preview.count(k)), locale.formattedDataSize(m_preview.bytes(k))));
    }
}

void OVPreviewWindow::ended(int exitCode, QProcess::ExitStatus status)
{
    readOutput();
    m_ui->busyBar->hide();
    QStringList lines;
    // The tool's reasons, in its words for users, without its name; when
    // all went well, what it says is for the log only.
    const QList<QByteArray> errors = status == QProcess::NormalExit && exitCode == 0 ? QList<QByteArray>() : m_errors.split('\n');
    for (const QByteArray &line : errors) {
        const QString text = QString::fromUtf8(line.startsWith("psync: ") ? line.mid(7) : line).trimmed();
        if (!text.isEmpty()) {
            lines.append(text);
        }
    }
    bool ok = status == QProcess::NormalExit && (exitCode == 0 || exitCode == 1);
    if (status != QProcess::NormalExit) {
        lines.append(OVLocalized("PreviewStopped"));
    } else if (exitCode == 1) {
        lines.prepend(OVLocalized("PreviewIncomplete"));
    } else if (exitCode != 0) {
        lines.prepend(OVLocalized("PreviewFailed"));
    }
    if (m_preview.unreadable() > 0) {
        lines.append(OVLocalized("PreviewUnreadable").arg(m_preview.unreadable()));
        ok = false;
    }
    if (ok && m_model->rowCount() == 0) {
        lines.prepend(OVLocalized("PreviewNothing"));
    }
    m_ui->noteLabel->setText(lines.join(QLatin1Char('\n')));
    m_ui->noteLabel->setVisible(!lines.isEmpty());
    Q_EMIT finished(ok);
}

void OVPreviewWindow::failedToStart()
{
    m_ui->busyBar->hide();
    m_ui->noteLabel->setText(OVLocalized("PreviewNoTool").arg(m_program));
    m_ui->noteLabel->show();
    Q_EMIT finished(false);
}

void OVPreviewWindow::closeEvent(QCloseEvent *event)
{
    if (m_process->state() != QProcess::NotRunning) {
        m_process->kill();
    }
    QDialog::closeEvent(event);
}
