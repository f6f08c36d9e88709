// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QObject>
#include <QPointer>
#include <QUrl>
#include <QVariantMap>
#include <functional>
#include <memory>

class MacPADSocket;
class QDialog;

namespace Ui
{
class OVUpdateSheet;
}

// The pane's update notice: one check of the vendor's version file per
// opening of the pane; a sheet with a bell when, and only when, a newer
// version is out and no other sheet is on the pane's window. Every other
// outcome is silent.
class OVUpdateNotice : public QObject
{
    Q_OBJECT
public:
    // The sheet belongs to paneView's window. hasAttachedSheet says whether
    // another sheet is open there; by default any visible window-modal
    // dialog over that window counts.
    explicit OVUpdateNotice(QWidget *paneView, std::function<bool()> hasAttachedSheet = {});
    ~OVUpdateNotice() override;

    // The vendor's version file.
    static QUrl versionFileURL();
    // Whether a window-modal dialog other than except is shown over window.
    static bool windowHasSheet(const QWidget *window, const QWidget *except = nullptr);

    QDialog *updateSheet() const;
    MacPADSocket *macPAD() const
    {
        return m_macPAD;
    }

public Q_SLOTS:
    // Starts a check with the bundle's "CFBundleShortVersionString".
    void checkForNewerVersion();
    void macPADErrorOccurred(MacPADSocket *socket, const QVariantMap &userInfo);
    void macPADCheckFinished(MacPADSocket *socket, const QVariantMap &userInfo);
    void showUpdateSheet(MacPADSocket *socket, const QVariantMap &info);
    // Opens what the download field holds (the user may have edited it).
    void downloadUpdate(QObject *sender);
    void hideUpdateSheet(QObject *sender);

private:
    QPointer<QWidget> m_paneView;
    std::function<bool()> m_hasAttachedSheet;
    std::unique_ptr<Ui::OVUpdateSheet> m_ui;
    QDialog *m_updateSheet;
    MacPADSocket *m_macPAD = nullptr;
};
