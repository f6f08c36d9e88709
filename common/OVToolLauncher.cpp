#include "OVToolLauncher.h"

#include "OVBundle.h"
#include "ovfixedpaths.h"

#include <QProcess>

void OVToolLauncher::launch(const char *tool)
{
    QProcess::startDetached(OVBundle::toolPath(QString::fromLatin1(tool)), {QString::fromLatin1(OVFixedPaths::ToolArgument)});
}
