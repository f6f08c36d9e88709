// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#pragma once

#include "OVBackupItem.h"
#include "ovfixedpaths.h"

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QVector>

class OVSettings;

// Fills the backup script template. Every text the pane puts into the Ruby
// program goes inside a double-quoted literal with \, " and # escaped, so
// the Ruby value is the text byte for byte and no name can run code.
namespace OVScriptBuilder
{
// The options of one frequency.
struct FrequencyOptions {
    bool mirror = false;
    bool remote = false;
    bool showProgress = false;
    bool repairPermissions = false;
};

// What all scripts of one save share.
struct SharedOptions {
    // Scheduled scripts take the prompt and the wait; the manual one never.
    bool scheduled = true;
    bool promptBeforeBackup = false;
    bool waitUntilAway = false;
    bool autoConnect = false;
    QString server, account, volume;
    bool safetyNet = false;
    QString maxArchives;
    int archiveIndex = -1;
    QString safetyNetFolder;
    // The Toast application's name, empty when there is none.
    QString toastApplication;
    // The user the notices go to; the pane's own user when left empty.
    QString username;
};

struct Script {
    QByteArray frequency; // the schedule's name (OVFixedPaths::FrequencyFiles)
    QByteArray logfile;
    QByteArray lastBackup;
    FrequencyOptions options;
    QList<QByteArray> sources;
    QList<QByteArray> destinations;
    // Per pair, in the order of the sources: the item's exclusion entries,
    // and those whose earlier copies go from the backup too.
    QList<QList<QByteArray>> exclusions;
    QList<QList<QByteArray>> removedExclusions;
};

QByteArray rubyEscaped(const QByteArray &bytes);
QByteArray quoted(const QByteArray &bytes);
// "/usr/local/bin/psync", with -d, -rm or -drm as the options ask.
QByteArray commandLiteral(bool mirror, bool remote);
// name = [ "A", "B" ]
QByteArray listLine(const char *name, const QList<QByteArray> &entries);
// name = [ [ "A", "B" ], [ ] ]: one list per pair.
QByteArray pairListsLine(const char *name, const QList<QList<QByteArray>> &lists);
QByteArray toastApplicationNameLine(const QString &name);

QByteArray fill(const QByteArray &templateText, const Script &script, const SharedOptions &shared);
// The template from the bundle; empty when it cannot be read.
QByteArray readTemplate();

// The script of one frequency: its files, and the qualifying items of that
// frequency in table order (a Toast item's destination is "Toast").
Script script(OVFrequency frequency, const QVector<OVBackupItem> &items, const FrequencyOptions &options);

// The options as the settings hold them.
FrequencyOptions frequencyOptions(const OVSettings &settings, OVFrequency frequency);
SharedOptions sharedOptions(const OVSettings &settings);

// The scheduled scripts for install_scripts, named by each schedule's word
// ("daily"), from the items and the settings (toast: the Toast application's
// name, or empty); a frequency with no qualifying item has none.
QList<QPair<QByteArray, QByteArray>> buildScheduledScripts(const QVector<OVBackupItem> &items, const OVSettings &settings, const QString &toast);
// The manual script for manual_backup; empty when no manual item qualifies.
QByteArray buildManualScript(const QVector<OVBackupItem> &items, const OVSettings &settings, const QString &toast);
}
