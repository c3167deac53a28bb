// The desktop application's start, after the developer modes: one AppState,
// the main window, and the files named on the command line.
#pragma once

namespace inkharbour {

// Runs the window until the user quits; returns the exit status. A document
// file argument (.inkharbour, or one of the two older extensions) is opened;
// other file arguments are placed as stories of an untitled document, in order.
int runApplication(int argc, char** argv);

}  // namespace inkharbour
