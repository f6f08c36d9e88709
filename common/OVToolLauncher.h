#pragma once

#include <QString>

// Starts a helper tool from the bundle's resources with its one argument.
// The pane never waits for a tool nor reads its result: what a tool did
// shows later in the files it leaves.
class OVToolLauncher
{
public:
    static void launch(const char *tool);
};
