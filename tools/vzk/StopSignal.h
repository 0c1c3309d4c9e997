#pragma once

namespace NmVzkTool {

// Ctrl-C and SIGTERM end a run after the item in hand, so that streams are
// closed properly and the summary is printed; a second Ctrl-C ends vzk at once.
void InstallStopHandler();
bool StopRequested();
void ResetStopRequest();

} // namespace NmVzkTool
