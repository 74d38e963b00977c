#pragma once

/// Puts right what whoever starts the splash may have handed down: closed standard descriptors, a
/// SIGCHLD that is ignored, blocked signals that are to end the splash, and a limit for the size of
/// files, which standard output may reach.
///
/// Call it before anything is opened, while there is one thread; but once the handlers are
/// installed: a blocked signal may be waiting, and comes now.
void correctInheritance();
