// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include <QObject>
#include <QString>

class OVSettings;
class QWidget;

// The folder that receives the archived versions of changed and deleted
// files, as the settings hold it. Its last path component is always the
// default folder's ("Safety Net Archives").
class OVSafetyNet : public QObject
{
    Q_OBJECT
public:
    explicit OVSafetyNet(OVSettings *settings, QObject *parent = nullptr);

    // "~/Documents/Safety Net Archives", expanded.
    static QString defaultFolder();
    // The folder a choice in the folder dialog stands for.
    static QString folderForChoice(const QString &chosen);

    QString safetyNetFolder() const;
    void setSafetyNetFolder(const QString &folder);
    bool folderExists() const;

    // Makes the folder when nothing is at its path; its parent is not made.
    void createSafetyNetFolder();
    // Shows the folder in the file manager, making it first if needed.
    void openSafetyNetFolder();
    // Lets the user pick where the folder lives. True when a folder was chosen.
    bool chooseSafetyNetFolder(QWidget *parent);

private:
    OVSettings *m_settings;
};
