#include "OVScheduleTables.h"

#include "OVTemporaryFile.h"
#include "OVToolLauncher.h"
#include "ovfixedpaths.h"

#include <QFile>

namespace OVScheduleTables
{
namespace
{
const char *const Scripts[] = {OVFixedPaths::DailyScript, OVFixedPaths::WeeklyScript, OVFixedPaths::MonthlyScript};

std::optional<QByteArray> readFile(const char *path)
{
    QFile file(QString::fromUtf8(path));
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    return file.readAll();
}

std::optional<QByteArray> readCrontab()
{
    if (QFile::exists(QString::fromUtf8(OVFixedPaths::Crontab))) {
        return readFile(OVFixedPaths::Crontab);
    }
    return readFile(OVFixedPaths::SavedCrontab);
}

// The edited tables wait here for installCrontab, which hands them to the
// helper on its standard input.
QByteArray s_crontab, s_anacrontab;
bool s_hasCrontab = false, s_hasAnacrontab = false;

void writeTemporary(const char *path, const QByteArray &text)
{
    const bool cron = qstrcmp(path, OVFixedPaths::TmpCrontab) == 0;
    (cron ? s_crontab : s_anacrontab) = text;
    (cron ? s_hasCrontab : s_hasAnacrontab) = true;
}
}

QByteArray scriptPath(Schedule schedule)
{
    return QByteArray(Scripts[schedule]);
}

QByteArray cronLine(Schedule schedule, const Times &t)
{
    const QByteArray quoted = '"' + scriptPath(schedule) + '"';
    switch (schedule) {
    case Daily:
        return QByteArray::number(t.dailyMinute) + '\t' + QByteArray::number(t.dailyHour) + "\t*\t*\t*\troot\t" + quoted + '\n';
    case Weekly:
        return QByteArray::number(t.weeklyMinute) + '\t' + QByteArray::number(t.weeklyHour) + "\t*\t*\t" + QByteArray::number(t.weeklyDay) + "\troot\t" + quoted
            + '\n';
    case Monthly:
        return QByteArray::number(t.monthlyMinute) + '\t' + QByteArray::number(t.monthlyHour) + '\t' + QByteArray::number(t.dayOfMonth) + "\t*\t*\troot\t"
            + quoted + '\n';
    }
    return QByteArray();
}

QByteArray anacronLine(Schedule schedule)
{
    static const char *const Jobs[] = {"1\t20\torvane.daily\t", "7\t25\torvane.weekly\t", "30\t30\torvane.monthly\t"};
    return QByteArray(Jobs[schedule]) + '"' + scriptPath(schedule) + "\"\n";
}

QByteArray edit(QByteArray table, const std::array<std::optional<QByteArray>, 3> &wanted)
{
    for (int schedule = Daily; schedule <= Monthly; ++schedule) {
        const int at = table.indexOf(scriptPath(Schedule(schedule)));
        if (at < 0) {
            if (wanted[schedule]) {
                table.append(*wanted[schedule]);
            }
            continue;
        }
        const int begin = table.lastIndexOf('\n', at) + 1;
        const int newline = table.indexOf('\n', at);
        const int end = newline < 0 ? table.size() : newline + 1;
        table.replace(begin, end - begin, wanted[schedule].value_or(QByteArray()));
    }
    return table;
}

void buildCrontab(const Times &times, const std::array<bool, 3> &scheduled)
{
    const auto table = readCrontab();
    if (!table) {
        return;
    }
    std::array<std::optional<QByteArray>, 3> wanted;
    for (int schedule = Daily; schedule <= Monthly; ++schedule) {
        if (scheduled[schedule]) {
            wanted[schedule] = cronLine(Schedule(schedule), times);
        }
    }
    writeTemporary(OVFixedPaths::TmpCrontab, edit(*table, wanted));
}

void restoreCrontab()
{
    const auto table = readCrontab();
    if (table) {
        writeTemporary(OVFixedPaths::TmpCrontab, edit(*table, {}));
    }
}

bool buildAnacrontab(const std::array<bool, 3> &scheduled)
{
    if (!QFile::exists(QString::fromUtf8(OVFixedPaths::Anacrontab))) {
        return false;
    }
    const auto table = readFile(OVFixedPaths::Anacrontab);
    if (table) {
        std::array<std::optional<QByteArray>, 3> wanted;
        for (int schedule = Daily; schedule <= Monthly; ++schedule) {
            if (scheduled[schedule]) {
                wanted[schedule] = anacronLine(Schedule(schedule));
            }
        }
        writeTemporary(OVFixedPaths::TmpAnacrontab, edit(*table, wanted));
    }
    return true;
}

bool restoreAnacrontab()
{
    if (!QFile::exists(QString::fromUtf8(OVFixedPaths::Anacrontab))) {
        return false;
    }
    const auto table = readFile(OVFixedPaths::Anacrontab);
    if (table) {
        writeTemporary(OVFixedPaths::TmpAnacrontab, edit(*table, {}));
    }
    return true;
}

void installCrontab()
{
    OVToolLauncher::Parts parts;
    if (s_hasCrontab) {
        parts.append({"crontab", s_crontab});
    }
    if (s_hasAnacrontab) {
        parts.append({"anacrontab", s_anacrontab});
    }
    s_hasCrontab = s_hasAnacrontab = false;
    OVToolLauncher::launch(OVFixedPaths::InstallCrontabTool, OVToolLauncher::parts(parts));
}
}
