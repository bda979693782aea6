// The command line. Main thread only.
#pragma once

/// Whether `--daemonize` was given.
extern bool daemonize;

/// Reads the options and does what they say: sets the print level, notes `--daemonize`. Ends the process after `--help`
/// (status 0) and for a print level that is none (status 1). Unknown options and arguments that are no options are
/// reported on standard error and change nothing.
void parseOptions(int argc, char** argv);

/// Does what one option says, as getopt_long(3) reports it: its letter, with the option's argument or null. Aborts for
/// a letter that is none of the program's.
void applyOption(int letter, const char* argument, const char* program);
