#pragma once

// The uninstaller without a window, for administrators who remove the product from many
// machines through a management tool: `--unattended` removes it without asking anything,
// `--dry-run` tells what a run would do and changes nothing. Both run the same steps as
// the window; the exit code says which step failed (see exitcodes below).
namespace CommandLine {

// Exit codes besides the run's own (0, and 10 to 14 for the failed step).
const int C_EXIT_USAGE = 64;
const int C_EXIT_NOT_PERMITTED = 77;

// Whether the arguments ask for the command line rather than the window.
bool requested(int argc, char **argv);

// Runs the command line with a QCoreApplication (no display needed) and answers the
// process exit code.
int run(int argc, char **argv);

} // namespace CommandLine
