// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QObject>
#include <QStringList>

class KMessageWidget;

// Shows in the module what a helper did not do: each failed or refused
// helper gives one line, "The schedule was not installed: <its message>",
// until the same helper next succeeds.
class OVToolReport : public QObject
{
    Q_OBJECT
public:
    OVToolReport(KMessageWidget *message, QObject *parent = nullptr);

    // The line for a helper's failure.
    static QString failureText(const QString &tool, const QString &message);

private:
    void toolFinished(const QString &tool, bool ok, const QString &message);
    void showLines();

    KMessageWidget *m_message;
    QList<QPair<QString, QString>> m_failures; // tool, line
};
