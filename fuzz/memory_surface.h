#pragma once

#include <cstdint>
#include <vector>

/// The renderer's surface in plain memory: a flip hands the picture over and waits for the next
/// step.
namespace memory_surface {

/// Lets the renderer draw and flip one frame; returns what it flipped, 480 x 800 pixels of RGB565.
std::vector<std::uint16_t> nextFrame();

} // namespace memory_surface
