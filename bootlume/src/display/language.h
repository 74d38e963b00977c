#pragma once

namespace paint {

/// Whether the device's settings file selects Chinese. A file that is missing or unreadable does
/// not. Reads the whole file through a window of fixed size: allocates nothing, logs nothing.
bool isChineseSelected();

} // namespace paint
