#pragma once

/// Opens "/dev/null" in the place of each of the descriptors 0, 1 and 2 that is closed.
///
/// Without that the overlay or the socket could become standard output, and trace lines would be
/// written into it. Call it before anything else is opened, while there is one thread.
void openStandardDescriptors();
