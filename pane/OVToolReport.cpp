// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVToolReport.h"

#include "OVLocalizedStrings.h"
#include "OVToolLauncher.h"

#include <KMessageWidget>

OVToolReport::OVToolReport(KMessageWidget *message, QObject *parent)
    : QObject(parent)
    , m_message(message)
{
    connect(OVToolLauncher::instance(), &OVToolLauncher::toolFinished, this, &OVToolReport::toolFinished);
}

QString OVToolReport::failureText(const QString &tool, const QString &message)
{
    const QString what = OVLocalizedStrings::localizedString(tool + QStringLiteral("Failed"));
    return (what.isEmpty() ? tool + QStringLiteral(": ") : what) + message;
}

void OVToolReport::toolFinished(const QString &tool, bool ok, const QString &message)
{
    // The newest result of each helper stands: a later success clears its failure.
    for (int i = m_failures.size() - 1; i >= 0; --i) {
        if (m_failures.at(i).first == tool) {
            m_failures.removeAt(i);
        }
    }
    if (!ok) {
        const QString line = failureText(tool, message);
        m_failures.append({tool, line});
    }
    showLines();
}

void OVToolReport::showLines()
{
    QStringList lines;
    for (const auto &failure : std::as_const(m_failures)) {
        lines.append(failure.second);
    }
    m_message->setText(lines.join(QLatin1Char('\n')));
    m_message->setVisible(!lines.isEmpty());
}
