#pragma once

/// Corrects what the starter of the splash may have handed down: closed standard descriptors, an
/// ignored SIGCHLD or SIGTERM, a block on the signals that end the splash, and a limit for the size
/// of files, which standard output may reach.
///
/// Call it before anything is opened, while there is one thread, and after the handlers are
/// installed: a blocked signal that is pending arrives now.
void correctInheritance();
