// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVLogSheet.h"

#include "OVLocalizedStrings.h"
#include "ovfixedpaths.h"
#include "ui_logsheet.h"

#include <QFile>
#include <QFontDatabase>
#include <QSettings>
#include <QTextCodec>
#include <QTimer>

namespace
{
// Logs can grow without end; the viewer shows at most their last part.
constexpr qint64 MaxShown = 8 * 1024 * 1024;
const QString FrameKey = QStringLiteral("OVLogSheet");
}

OVLogSheet::OVLogSheet(QWidget *parent)
    : QDialog(parent)
    , m_ui(std::make_unique<Ui::OVLogSheet>())
{
    m_ui->setupUi(this);
    setWindowModality(Qt::WindowModal);
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPointSizeF(10.0);
    m_ui->logTextView->setFont(font);
    m_ui->logTextView->document()->setDocumentMargin(10.0);
    connect(m_ui->showOnlyErrorsCheck, &QCheckBox::clicked, this, &OVLogSheet::loadLog);
    connect(m_ui->closeButton, &QPushButton::clicked, this, &OVLogSheet::closeRequested);
}

OVLogSheet::~OVLogSheet() = default;

bool OVLogSheet::showOnlyErrors() const
{
    return m_ui->showOnlyErrorsCheck->isChecked();
}

void OVLogSheet::setShowOnlyErrors(bool onlyErrors)
{
    m_ui->showOnlyErrorsCheck->setChecked(onlyErrors);
}

void OVLogSheet::viewLog(QPushButton *sender)
{
    if (QString(sender->text()).remove(QLatin1Char('&')) == OVLocalized("None")) {
        return;
    }
    m_ui->logTextView->setPlainText(QString());
    m_ui->showOnlyErrorsCheck->setProperty("tag", sender->property("tag"));
    loadLog();
    scrollToNewest();
    const QByteArray frame = QSettings(QStringLiteral("orvane"), QStringLiteral("sheets")).value(FrameKey).toByteArray();
    if (!frame.isEmpty()) {
        restoreGeometry(frame);
    }
    open();
}

void OVLogSheet::loadLog()
{
    bool ok = false;
    const int tag = m_ui->showOnlyErrorsCheck->property("tag").toInt(&ok);
    if (!ok || tag < 0 || tag >= int(OVFixedPaths::ScheduledCount)) {
        m_ui->logTextView->viewport()->update();
        return;
    }
    const bool errors = showOnlyErrors();
    const OVFixedPaths::FrequencyFiles &files = OVFixedPaths::Scheduled[tag];
    QFile file(QString::fromUtf8(errors ? files.errors : files.log));
    if (file.open(QIODevice::ReadOnly)) {
        QByteArray bytes;
        if (file.size() > MaxShown) {
            // Start at a line, never inside a character.
            file.seek(file.size() - MaxShown);
            bytes = file.readAll();
            bytes.remove(0, bytes.indexOf('\n') + 1);
        } else {
            bytes = file.readAll();
        }
        QTextCodec::ConverterState state;
        const QString text = QTextCodec::codecForName("UTF-8")->toUnicode(bytes.constData(), bytes.size(), &state);
        // Text that is not UTF-8 shows as nothing rather than as garbage.
        m_ui->logTextView->setPlainText(state.invalidChars > 0 ? QString() : text);
        scrollToNewest();
    } else if (errors) {
        // No error file: the last run had no errors.
        m_ui->logTextView->setPlainText(QString());
    }
    m_ui->logTextView->viewport()->update();
}

void OVLogSheet::scrollToNewest()
{
    m_ui->logTextView->moveCursor(QTextCursor::End);
    m_ui->logTextView->ensureCursorVisible();
}

void OVLogSheet::showEvent(QShowEvent *event)
{
    QDialog::showEvent(event);
    // Once laid out at its real size.
    QTimer::singleShot(0, this, &OVLogSheet::scrollToNewest);
}

void OVLogSheet::reject()
{
    Q_EMIT closeRequested();
}

void OVLogSheet::hideEvent(QHideEvent *event)
{
    QSettings(QStringLiteral("orvane"), QStringLiteral("sheets")).setValue(FrameKey, saveGeometry());
    QDialog::hideEvent(event);
}
