// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVLocalizedStrings.h"

#include "OVBundle.h"

#include <QFile>

namespace
{
class Reader
{
public:
    explicit Reader(const QString &text)
        : m_text(text)
    {
    }

    bool atEnd()
    {
        skipSpaceAndComments();
        return m_pos >= m_text.size();
    }

    // A quoted string with \" \\ \n \t escapes; a null string on bad input.
    QString quoted()
    {
        skipSpaceAndComments();
        if (m_pos >= m_text.size() || m_text.at(m_pos) != QLatin1Char('"')) {
            return QString();
        }
        QString result(QLatin1String(""));
        for (++m_pos; m_pos < m_text.size(); ++m_pos) {
            const QChar c = m_text.at(m_pos);
            if (c == QLatin1Char('"')) {
                ++m_pos;
                return result;
            }
            if (c == QLatin1Char('\\') && m_pos + 1 < m_text.size()) {
                const QChar escaped = m_text.at(++m_pos);
                result += escaped == QLatin1Char('n') ? QChar(QLatin1Char('\n')) : escaped == QLatin1Char('t') ? QChar(QLatin1Char('\t')) : escaped;
            } else {
                result += c;
            }
        }
        return QString();
    }

    bool expect(QChar c)
    {
        skipSpaceAndComments();
        if (m_pos < m_text.size() && m_text.at(m_pos) == c) {
            ++m_pos;
            return true;
        }
        return false;
    }

    // The line the reader stands on, counted from 0.
    int line() const
    {
        return m_text.leftRef(m_pos).count(QLatin1Char('\n'));
    }

    void skipToNextLine()
    {
        while (m_pos < m_text.size() && m_text.at(m_pos) != QLatin1Char('\n')) {
            ++m_pos;
        }
    }

private:
    void skipSpaceAndComments()
    {
        while (m_pos < m_text.size()) {
            if (m_text.at(m_pos).isSpace()) {
                ++m_pos;
            } else if (m_text.midRef(m_pos, 2) == QLatin1String("/*")) {
                const int end = m_text.indexOf(QLatin1String("*/"), m_pos + 2);
                m_pos = end < 0 ? m_text.size() : end + 2;
            } else if (m_text.midRef(m_pos, 2) == QLatin1String("//")) {
                skipToNextLine();
            } else {
                return;
            }
        }
    }

    const QString &m_text;
    int m_pos = 0;
};
}

QHash<QString, QString> OVLocalizedStrings::parse(const QString &text)
{
    QHash<QString, QString> table;
    Reader reader(text);
    while (!reader.atEnd()) {
        const int line = reader.line();
        const QString key = reader.quoted();
        QString value;
        if (!key.isNull() && reader.expect(QLatin1Char('='))) {
            value = reader.quoted();
        }
        if (key.isNull() || value.isNull() || !reader.expect(QLatin1Char(';'))) {
            // A malformed entry costs that entry, not the whole table.
            if (reader.line() == line) {
                reader.skipToNextLine();
            }
            continue;
        }
        table.insert(key, value);
    }
    return table;
}

QString OVLocalizedStrings::localizedString(const QString &key)
{
    static const QHash<QString, QString> table = [] {
        QFile file(OVBundle::pathForResource(QStringLiteral("Localizable"), QStringLiteral("strings")));
        if (!file.open(QIODevice::ReadOnly)) {
            return QHash<QString, QString>();
        }
        return parse(QString::fromUtf8(file.readAll()));
    }();
    return table.value(key, QStringLiteral(""));
}
