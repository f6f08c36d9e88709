// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include "OVRestoreSources.h"

#include <QWidget>

#include <memory>

class QStandardItem;
class QStandardItemModel;
class QThread;
class OVRestoreJob;

namespace Ui
{
class OVRestoreWindow;
}

// "Restore…": a source folder's tree as it is now and as backed up
// (deleted entries marked), the versions of what is selected, newest
// first, and the whole tree as of a chosen date. Runs as the user: what
// the user may not read is named, never worked around.
class OVRestoreWindow : public QWidget
{
    Q_OBJECT
public:
    explicit OVRestoreWindow(QWidget *parent = nullptr);
    ~OVRestoreWindow() override;

    // Where the items, the settings and the markers come from; the
    // installed ones unless set.
    void setSetup(const OVRestoreSources::Setup &setup);
    // Shows the backups of the source folder holding the path, with the
    // path selected.
    void openAt(const QString &path);
    // Shows window (made when null) at path, or at the home folder when path
    // is empty, in front; returns it. It deletes itself when closed.
    static OVRestoreWindow *showAt(OVRestoreWindow *window, const QString &path);
    // Offers Connect when the backup lies on the remote volume: mounts it
    // as the user (the password comes from the keyring) and reads again.
    void offerConnect();

    // What the window shows, for those who drive it.
    QString sourceRoot() const
    {
        return m_sources.sourceRoot;
    }
    QString message() const;
    QStringList selectedPaths() const;
    int versionCount() const;
    // The size that shows every column whole and the tree's open rows.
    QSize contentSize() const;

public Q_SLOTS:
    // Reads the backups again: after a disk was connected, say.
    void reload();
    void restore();
    void restoreTo();
    void setAsOf(const QDate &date);

Q_SIGNALS:
    // The user asked to mount the remote volume; whoever connects it
    // calls reload() when it is there. Offered only when connected.
    void connectRequested(const QString &server, const QString &volume);
    void restoreFinished(bool ok);

protected:
    void closeEvent(QCloseEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    void showProblems(const QString &extra = QString());
    void fillFolder(QStandardItem *folder);
    QStandardItem *itemFor(const QString &relativePath);
    void selectionChanged();
    QVector<OVVersion> chosenVersions() const;
    void startRestore(const QString &otherFolder);
    void restoreEnded();
    QString versionTitle(const OVVersion &version) const;
    // The tree's column: the day of a copy, the moment of an archive.
    QString shortTitle(const OVVersion &version) const;
    int versionListHeight() const;
    void fitColumns();
    // Sized to the content when first shown, within the screen.
    void fitToContent();
    QDateTime asOf() const;

    std::unique_ptr<Ui::OVRestoreWindow> m_ui;
    QStandardItemModel *m_model;
    OVRestoreSources::Setup m_setup;
    bool m_setupGiven = false;
    OVRestoreSources m_sources;
    QString m_path;
    QThread *m_thread = nullptr;
    OVRestoreJob *m_job = nullptr;
    QAction *m_connectAction;
    bool m_fitted = false;
};
