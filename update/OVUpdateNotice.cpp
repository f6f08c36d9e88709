// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVUpdateNotice.h"

#include "MacPADSocket.h"
#include "OVBundle.h"
#include "ovupdateconfig.h"
#include "ui_updatesheet.h"

#include <QApplication>
#include <QDesktopServices>
#include <QDialog>
#include <QProcess>
#include <QTextCursor>

OVUpdateNotice::OVUpdateNotice(QWidget *paneView, std::function<bool()> hasAttachedSheet)
    : QObject(paneView)
    , m_paneView(paneView)
    , m_hasAttachedSheet(std::move(hasAttachedSheet))
    , m_ui(std::make_unique<Ui::OVUpdateSheet>())
    , m_updateSheet(new QDialog(paneView))
{
    m_ui->setupUi(m_updateSheet);
    m_updateSheet->setWindowModality(Qt::WindowModal);
    const QIcon bell = QIcon::fromTheme(QStringLiteral("notifications"));
    m_ui->bellImage->setPixmap(bell.pixmap(48, 48));
    connect(m_ui->downloadButton, &QPushButton::clicked, this, [this] {
        downloadUpdate(m_ui->downloadButton);
    });
    connect(m_ui->closeButton, &QPushButton::clicked, this, [this] {
        hideUpdateSheet(m_ui->closeButton);
    });
    // Escape closes the sheet as its close button does.
    connect(m_updateSheet, &QDialog::rejected, this, [this] {
        hideUpdateSheet(m_updateSheet);
    });
    if (!m_hasAttachedSheet) {
        m_hasAttachedSheet = [this] {
            return m_paneView && windowHasSheet(m_paneView->window(), m_updateSheet);
        };
    }
}

OVUpdateNotice::~OVUpdateNotice() = default;

QUrl OVUpdateNotice::versionFileURL()
{
    return QUrl(QStringLiteral(OV_UPDATE_URL));
}

bool OVUpdateNotice::windowHasSheet(const QWidget *window, const QWidget *except)
{
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (const QWidget *candidate : windows) {
        if (candidate != except && candidate != window && candidate->isVisible() && candidate->windowModality() != Qt::NonModal && candidate->parentWidget()
            && candidate->parentWidget()->window() == window) {
            return true;
        }
    }
    return false;
}

QDialog *OVUpdateNotice::updateSheet() const
{
    return m_updateSheet;
}

void OVUpdateNotice::checkForNewerVersion()
{
    const QString version = OVBundle::shortVersion();
    m_macPAD = new MacPADSocket(this);
    m_macPAD->setDelegate(this);
    m_macPAD->performCheck(versionFileURL(), version);
}

void OVUpdateNotice::macPADErrorOccurred(MacPADSocket *socket, const QVariantMap &userInfo)
{
    showUpdateSheet(socket, userInfo);
}

void OVUpdateNotice::macPADCheckFinished(MacPADSocket *socket, const QVariantMap &userInfo)
{
    showUpdateSheet(socket, userInfo);
}

void OVUpdateNotice::showUpdateSheet(MacPADSocket *socket, const QVariantMap &info)
{
    // A newer version found while another sheet is open is not announced:
    // the next opening of the pane checks again.
    if (info.value(QStringLiteral("MacPADErrorCode")).toInt() == MacPADSocket::NewVersionAvailable && !m_hasAttachedSheet()) {
        const QString bell = OVBundle::pathForResource(QStringLiteral("Magic Bell"), QStringLiteral("aiff"));
        m_ui->downloadURLTextField->setText(socket->productDownloadURL());
        m_ui->releaseNotesTextView->document()->setDocumentMargin(10.0);
        m_ui->releaseNotesTextView->setPlainText(QStringLiteral("Orvane %1\n\n%2").arg(socket->newVersion(), socket->releaseNotes()));
        m_ui->releaseNotesTextView->moveCursor(QTextCursor::End);
        m_ui->releaseNotesTextView->moveCursor(QTextCursor::Start);
        QProcess::startDetached(QStringLiteral("paplay"), {bell});
        m_updateSheet->open();
    }
    if (m_macPAD) {
        m_macPAD->deleteLater();
        m_macPAD = nullptr;
    }
}

void OVUpdateNotice::downloadUpdate(QObject *sender)
{
    QDesktopServices::openUrl(QUrl(m_ui->downloadURLTextField->text().trimmed()));
    hideUpdateSheet(sender);
}

void OVUpdateNotice::hideUpdateSheet(QObject *sender)
{
    Q_UNUSED(sender)
    m_updateSheet->hide();
}
